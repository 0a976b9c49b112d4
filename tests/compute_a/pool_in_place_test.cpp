// SPDX-License-Identifier: MIT
// The routines that may write over their own input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "compute_a/guarded_copy.h"
#include "orvo/q7_kernels.h"

namespace {

using orvo_test::GuardedCopy;
using orvo_test::kBothPlaces;
using orvo_test::Random;
using orvo_test::RandomQ7;

using Q7 = std::vector<int8_t>;

struct Size {
    size_t width, height, channels;
};

// Around the lengths of vectors, one and two of them, and the networks' own.
std::vector<Size> Sizes() {
    std::vector<Size> sizes = {{96, 96, 32}, {48, 48, 64}, {24, 24, 128}, {12, 12, 256}};
    for (size_t width = 1; width <= 140; ++width) {
        sizes.push_back({width, 1 + width % 9, 1 + width % 4});
    }
    return sizes;
}

// The definition, one value after the other.
Q7 MaximaInPlace(Q7 t, const Size& s) {
    for (size_t row = 0; row < s.height * s.channels; ++row) {
        for (size_t x = 0; x + 1 < s.width; ++x) {
            t[row * s.width + x] = std::max(t[row * s.width + x], t[row * s.width + x + 1]);
        }
    }
    size_t to = 0;
    for (size_t c = 0; c < s.channels; ++c) {
        for (size_t y = 0; y + 1 < s.height; ++y) {
            for (size_t x = 0; x + 1 < s.width; ++x) {
                const size_t from = (c * s.height + y) * s.width + x;
                t[to++] = std::max(t[from], t[from + s.width]);
            }
        }
    }
    return t;
}

Q7 SampledInPlace(Q7 t, const Size& s) {
    size_t to = 0;
    for (size_t c = 0; c < s.channels; ++c) {
        for (size_t y = 0; y < s.height; y += 2) {
            for (size_t x = 0; x < s.width; x += 2) {
                t[to++] = t[(c * s.height + y) * s.width + x];
            }
        }
    }
    return t;
}

TEST(InPlace, MaximumWithStride1IsThatOfAscendingLoops) {
    for (const Size& s : Sizes()) {
        SCOPED_TRACE(testing::Message() << s.width << " x " << s.height << " x " << s.channels);
        Random random(s.width * 7 + s.channels);
        const Q7 before = RandomQ7(random, s.width * s.height * s.channels);
        for (const auto place : kBothPlaces) {
            GuardedCopy<int8_t> data(before, place);
            ArmAMaxpoolK2x2S1x1ChwQ7(data.data(), static_cast<uint32_t>(s.width),
                                     static_cast<uint32_t>(s.height),
                                     static_cast<uint32_t>(s.channels), data.data(), nullptr);
            ASSERT_EQ(data.values(), MaximaInPlace(before, s));
        }
    }
}

TEST(InPlace, SamplingIsThatOfAscendingLoops) {
    for (const Size& s : Sizes()) {
        SCOPED_TRACE(testing::Message() << s.width << " x " << s.height << " x " << s.channels);
        Random random(s.width * 11 + s.channels);
        const Q7 before = RandomQ7(random, s.width * s.height * s.channels);
        for (const auto place : kBothPlaces) {
            GuardedCopy<int8_t> data(before, place);
            ArmADownsample(data.data(), static_cast<uint32_t>(s.width),
                           static_cast<int32_t>(s.height), static_cast<uint32_t>(s.channels),
                           data.data(), nullptr);
            ASSERT_EQ(data.values(), SampledInPlace(before, s));
        }
    }
}

} // namespace
