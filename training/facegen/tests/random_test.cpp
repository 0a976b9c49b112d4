// SPDX-License-Identifier: MIT
#include "random.h"

#include <gtest/gtest.h>

#include <set>

namespace facegen {
namespace {

TEST(Random, SameStreamSameNumbers) {
    Random a(1, 2, 3, Purpose::kSkin), b(1, 2, 3, Purpose::kSkin);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(a.Next(), b.Next());
    }
}

TEST(Random, StreamsOfOtherPeoplePicturesAndPurposesDiffer) {
    std::set<std::uint64_t> first;
    for (std::uint64_t person = 0; person < 20; ++person) {
        for (std::uint64_t picture = 0; picture < 20; ++picture) {
            for (const Purpose purpose : {Purpose::kPerson, Purpose::kPicture, Purpose::kCamera}) {
                first.insert(Random(7, person, picture, purpose).Next());
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
        const double value = random.Normal();
        sum += value;
        squares += value * value;
    }
    EXPECT_NEAR(sum / count, 0.0, 0.03);
    EXPECT_NEAR(squares / count, 1.0, 0.05);
}

TEST(Random, NormalWithinStaysWithin) {
    Random random(6);
    for (int i = 0; i < 5000; ++i) {
        EXPECT_LE(std::fabs(random.NormalWithin(2.0f, 1.5f)), 3.0f);
    }
}

} // namespace
} // namespace facegen
