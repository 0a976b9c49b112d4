// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "compute_a/guarded_copy.h"
#include "orvo/q7_kernels.h"
#include "reference/reference_small.h"

namespace {

using orvo_test::GuardedBuffer;
using orvo_test::GuardedCopy;
using orvo_test::GuardedInput;
using orvo_test::kBothPlaces;
using orvo_test::Random;
using orvo_test::RandomQ7;

using Q7 = std::vector<int8_t>;

// Lengths around every block size that an implementation is likely to use.
std::vector<size_t> Lengths() {
    std::vector<size_t> lengths;
    for (size_t n = 0; n <= 135; ++n) {
        lengths.push_back(n);
    }
    lengths.insert(lengths.end(), {255, 256, 257, 576, 1000, 27648});
    return lengths;
}

// ---- Grey levels to Q7

TEST(GreyToQ7, FlipsTheTopBit) {
    std::vector<uint8_t> data = {0, 127, 128, 255};
    ArmAXorQ7(data.data(), 4);
    const auto* q7 = reinterpret_cast<const int8_t*>(data.data());
    EXPECT_EQ(Q7(q7, q7 + 4), (Q7{-128, -1, 0, 127}));
}

TEST(GreyToQ7, ZeroCountChangesNothing) {
    uint8_t byte = 200;
    ArmAXorQ7(&byte, 0);
    EXPECT_EQ(byte, 200);
}

TEST(GreyToQ7, EveryByteIsConvertedExactlyOnce) {
    for (const size_t n : Lengths()) {
        Random random(n);
        std::vector<uint8_t> data(n);
        random.Fill(data.data(), n);
        std::vector<uint8_t> expected = data;
        orvo_reference::GreyToQ7(expected.data(), static_cast<uint32_t>(n));
        for (const auto place : kBothPlaces) {
            GuardedCopy<uint8_t> buffer(data, place);
            ArmAXorQ7(buffer.data(), static_cast<int32_t>(n));
            ASSERT_EQ(buffer.values(), expected) << n;
        }
    }
}

TEST(GreyToQ7, NeedsNoAlignment) {
    for (size_t offset = 1; offset < 16; ++offset) {
        std::vector<uint8_t> data(offset + 61 + 16, 3);
        ArmAXorQ7(&data[offset], 61);
        for (size_t i = 0; i < data.size(); ++i) {
            EXPECT_EQ(data[i], i >= offset && i < offset + 61 ? 131 : 3) << offset << ' ' << i;
        }
    }
}

// ---- Rectifier

TEST(Rectifier, MatchesReferenceForEveryLength) {
    for (const size_t n : Lengths()) {
        Random random(n);
        const Q7 src = RandomQ7(random, n);
        Q7 expected(n);
        orvo_reference::Rectify(src.data(), expected.data(), static_cast<uint32_t>(n));
        for (const auto place : kBothPlaces) {
            GuardedInput<int8_t> input(src, place);
            GuardedCopy<int8_t> dst(Q7(n, 77), place);
            ArmAReluChwQ7(input.data(), dst.data(), static_cast<uint32_t>(n));
            ASSERT_EQ(dst.values(), expected) << n;
        }
    }
}

TEST(Rectifier, MatchesReferenceOnTheNetworksSizesInPlace) {
    for (const uint32_t n : {73728u, 147456u, 36864u, 18432u, 9216u, 4608u}) {
        Random random(n);
        const Q7 src = RandomQ7(random, n);
        Q7 expected(n);
        orvo_reference::Rectify(src.data(), expected.data(), n);
        GuardedCopy<int8_t> data(src, GuardedBuffer::kAtEnd);
        ArmAReluChwQ7(data.data(), data.data(), n);
        ASSERT_EQ(data.values(), expected) << n;
    }
}

TEST(Rectifier, WorksInPlace) {
    Q7 data = {-128, -1, 0, 1, 127};
    ArmAReluChwQ7(data.data(), data.data(), 5);
    EXPECT_EQ(data, (Q7{0, 0, 0, 1, 127}));
}

TEST(Rectifier, ZeroCountWritesNothing) {
    const int8_t src = -3;
    int8_t dst = 77;
    ArmAReluChwQ7(&src, &dst, 0);
    EXPECT_EQ(dst, 77);
}

TEST(Rectifier, NeedsNoAlignment) {
    for (size_t offset = 1; offset < 16; ++offset) {
        Q7 src(offset + 61, -5);
        Q7 dst(offset + 61 + 16, 77);
        ArmAReluChwQ7(&src[offset], &dst[offset], 61);
        for (size_t i = 0; i < dst.size(); ++i) {
            EXPECT_EQ(dst[i], i >= offset && i < offset + 61 ? 0 : 77) << offset << ' ' << i;
        }
    }
}

// ---- Residual addition

struct Addition {
    uint16_t in1Shift;
    uint16_t in2Shift;
    uint16_t outShift;
    uint16_t size; // rows and columns
    uint16_t outChannels;
    uint16_t in2Channels;
};

struct Operands {
    Q7 in1;
    Q7 in2;
};

Operands RandomOperands(uint64_t seed, const Addition& a) {
    Random random(seed);
    const size_t plane = size_t{a.size} * a.size;
    return {RandomQ7(random, plane * a.outChannels), RandomQ7(random, plane * a.in2Channels)};
}

Q7 Expected(const Addition& a, const Operands& o) {
    Q7 dst(o.in1.size());
    orvo_reference::ZeroPadPlus(o.in1.data(), o.in2.data(), dst.data(), a.in1Shift, a.in2Shift,
                                a.outShift, a.size, a.size, a.outChannels, a.in2Channels);
    return dst;
}

Q7 Computed(const Addition& a, const Operands& o, GuardedBuffer::Place place) {
    GuardedInput<int8_t> in1(o.in1, place);
    GuardedInput<int8_t> in2(o.in2, place);
    GuardedCopy<int8_t> dst(Q7(o.in1.size(), 77), place);
    ArmAZpadPlusChwQ7(in1.data(), in2.data(), dst.data(), a.in1Shift, a.in2Shift, a.outShift,
                      a.size, a.size, a.outChannels, a.in2Channels, nullptr);
    return dst.values();
}

void ExpectMatch(const Addition& a, const Operands& o) {
    SCOPED_TRACE(testing::Message()
                 << "shifts " << a.in1Shift << ", " << a.in2Shift << ", " << a.outShift << "; "
                 << a.size << " x " << a.size << "; " << a.outChannels << ", " << a.in2Channels);
    const Q7 expected = Expected(a, o);
    for (const auto place : kBothPlaces) {
        ASSERT_EQ(Computed(a, o, place), expected);
    }
}

// A plane of `plane` equal values.
Q7 Sums(int8_t a, int8_t b, uint16_t outShift, uint16_t plane = 11) {
    const Q7 in1(plane, a);
    const Q7 in2(plane, b);
    Q7 dst(plane, 77);
    ArmAZpadPlusChwQ7(in1.data(), in2.data(), dst.data(), 0, 0, outShift, 1, plane, 1, 1, nullptr);
    return dst;
}

TEST(ZeroPadPlus, MatchesReferenceOnTheNetworksShapes) {
    const Addition additions[] = {
        // The alignment network's: the shortcut lacks four channels.
        {1, 0, 1, 24, 36, 32},
        {0, 1, 1, 24, 40, 36},
        {0, 1, 0, 24, 44, 40},
        {0, 0, 0, 12, 48, 44},
        {1, 0, 1, 12, 52, 48},
        {0, 0, 0, 12, 56, 52},
        {0, 0, 0, 6, 60, 56},
        {0, 0, 1, 6, 64, 60},
        {0, 1, 1, 6, 68, 64},
        // The recognition network's.
        {1, 0, 1, 24, 32, 32},
        {1, 0, 1, 12, 64, 64},
        {0, 0, 0, 12, 64, 64},
        {0, 0, 1, 12, 64, 64},
        {1, 0, 1, 6, 64, 64},
        {0, 0, 1, 6, 64, 64},
    };
    uint64_t seed = 0;
    for (const Addition& a : additions) {
        ExpectMatch(a, RandomOperands(++seed, a));
    }
}

TEST(ZeroPadPlus, MatchesReferenceForEveryTailAndShift) {
    uint64_t seed = 100;
    for (uint16_t size = 1; size <= 9; ++size) {
        for (uint16_t in1Shift = 0; in1Shift <= 8; ++in1Shift) {
            const auto in2Shift = static_cast<uint16_t>((in1Shift * 5 + size) % 9);
            for (uint16_t outShift = 0; outShift <= 31; outShift += 1 + outShift / 8) {
                const Addition a{in1Shift, in2Shift, outShift, size, 3, 2};
                ExpectMatch(a, RandomOperands(++seed, a));
            }
        }
    }
    for (uint16_t channels = 1; channels <= 17; ++channels) {
        const Addition a{1, 2, 2, 5, channels, static_cast<uint16_t>(seed % (channels + 1u))};
        ExpectMatch(a, RandomOperands(++seed, a));
    }
}

// A plane of each length, with a shortcut and without, under shifts that paths take in ways of their own.
TEST(ZeroPadPlus, MatchesReferenceForEveryLength) {
    constexpr uint16_t kShifts[][3] = {{0, 0, 0}, {1, 0, 1}, {2, 3, 4}};
    Random random(300);
    for (uint16_t length = 1; length <= 70; ++length) {
        for (const auto& [shift1, shift2, shiftOut] : kShifts) {
            for (const uint16_t in2Channels : {0, 1}) {
                const Q7 values1 = RandomQ7(random, length);
                const Q7 values2 = RandomQ7(random, size_t{length} * in2Channels);
                Q7 expected(length);
                orvo_reference::ZeroPadPlus(values1.data(), values2.data(), expected.data(), shift1,
                                            shift2, shiftOut, 1, length, 1, in2Channels);
                for (const auto place : kBothPlaces) {
                    GuardedInput<int8_t> in1(values1, place);
                    GuardedInput<int8_t> in2(values2, place);
                    GuardedCopy<int8_t> dst(Q7(length, 77), place);
                    ArmAZpadPlusChwQ7(in1.data(), in2.data(), dst.data(), shift1, shift2, shiftOut,
                                      1, length, 1, in2Channels, nullptr);
                    ASSERT_EQ(dst.values(), expected) << length << " values, shifts " << shift1
                                                      << ", " << shift2 << ", " << shiftOut;
                }
            }
        }
    }
}

TEST(ZeroPadPlus, EveryPairOfValuesUnderTheNetworksShifts) {
    Operands every;
    for (int a = -128; a <= 127; ++a) {
        for (int b = -128; b <= 127; ++b) {
            every.in1.push_back(static_cast<int8_t>(a));
            every.in2.push_back(static_cast<int8_t>(b));
        }
    }
    for (uint16_t shifts = 0; shifts < 8; ++shifts) {
        ExpectMatch({static_cast<uint16_t>(shifts & 1), static_cast<uint16_t>(shifts >> 1 & 1),
                     static_cast<uint16_t>(shifts >> 2), 256, 1, 1},
                    every);
    }
}

TEST(ZeroPadPlus, PlaneOfSevenBySevenIsComplete) {
    const Addition a{1, 0, 1, 7, 5, 3};
    ExpectMatch(a, RandomOperands(1, a));
}

TEST(ZeroPadPlus, RoundsHalfUp) {
    EXPECT_EQ(Sums(127, 127, 1), Q7(11, 127));
    EXPECT_EQ(Sums(-128, -128, 1), Q7(11, -128));
    EXPECT_EQ(Sums(1, 0, 1), Q7(11, 1));
    EXPECT_EQ(Sums(-1, 0, 1), Q7(11, 0));
}

TEST(ZeroPadPlus, OutShiftZeroOnlySaturates) {
    EXPECT_EQ(Sums(100, 100, 0), Q7(11, 127));
    EXPECT_EQ(Sums(-100, -100, 0), Q7(11, -128));
    EXPECT_EQ(Sums(100, -100, 0), Q7(11, 0));
}

TEST(ZeroPadPlus, CompleteShortcutLeavesNoPadding) {
    const Addition a{1, 0, 1, 6, 4, 4};
    ExpectMatch(a, RandomOperands(2, a));
}

TEST(ZeroPadPlus, MissingShortcutCountsAsZero) {
    const Addition a{1, 3, 2, 6, 4, 0};
    ExpectMatch(a, RandomOperands(3, a));
    const Q7 in1 = {3, -3, 100, -100};
    Q7 dst(4);
    ArmAZpadPlusChwQ7(in1.data(), nullptr, dst.data(), 1, 0, 0, 2, 2, 1, 0, nullptr);
    EXPECT_EQ(dst, (Q7{6, -6, 127, -128}));
}

TEST(ZeroPadPlus, WorksInPlaceOnEitherInput) {
    const Addition a{1, 0, 1, 7, 5, 5};
    const Operands o = RandomOperands(4, a);
    const Q7 expected = Expected(a, o);
    Q7 first = o.in1;
    ArmAZpadPlusChwQ7(first.data(), o.in2.data(), first.data(), 1, 0, 1, 7, 7, 5, 5, nullptr);
    EXPECT_EQ(first, expected);
    Q7 second = o.in2;
    ArmAZpadPlusChwQ7(o.in1.data(), second.data(), second.data(), 1, 0, 1, 7, 7, 5, 5, nullptr);
    EXPECT_EQ(second, expected);
}

TEST(ZeroPadPlus, WorksInPlaceOnAShortcutWithFewerChannels) {
    const Addition a{1, 0, 1, 7, 5, 3};
    const Operands o = RandomOperands(5, a);
    Q7 buffer = o.in2;
    buffer.resize(o.in1.size(), 99);
    ArmAZpadPlusChwQ7(o.in1.data(), buffer.data(), buffer.data(), 1, 0, 1, 7, 7, 5, 3, nullptr);
    EXPECT_EQ(buffer, Expected(a, o));
}

// Beyond 8, full blocks of 8 values wrap at 16 bits and the values after them at 32.
TEST(ZeroPadPlus, InputShiftsAboveEightWrapInFullBlocksOnly) {
    const Q7 in1(11, 2);
    const Q7 in2(11, 0);
    Q7 dst(11);
    ArmAZpadPlusChwQ7(in1.data(), in2.data(), dst.data(), 14, 0, 12, 1, 11, 1, 1, nullptr);
    EXPECT_EQ(dst, (Q7{-8, -8, -8, -8, -8, -8, -8, -8, 8, 8, 8}));
    uint64_t seed = 200;
    for (uint16_t shift = 9; shift <= 24; ++shift) {
        for (uint16_t size = 2; size <= 9; ++size) {
            for (const uint16_t outShift : {0, 4, 9, 14, 20}) {
                const Addition first{shift, 3, outShift, size, 3, 2};
                ExpectMatch(first, RandomOperands(++seed, first));
                const Addition second{2, shift, outShift, size, 3, 2};
                ExpectMatch(second, RandomOperands(++seed, second));
            }
        }
    }
}

// Nothing is left of what is shifted further than it is wide, and of half a step above 32 bits.
TEST(ZeroPadPlus, ShiftsBeyondTheWidthLeaveNothing) {
    const Q7 in1(9, 5);
    const Q7 in2(9, 7);
    for (const uint16_t shift : {31, 32, 33}) {
        Q7 dst(9);
        ArmAZpadPlusChwQ7(in1.data(), in2.data(), dst.data(), shift, 0, 0, 1, 9, 1, 1, nullptr);
        const int8_t last = shift < 32 ? -128 : 7; // 5 << 31 is the smallest number
        EXPECT_EQ(dst, (Q7{7, 7, 7, 7, 7, 7, 7, 7, last})) << shift;
    }
    EXPECT_EQ(Sums(5, 0, 32), Q7(11, -1)); // half a step wraps to the smallest number
    EXPECT_EQ(Sums(5, 0, 33), Q7(11, 0));
    EXPECT_EQ(Sums(-5, 0, 33), Q7(11, -1));
}

TEST(ZeroPadPlus, ExtremesAreExact) {
    for (const int8_t a : {-128, 127}) {
        for (const int8_t b : {-128, 127}) {
            for (uint16_t shift = 0; shift <= 8; ++shift) {
                for (uint16_t outShift = 0; outShift <= 16; ++outShift) {
                    ExpectMatch({shift, 8, outShift, 5, 2, 1}, {Q7(50, a), Q7(25, b)});
                }
            }
        }
    }
}

TEST(ZeroPadPlus, NoPlanesWriteNothing) {
    const int8_t in = 5;
    int8_t dst = 77;
    ArmAZpadPlusChwQ7(&in, &in, &dst, 0, 0, 0, 1, 1, 0, 0, nullptr);
    ArmAZpadPlusChwQ7(&in, &in, &dst, 0, 0, 0, 0, 1, 1, 1, nullptr);
    ArmAZpadPlusChwQ7(&in, &in, &dst, 0, 0, 0, 1, 0, 1, 1, nullptr);
    EXPECT_EQ(dst, 77);
}

// 300 x 300 values: the plane size does not fit 16 bits.
TEST(ZeroPadPlus, PlanesBeyond16BitsAreComplete) {
    const Addition a{1, 0, 1, 300, 2, 1};
    ExpectMatch(a, RandomOperands(6, a));
}

TEST(ZeroPadPlus, NeedsNoAlignmentAndIgnoresTheScratch) {
    const Addition a{0, 1, 1, 5, 3, 2};
    const Operands o = RandomOperands(7, a);
    const Q7 expected = Expected(a, o);
    int8_t scratch = 9;
    for (size_t offset = 1; offset < 4; ++offset) {
        Q7 in1(offset);
        Q7 in2(offset);
        in1.insert(in1.end(), o.in1.begin(), o.in1.end());
        in2.insert(in2.end(), o.in2.begin(), o.in2.end());
        Q7 dst(expected.size() + offset);
        ArmAZpadPlusChwQ7(&in1[offset], &in2[offset], &dst[offset], 0, 1, 1, 5, 5, 3, 2, &scratch);
        EXPECT_EQ(Q7(dst.begin() + static_cast<ptrdiff_t>(offset), dst.end()), expected);
    }
    EXPECT_EQ(scratch, 9);
}

// ---- Unit length

// Emscripten's library has no std::bit_cast.
uint32_t Bits(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

std::vector<uint32_t> Bits(const std::vector<float>& values) {
    std::vector<uint32_t> bits;
    for (const float value : values) {
        bits.push_back(Bits(value));
    }
    return bits;
}

std::vector<float> UnitLength(const Q7& src, GuardedBuffer::Place place) {
    GuardedInput<int8_t> input(src, place);
    GuardedCopy<float> dst(std::vector<float>(src.size(), 77.0f), place);
    ArmAL2Norm(input.data(), static_cast<int32_t>(src.size()), dst.data());
    return dst.values();
}

TEST(UnitLength, ThreeFourGivesPointSixPointEight) {
    const auto got = UnitLength({3, 4}, GuardedBuffer::kAtEnd);
    EXPECT_FLOAT_EQ(got[0], 0.6f);
    EXPECT_FLOAT_EQ(got[1], 0.8f);
}

TEST(UnitLength, MatchesReferenceBitForBit) {
    for (size_t n = 1; n <= 130; ++n) {
        for (uint64_t round = 0; round < 5; ++round) {
            Random random(n * 10 + round);
            const Q7 src = RandomQ7(random, n);
            std::vector<float> expected(n);
            orvo_reference::UnitLength(src.data(), static_cast<int32_t>(n), expected.data());
            if (std::isnan(expected[0])) {
                continue; // a short vector of zeros; the bits of a not-a-number are not compared
            }
            for (const auto place : kBothPlaces) {
                ASSERT_EQ(Bits(UnitLength(src, place)), Bits(expected)) << n << ' ' << round;
            }
        }
    }
}

TEST(UnitLength, FeatureHasUnitLength) {
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        Random random(seed);
        double squares = 0;
        for (const float value : UnitLength(RandomQ7(random, 128), GuardedBuffer::kAtEnd)) {
            squares += static_cast<double>(value) * static_cast<double>(value);
        }
        EXPECT_NEAR(squares, 1.0, 1e-6);
    }
}

TEST(UnitLength, ExtremesAreExact) {
    for (const int8_t value : {-128, 127, 1, -1}) {
        const Q7 src(128, value);
        std::vector<float> expected(128);
        orvo_reference::UnitLength(src.data(), 128, expected.data());
        EXPECT_EQ(Bits(UnitLength(src, GuardedBuffer::kAtEnd)), Bits(expected));
    }
}

TEST(UnitLength, AllZeroVectorGivesQuietNotANumberEverywhere) {
    for (const float value : UnitLength(Q7(128, 0), GuardedBuffer::kAtEnd)) {
        EXPECT_TRUE(std::isnan(value));
        EXPECT_NE(Bits(value) & 0x00400000u, 0u);
    }
}

TEST(UnitLength, ZeroCountWritesNothing) {
    const int8_t src = 3;
    float dst = 77.0f;
    ArmAL2Norm(&src, 0, &dst);
    EXPECT_EQ(dst, 77.0f);
}

TEST(UnitLength, NeedsNoAlignmentOfItsInput) {
    Random random(12);
    const Q7 src = RandomQ7(random, 128 + 3);
    for (size_t offset = 1; offset < 4; ++offset) {
        std::vector<float> expected(128);
        std::vector<float> got(128);
        orvo_reference::UnitLength(&src[offset], 128, expected.data());
        ArmAL2Norm(&src[offset], 128, got.data());
        EXPECT_EQ(Bits(got), Bits(expected));
    }
}

// ---- Rescaling

Q7 Rescaled(Q7 data, int32_t shift) {
    ArmARescaleQ7(data.data(), static_cast<int32_t>(data.size()), shift);
    return data;
}

TEST(Rescale, RightShiftRoundsHalfUp) {
    EXPECT_EQ(Rescaled({3, -3, 127, -128}, 1), (Q7{2, -1, 64, -64}));
}

TEST(Rescale, LeftShiftWraps) { EXPECT_EQ(Rescaled({64, -65, 100}, -1), (Q7{-128, 126, -56})); }

TEST(Rescale, ShiftZeroChangesNothing) {
    Random random(1);
    const Q7 data = RandomQ7(random, 100);
    EXPECT_EQ(Rescaled(data, 0), data);
}

TEST(Rescale, NothingHappensBelowOneValue) {
    int8_t value = 100;
    for (const int32_t count : {0, -1, INT32_MIN}) {
        ArmARescaleQ7(&value, count, 1);
        ArmARescaleQ7(&value, count, -1);
    }
    EXPECT_EQ(value, 100);
}

TEST(Rescale, EveryValueByEveryShift) {
    Q7 all(256);
    for (size_t i = 0; i < 256; ++i) {
        all[i] = static_cast<int8_t>(i);
    }
    for (int32_t shift = -31; shift <= 31; ++shift) {
        Q7 expected = all;
        orvo_reference::Rescale(expected.data(), 256, shift);
        EXPECT_EQ(Rescaled(all, shift), expected) << shift;
    }
}

TEST(Rescale, EveryValueIsRescaledExactlyOnce) {
    for (const size_t n : Lengths()) {
        Random random(n);
        const Q7 data = RandomQ7(random, n);
        for (const int32_t shift : {-2, 3}) {
            Q7 expected = data;
            orvo_reference::Rescale(expected.data(), static_cast<int32_t>(n), shift);
            for (const auto place : kBothPlaces) {
                GuardedCopy<int8_t> buffer(data, place);
                ArmARescaleQ7(buffer.data(), static_cast<int32_t>(n), shift);
                ASSERT_EQ(buffer.values(), expected) << n << ' ' << shift;
            }
        }
    }
}

TEST(Rescale, NeedsNoAlignment) {
    for (size_t offset = 1; offset < 16; ++offset) {
        for (const size_t n : {1u, 5u, 15u, 16u, 17u, 33u, 61u}) {
            Q7 data(offset + n + 16, 7);
            ArmARescaleQ7(&data[offset], static_cast<int32_t>(n), 1);
            for (size_t i = 0; i < data.size(); ++i) {
                ASSERT_EQ(data[i], i >= offset && i < offset + n ? 4 : 7) << offset << ' ' << i;
            }
        }
    }
}

} // namespace
