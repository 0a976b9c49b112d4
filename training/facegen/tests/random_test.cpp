// SPDX-License-Identifier: MIT
#include "random.h"

#include <gtest/gtest.h>

#include <set>

namespace facegen {
namespace {

TEST(Random, SameStreamSameNumbers) {
    Random a(1, 2, 3, Purpose::skin), b(1, 2, 3, Purpose::skin);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(a.next(), b.next());
    }
}

TEST(Random, StreamsOfOtherPeoplePicturesAndPurposesDiffer) {
    std::set<std::uint64_t> first;
    for (std::uint64_t person = 0; person < 20; ++person) {
        for (std::uint64_t picture = 0; picture < 20; ++picture) {
            for (const Purpose purpose : {Purpose::person, Purpose::picture, Purpose::camera}) {
                first.insert(Random(7, person, picture, purpose).next());
            }
        }
    }
    EXPECT_EQ(first.size(), 20U * 20U * 3U);
}

TEST(Random, NormalHasMeanZeroAndDeviationOne) {
    Random random(5);
    double sum = 0, squares = 0;
    constexpr int count = 20000;
    for (int i = 0; i < count; ++i) {
        const double value = random.normal();
        sum += value;
        squares += value * value;
    }
    EXPECT_NEAR(sum / count, 0.0, 0.03);
    EXPECT_NEAR(squares / count, 1.0, 0.05);
}

TEST(Random, NormalWithinStaysWithin) {
    Random random(6);
    for (int i = 0; i < 5000; ++i) {
        EXPECT_LE(std::fabs(random.normal_within(2.0F, 1.5F)), 3.0F);
    }
}

} // namespace
} // namespace facegen
