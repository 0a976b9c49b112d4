// SPDX-License-Identifier: MIT
#include "grey/scale_plane.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "support/guarded_buffer.h"
#include "support/random.h"

namespace {

using orvo_grey::ScalePlane;
using orvo_test::GuardedBuffer;
using orvo_test::Random;

constexpr uint8_t kBetween = 0xA5; // in the rows' spare bytes

// The definition: where an output's middle falls among the inputs' middles, its share in 65,536ths.
struct Place {
    uint32_t first, second;
    uint64_t share; // of the second
};

Place PlaceOf(uint32_t i, uint32_t from, uint32_t to) {
    const long double at = (i + 0.5L) * from / to - 0.5L;
    const long double inside = std::clamp(at, 0.0L, static_cast<long double>(from - 1));
    const auto first = static_cast<uint32_t>(inside);
    // A hair more, since a quotient that is a whole number may come out below it.
    const auto share = static_cast<uint64_t>(65536 * (inside - first) + 1e-9L);
    return {first, std::min(first + 1, from - 1), share};
}

uint8_t PlainPixel(const uint8_t* pixels, uint32_t stride, const Place& x, const Place& y) {
    const auto row = [&](uint32_t number) {
        const uint8_t* const at = pixels + number * stride;
        return at[x.first] * (65536 - x.share) + at[x.second] * x.share;
    };
    const uint64_t sum = row(y.first) * (65536 - y.share) + row(y.second) * y.share;
    return static_cast<uint8_t>((sum + (uint64_t{1} << 31)) >> 32);
}

struct Sizes {
    uint32_t width, height, toWidth, toHeight;
};

void ExpectPlainPixels(const Sizes& s, GuardedBuffer::Place end, Random& random) {
    constexpr uint32_t kSpare = 3;
    // No spare bytes behind the last row: what is read or written there faults.
    const uint32_t stride = s.width + kSpare;
    const uint32_t toStride = s.toWidth + kSpare;
    GuardedBuffer src(stride * s.height - kSpare, end);
    GuardedBuffer dst(toStride * s.toHeight - kSpare, end);
    for (size_t i = 0; i < src.size(); ++i) {
        src.bytes()[i] = static_cast<uint8_t>(random.Between(0, 255));
    }
    src.MakeReadOnly();
    ScalePlane({src.bytes(), s.width, s.height, stride},
               {dst.bytes(), s.toWidth, s.toHeight, toStride});
    for (uint32_t y = 0; y < s.toHeight; ++y) {
        for (uint32_t x = 0; x < toStride && y * toStride + x < dst.size(); ++x) {
            const int expected =
                x < s.toWidth ? PlainPixel(src.bytes(), stride, PlaceOf(x, s.width, s.toWidth),
                                           PlaceOf(y, s.height, s.toHeight))
                              : kBetween;
            ASSERT_EQ(dst.bytes()[y * toStride + x], expected)
                << s.width << 'x' << s.height << " to " << s.toWidth << 'x' << s.toHeight << " at "
                << x << ' ' << y;
        }
    }
}

TEST(ScalePlane, IsTheBlendOfTheFourNearestPixels) {
    Random random(5);
    constexpr uint32_t kFew[] = {1, 2, 3, 7, 16, 37};
    constexpr uint32_t kMany[] = {1, 2, 5, 16, 96, 101};
    for (const uint32_t width : kFew) {
        for (const uint32_t height : kFew) {
            for (const uint32_t toWidth : kMany) {
                for (const uint32_t toHeight : kMany) {
                    for (const auto end : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
                        ASSERT_NO_FATAL_FAILURE(
                            ExpectPlainPixels({width, height, toWidth, toHeight}, end, random));
                    }
                }
            }
        }
    }
}

TEST(ScalePlane, EqualSizesAreCopied) {
    Random random(6);
    std::vector<uint8_t> src(31 * 17);
    for (uint8_t& pixel : src) {
        pixel = static_cast<uint8_t>(random.Between(0, 255));
    }
    std::vector<uint8_t> dst(src.size());
    ScalePlane({src.data(), 31, 17, 31}, {dst.data(), 31, 17, 31});
    EXPECT_EQ(dst, src);
}

} // namespace
