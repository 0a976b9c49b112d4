// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "orvo/image_tools.h"
#include "reference/reference_image.h"
#include "support/guarded_buffer.h"
#include "support/random.h"

namespace {

using orvo_test::GuardedBuffer;
using orvo_test::Random;

using Bytes = std::vector<uint8_t>;

struct Size {
    int32_t height;
    int32_t width;
};

// One of the two functions with its definition and what it takes of each pixel.
struct Variant {
    const char* name;
    decltype(&ResizeNearQ7) resize;
    decltype(&ResizeNearQ7) reference;
    bool wholeBytes;

    size_t RowUnit(int32_t channels) const {
        return static_cast<size_t>(wholeBytes ? channels : channels / 2);
    }
    size_t PixelBytes(int32_t channels) const {
        return static_cast<size_t>(wholeBytes ? channels / 2 * 2 : channels / 2);
    }
};

const Variant kQ7 = {"Q7", ResizeNearQ7, orvo_reference::ResizeNearest8Bit, true};
const Variant kQ4 = {"Q4", ResizeNearQ4, orvo_reference::ResizeNearest4Bit, false};

size_t Area(Size size) {
    return static_cast<size_t>(size.height) * static_cast<size_t>(size.width);
}

Bytes RandomBytes(Random& random, size_t count) {
    Bytes bytes(count);
    random.Fill(bytes.data(), count);
    return bytes;
}

Bytes Resized(const Variant& variant, const Bytes& src, Size from, Size to, int32_t channels) {
    Bytes dst(Area(to) * variant.PixelBytes(channels));
    variant.resize(src.data(), dst.data(), from.height, from.width, channels, to.height, to.width);
    return dst;
}

// Source and destination of exactly their sizes, at the pages that `place` says.
void ExpectMatch(const Variant& variant, Random& random, Size from, Size to, int32_t channels,
                 GuardedBuffer::Place place) {
    GuardedBuffer src(Area(from) * variant.RowUnit(channels), place);
    random.Fill(src.bytes(), src.size());
    src.MakeReadOnly();
    GuardedBuffer dst(Area(to) * variant.PixelBytes(channels), place);
    variant.resize(src.bytes(), dst.bytes(), from.height, from.width, channels, to.height,
                   to.width);
    Bytes expected(dst.size());
    variant.reference(src.bytes(), expected.data(), from.height, from.width, channels, to.height,
                      to.width);
    ASSERT_EQ(Bytes(dst.bytes(), dst.bytes() + dst.size()), expected)
        << variant.name << ' ' << from.width << " x " << from.height << " to " << to.width << " x "
        << to.height << ", channels " << channels;
}

void ExpectMatchAtBothPlaces(const Variant& variant, Random& random, Size from, Size to,
                             int32_t channels) {
    ExpectMatch(variant, random, from, to, channels, GuardedBuffer::kAtEnd);
    ExpectMatch(variant, random, from, to, channels, GuardedBuffer::kAtStart);
}

// ---- Values

TEST(ResizeNear, EqualSizesCopyTheImage) {
    Random random(1);
    for (const Size size : {Size{1, 1}, {1, 7}, {9, 1}, {24, 24}, {17, 31}}) {
        for (const int32_t channels : {2, 4, 6, 16, 34}) {
            const Bytes src8 = RandomBytes(random, Area(size) * static_cast<size_t>(channels));
            EXPECT_EQ(Resized(kQ7, src8, size, size, channels), src8);
            const Bytes src4 = RandomBytes(random, Area(size) * static_cast<size_t>(channels / 2));
            EXPECT_EQ(Resized(kQ4, src4, size, size, channels), src4);
        }
    }
}

TEST(ResizeNear, HalvingFourByFourTakesEverySecondPixel) {
    Bytes src(4 * 4 * 2);
    for (size_t i = 0; i < src.size(); ++i) {
        src[i] = static_cast<uint8_t>(i);
    }
    // Pixel (x, y) holds the bytes 8y + 2x and the one after.
    EXPECT_EQ(Resized(kQ7, src, {4, 4}, {2, 2}, 2), (Bytes{0, 1, 4, 5, 16, 17, 20, 21}));
}

TEST(ResizeNear, EnlargingTwoToThreeTakesColumnsZeroZeroOne) {
    const Bytes src = {1, 2, 3, 4, 5, 6, 7, 8};
    const Bytes expected = {1, 2, 1, 2, 3, 4, //
                            1, 2, 1, 2, 3, 4, //
                            5, 6, 5, 6, 7, 8};
    EXPECT_EQ(Resized(kQ7, src, {2, 2}, {3, 3}, 2), expected);
}

TEST(ResizeNear, FourBitPixelsAreCopiedAsWholeBytes) {
    const Bytes src = {0x12, 0x34, 0x56, 0x78};
    EXPECT_EQ(Resized(kQ4, src, {2, 2}, {3, 3}, 2),
              (Bytes{0x12, 0x12, 0x34, 0x12, 0x12, 0x34, 0x56, 0x56, 0x78}));
}

TEST(ResizeNear, SizesAreHeightBeforeWidth) {
    const Bytes src = {1, 2, 3, 4, 5, 6, 7, 8}; // one row of four pixels
    EXPECT_EQ(Resized(kQ7, src, {1, 4}, {2, 2}, 2), (Bytes{1, 2, 5, 6, 1, 2, 5, 6}));
}

// Rows start at channels bytes a pixel, pixels within a row at one byte less.
TEST(ResizeNear, OddChannelsOfBytesStartRowsAndPixelsDifferently) {
    Bytes src(2 * 2 * 3);
    for (size_t i = 0; i < src.size(); ++i) {
        src[i] = static_cast<uint8_t>(i);
    }
    EXPECT_EQ(Resized(kQ7, src, {2, 2}, {2, 2}, 3), (Bytes{0, 1, 2, 3, 6, 7, 8, 9}));
}

TEST(ResizeNear, OddChannelsOfHalfBytesLoseTheLast) {
    const Bytes src = {0x12, 0x34, 0x56, 0x78};
    EXPECT_EQ(Resized(kQ4, src, {2, 2}, {2, 2}, 3), src);
}

// What counts is the rounded ratio times the index, rounded again: for some sizes the whole part of
// that is neither the exact quotient's nor double precision's.
TEST(ResizeNear, PositionsAreRoundedInSinglePrecision) {
    int unlikeExact = 0;
    int unlikeDouble = 0;
    for (int32_t from = 1; from <= 64; ++from) {
        for (int32_t to = 1; to <= 128; ++to) {
            Bytes src(static_cast<size_t>(from) * 2);
            for (size_t i = 0; i < src.size(); ++i) {
                src[i] = static_cast<uint8_t>(i / 2);
            }
            const Bytes columns = Resized(kQ7, src, {1, from}, {1, to}, 2);
            const Bytes rows = Resized(kQ7, src, {from, 1}, {to, 1}, 2);
            ASSERT_EQ(columns, rows);
            for (int32_t x = 0; x < to; ++x) {
                const float ratio = static_cast<float>(from) / static_cast<float>(to);
                const float position = static_cast<float>(x) * ratio;
                ASSERT_EQ(columns[static_cast<size_t>(2 * x)], static_cast<int32_t>(position))
                    << from << " to " << to << " at " << x;
                unlikeExact += static_cast<int32_t>(position) != x * from / to;
                unlikeDouble += static_cast<int32_t>(position) !=
                                static_cast<int32_t>(x * (static_cast<double>(from) / to));
            }
        }
    }
    EXPECT_GT(unlikeExact, 0) << "no size told single precision from exact division";
    EXPECT_GT(unlikeDouble, 0) << "no size told single precision from double precision";
}

TEST(ResizeNear, RandomSizesMatchReference) {
    Random random(2);
    for (int round = 0; round < 250; ++round) {
        const Size from = {random.Between(1, 40), random.Between(1, 40)};
        const Size to = {random.Between(1, 40), random.Between(1, 40)};
        const int32_t channels = random.Between(2, 40);
        ExpectMatchAtBothPlaces(kQ7, random, from, to, channels);
        ExpectMatchAtBothPlaces(kQ4, random, from, to, channels);
    }
}

TEST(ResizeNear, OnePixelAndSingleRowsMatchReference) {
    Random random(3);
    for (int32_t channels = 2; channels <= 37; ++channels) {
        for (const Size from : {Size{1, 1}, {1, 5}, {5, 1}}) {
            for (const Size to : {Size{1, 1}, {1, 13}, {13, 1}, {3, 3}}) {
                ExpectMatchAtBothPlaces(kQ7, random, from, to, channels);
                ExpectMatchAtBothPlaces(kQ4, random, from, to, channels);
            }
        }
    }
}

TEST(ResizeNear, WideAndTallImagesMatchReference) {
    Random random(4);
    for (const Size from : {Size{1, 5000}, {5000, 1}, {256, 256}}) {
        for (const Size to : {Size{1, 4999}, {7001, 1}, {96, 96}, {255, 257}}) {
            ExpectMatchAtBothPlaces(kQ7, random, from, to, 2);
            ExpectMatchAtBothPlaces(kQ4, random, from, to, 4);
        }
    }
}

TEST(ResizeNear, OddAddressesAreFine) {
    Random random(5);
    for (const Variant& variant : {kQ7, kQ4}) {
        const Bytes src = RandomBytes(random, 1 + 5 * 5 * 18);
        Bytes dst(1 + 9 * 9 * 18);
        Bytes expected(dst.size());
        variant.resize(src.data() + 1, dst.data() + 1, 5, 5, 18, 9, 9);
        variant.reference(src.data() + 1, expected.data() + 1, 5, 5, 18, 9, 9);
        EXPECT_EQ(dst, expected);
    }
}

// ---- Sizes without an image

TEST(ResizeNear, OutputSizesBelowOneWriteNothing) {
    const Bytes src(64, 9);
    for (const Variant& variant : {kQ7, kQ4}) {
        for (const int32_t bad : {0, -1, -256, INT32_MIN}) {
            for (const Size to : {Size{bad, 4}, {4, bad}, {bad, bad}}) {
                Bytes dst(64, 77);
                variant.resize(src.data(), dst.data(), 4, 4, 2, to.height, to.width);
                EXPECT_EQ(dst, Bytes(64, 77))
                    << variant.name << ' ' << to.height << ' ' << to.width;
            }
        }
    }
}

TEST(ResizeNear, FewerThanTwoChannelsWriteNothing) {
    for (const Variant& variant : {kQ7, kQ4}) {
        for (const int32_t channels : {1, 0, -1, -2, -3, -16, INT32_MIN, INT32_MIN + 1}) {
            GuardedBuffer src(0);
            GuardedBuffer dst(0);
            variant.resize(src.bytes(), dst.bytes(), 4, 4, channels, 3, 5);
            variant.resize(src.bytes(), dst.bytes(), 1, 1, channels, 1, 1);
            Bytes around(64, 77);
            const Bytes plain(64, 9);
            variant.resize(plain.data() + 32, around.data() + 32, 2, 2, channels, 2, 2);
            EXPECT_EQ(around, Bytes(64, 77)) << variant.name << ' ' << channels;
        }
    }
}

// One output pixel is the source's first, whatever the source's size.
TEST(ResizeNear, OneOutputPixelReadsTheFirstSourcePixelOnly) {
    for (const Variant& variant : {kQ7, kQ4}) {
        for (const int32_t extent : {1, 2, 1000, INT32_MAX}) {
            GuardedBuffer src(variant.PixelBytes(6));
            Random(6).Fill(src.bytes(), src.size());
            src.MakeReadOnly();
            GuardedBuffer dst(src.size());
            variant.resize(src.bytes(), dst.bytes(), extent, extent, 6, 1, 1);
            EXPECT_EQ(Bytes(dst.bytes(), dst.bytes() + dst.size()),
                      Bytes(src.bytes(), src.bytes() + src.size()))
                << variant.name << ' ' << extent;
        }
    }
}

// A source without pixels has none to pick, and what lies around it must not be read.
TEST(ResizeNear, SourceSizesBelowOneWriteNothing) {
    for (const Variant& variant : {kQ7, kQ4}) {
        for (const int32_t extent : {0, -1, -5, INT32_MIN}) {
            GuardedBuffer empty(0);
            const Bytes untouched(4 * 7 * variant.PixelBytes(4), 0x5A);
            Bytes dst = untouched;
            variant.resize(empty.bytes(), dst.data(), extent, 3, 4, 4, 7);
            variant.resize(empty.bytes(), dst.data(), 3, extent, 4, 4, 7);
            EXPECT_EQ(dst, untouched) << variant.name << ' ' << extent;
        }
    }
}

} // namespace
