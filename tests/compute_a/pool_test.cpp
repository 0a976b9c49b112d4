// SPDX-License-Identifier: MIT
// Pooling and sampling. Links support/bounded_faults.cpp, to see and to fail the padding's copies.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "compute_a/guarded_copy.h"
#include "orvo/q7_kernels.h"
#include "reference/reference_small.h"
#include "support/bounded_faults.h"
#include "support/error_line.h"
#include "support/stderr_capture.h"

namespace {

using orvo_test::BoundedCall;
using orvo_test::GuardedBuffer;
using orvo_test::GuardedCopy;
using orvo_test::GuardedInput;
using orvo_test::kBothPlaces;
using orvo_test::Random;
using orvo_test::RandomQ7;

using Q7 = std::vector<int8_t>;

Q7 RandomTensor(uint64_t seed, uint32_t width, uint32_t height, uint32_t channels) {
    Random random(seed);
    return RandomQ7(random, size_t{width} * height * channels);
}

// Around the lengths of vectors, one and two of them.
constexpr uint32_t kWidths[] = {1,  2,  3,  8,  9,  16, 17, 31,  32,  33,  34,  35,  47,
                                48, 49, 63, 64, 65, 66, 95, 127, 128, 129, 130, 131, 200};

// ---- 2 x 2 maximum, stride 2

size_t PooledSize(uint32_t width, uint32_t height, uint32_t channels, uint32_t pad) {
    return size_t{channels} * ((width + 2 * pad) / 2) * ((height + 2 * pad) / 2);
}

size_t PaddedSize(uint32_t width, uint32_t height, uint32_t channels, uint32_t pad) {
    return pad == 0 ? 0 : size_t{channels} * (width + 2 * pad) * (height + 2 * pad);
}

Q7 Pooled(const Q7& src, uint32_t width, uint32_t height, uint16_t channels, uint32_t pad,
          GuardedBuffer::Place place = GuardedBuffer::kAtEnd) {
    GuardedInput<int8_t> input(src, place);
    GuardedCopy<int8_t> dst(Q7(PooledSize(width, height, channels, pad), 77), place);
    GuardedBuffer scratch(PaddedSize(width, height, channels, pad), place);
    ArmAMaxPool2x2S2ChwQ7(input.data(), dst.data(), width, height, channels,
                          static_cast<int32_t>(pad), scratch.q7());
    return dst.values();
}

void ExpectPooledMatch(uint64_t seed, uint32_t width, uint32_t height, uint16_t channels,
                       uint32_t pad) {
    SCOPED_TRACE(testing::Message()
                 << width << " x " << height << " x " << channels << " pad " << pad);
    const Q7 src = RandomTensor(seed, width, height, channels);
    Q7 expected(PooledSize(width, height, channels, pad));
    orvo_reference::MaxPool2x2Stride2(src.data(), expected.data(), width, height, channels, pad);
    for (const auto place : kBothPlaces) {
        ASSERT_EQ(Pooled(src, width, height, channels, pad, place), expected);
    }
}

TEST(MaxPoolStride2, MatchesReferenceOnTheNetworksShapes) {
    for (uint64_t seed = 1; seed <= 5; ++seed) {
        ExpectPooledMatch(seed, 24, 24, 44, 0);
        ExpectPooledMatch(seed, 12, 12, 56, 0);
    }
}

TEST(MaxPoolStride2, MatchesReferenceForEveryTail) {
    uint64_t seed = 100;
    for (uint32_t width = 1; width <= 37; ++width) {
        for (uint32_t height = 1; height <= 7; ++height) {
            for (uint32_t pad = 0; pad <= 3; ++pad) {
                ++seed;
                ExpectPooledMatch(seed, width, height, static_cast<uint16_t>(1 + seed % 5), pad);
            }
        }
    }
    for (uint16_t channels = 1; channels <= 17; ++channels) {
        ExpectPooledMatch(++seed, 9, 9, channels, channels % 2);
    }
}

TEST(MaxPoolStride2, MatchesReferenceOnWideAndOnManyPlanes) {
    uint64_t seed = 1000;
    for (const uint32_t width : kWidths) {
        for (const uint32_t height : {2u, 5u}) {
            for (const uint16_t channels : {1, 2, 30}) {
                ExpectPooledMatch(++seed, width, height, channels, 0);
            }
        }
    }
}

TEST(MaxPoolStride2, LastOddRowAndColumnAreIgnored) {
    Q7 src(25, 127);
    for (size_t y = 0; y < 4; ++y) {
        for (size_t x = 0; x < 4; ++x) {
            src[y * 5 + x] = static_cast<int8_t>(10 * y + x);
        }
    }
    EXPECT_EQ(Pooled(src, 5, 5, 1, 0), (Q7{11, 13, 31, 33}));
}

TEST(MaxPoolStride2, PaddingNeverWins) {
    Q7 src(16);
    for (size_t i = 0; i < 16; ++i) {
        src[i] = static_cast<int8_t>(i) - 100;
    }
    // Corners see one input value and three of padding.
    EXPECT_EQ(Pooled(src, 4, 4, 1, 1), (Q7{-100, -98, -97, -92, -90, -89, -88, -86, -85}));
}

TEST(MaxPoolStride2, PaddedPlaneOfMinus128StaysMinus128) {
    EXPECT_EQ(Pooled(Q7(2 * 25, -128), 5, 5, 2, 1), Q7(2 * 9, -128));
}

TEST(MaxPoolStride2, EmptyPlaneWithPaddingGivesMinus128) {
    EXPECT_EQ(Pooled({}, 0, 0, 2, 1), Q7(2, -128));
}

TEST(MaxPoolStride2, ScratchIsUntouchedWithoutPadding) {
    const Q7 src = RandomTensor(3, 8, 8, 3);
    Q7 dst(48);
    ArmAMaxPool2x2S2ChwQ7(src.data(), dst.data(), 8, 8, 3, 0, nullptr);
    Q7 expected(48);
    orvo_reference::MaxPool2x2Stride2(src.data(), expected.data(), 8, 8, 3, 0);
    EXPECT_EQ(dst, expected);
}

TEST(MaxPoolStride2, NegativePaddingWritesNothing) {
    const Q7 src = RandomTensor(4, 8, 8, 1);
    for (const int32_t pad : {-1, -4, -5, INT32_MIN}) {
        Q7 dst(16, 77);
        Q7 scratch(64, 55);
        ArmAMaxPool2x2S2ChwQ7(src.data(), dst.data(), 8, 8, 1, pad, scratch.data());
        EXPECT_EQ(dst, Q7(16, 77)) << pad;
        EXPECT_EQ(scratch, Q7(64, 55)) << pad;
    }
}

TEST(MaxPoolStride2, NeedsNoAlignment) {
    const Q7 src = RandomTensor(5, 35, 4, 2);
    Q7 expected(PooledSize(35, 4, 2, 1));
    orvo_reference::MaxPool2x2Stride2(src.data(), expected.data(), 35, 4, 2, 1);
    for (size_t offset = 1; offset < 4; ++offset) {
        Q7 input(offset);
        input.insert(input.end(), src.begin(), src.end());
        Q7 dst(expected.size() + offset);
        Q7 scratch(PaddedSize(35, 4, 2, 1) + offset);
        ArmAMaxPool2x2S2ChwQ7(&input[offset], &dst[offset], 35, 4, 2, 1, &scratch[offset]);
        EXPECT_EQ(Q7(dst.begin() + static_cast<ptrdiff_t>(offset), dst.end()), expected);
    }
}

// What the padding must do, in order: kind, place in the scratch, bytes.
struct PaddingStep {
    bool isCopy;
    size_t at;
    size_t count;
};

std::vector<PaddingStep> PaddingSteps(uint32_t width, uint32_t height, uint32_t channels,
                                      uint32_t pad) {
    std::vector<PaddingStep> steps;
    size_t at = 0;
    const auto add = [&](bool isCopy, size_t count) {
        steps.push_back({isCopy, at, count});
        at += count;
    };
    for (uint32_t c = 0; c < channels; ++c) {
        for (uint32_t y = 0; y < height + 2 * pad; ++y) {
            if (y < pad || y >= pad + height) {
                add(false, width + 2 * pad);
                continue;
            }
            add(false, pad);
            add(true, width);
            add(false, pad);
        }
    }
    return steps;
}

TEST(MaxPoolStride2, PaddingIsBoundedByTheSpaceLeftInTheScratch) {
    const Q7 src = RandomTensor(6, 5, 4, 3);
    Q7 dst(PooledSize(5, 4, 3, 2));
    Q7 scratch(PaddedSize(5, 4, 3, 2));
    orvo_test::RecordBoundedCalls();
    ArmAMaxPool2x2S2ChwQ7(src.data(), dst.data(), 5, 4, 3, 2, scratch.data());
    const std::vector<BoundedCall> calls = orvo_test::BoundedCalls();
    orvo_test::StopBoundedFaults();
    const std::vector<PaddingStep> steps = PaddingSteps(5, 4, 3, 2);
    ASSERT_EQ(calls.size(), steps.size());
    for (size_t i = 0; i < steps.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(calls[i].isCopy, steps[i].isCopy);
        EXPECT_EQ(calls[i].dst, scratch.data() + steps[i].at);
        EXPECT_EQ(calls[i].dstSize, scratch.size() - steps[i].at);
        EXPECT_EQ(calls[i].count, steps[i].count);
        EXPECT_EQ(calls[i].result, 0);
        if (!calls[i].isCopy) {
            EXPECT_EQ(static_cast<uint8_t>(calls[i].value), 0x80);
        }
    }
}

// Every fill and copy in turn fails: its own message with the code, then the end of the call.
TEST(MaxPoolStride2, FailedPaddingIsReportedAndEndsTheCall) {
    const Q7 src = RandomTensor(7, 3, 2, 2);
    const std::vector<PaddingStep> steps = PaddingSteps(3, 2, 2, 1);
    for (size_t i = 0; i < steps.size(); ++i) {
        SCOPED_TRACE(i);
        Q7 dst(PooledSize(3, 2, 2, 1), 77);
        Q7 scratch(PaddedSize(3, 2, 2, 1));
        const int code = 34 + static_cast<int>(i);
        std::string text;
        {
            orvo_test::StderrCapture capture;
            orvo_test::RecordBoundedCalls();
            orvo_test::FailBoundedCall(static_cast<int>(i) + 1, code);
            ArmAMaxPool2x2S2ChwQ7(src.data(), dst.data(), 3, 2, 2, 1, scratch.data());
            text = capture.text();
        }
        EXPECT_EQ(orvo_test::BoundedCalls().size(), i + 1);
        orvo_test::StopBoundedFaults();
        const std::string name = steps[i].isCopy ? "memcpy_s" : "memset_s";
        EXPECT_TRUE(orvo_test::IsErrorLine(text, "../compute_a/arma_pool",
                                           name + " dst failed: " + std::to_string(code) + "\n"))
            << text;
        EXPECT_EQ(dst, Q7(dst.size(), 77));
    }
}

// ---- 2 x 2 maximum, stride 1

void ExpectStride1Match(uint64_t seed, uint32_t width, uint32_t height, uint32_t channels) {
    SCOPED_TRACE(testing::Message() << width << " x " << height << " x " << channels);
    const Q7 src = RandomTensor(seed, width, height, channels);
    const size_t pooledSize =
        width == 0 || height == 0 ? 0 : size_t{channels} * (width - 1) * (height - 1);
    Q7 expected(pooledSize);
    orvo_reference::MaxPool2x2Stride1(src.data(), width, height, channels, expected.data());
    Q7 expectedSrc = src;
    orvo_reference::RightNeighbourMaxima(expectedSrc.data(), width, height * channels);
    for (const auto place : kBothPlaces) {
        GuardedCopy<int8_t> input(src, place);
        GuardedCopy<int8_t> dst(Q7(pooledSize, 77), place);
        ArmAMaxpoolK2x2S1x1ChwQ7(input.data(), width, height, channels, dst.data(), nullptr);
        ASSERT_EQ(dst.values(), expected);
        ASSERT_EQ(input.values(), expectedSrc);
    }
}

TEST(MaxPoolStride1, MatchesReferenceOnTheNetworksShapes) {
    ExpectStride1Match(1, 96, 96, 32);
    ExpectStride1Match(2, 48, 48, 64);
    ExpectStride1Match(3, 24, 24, 128);
    ExpectStride1Match(4, 12, 12, 256);
}

TEST(MaxPoolStride1, MatchesReferenceForEveryTail) {
    uint64_t seed = 100;
    for (uint32_t width = 1; width <= 37; ++width) {
        for (uint32_t height = 1; height <= 6; ++height) {
            ++seed;
            ExpectStride1Match(seed, width, height, 1 + seed % 4);
        }
    }
    for (uint32_t channels = 1; channels <= 17; ++channels) {
        ExpectStride1Match(++seed, 9, 5, channels);
    }
}

TEST(MaxPoolStride1, MatchesReferenceOnWideAndOnManyPlanes) {
    uint64_t seed = 1000;
    for (const uint32_t width : kWidths) {
        for (const uint32_t height : {1u, 2u, 5u}) {
            for (const uint32_t channels : {1u, 2u, 30u}) {
                ExpectStride1Match(++seed, width, height, channels);
            }
        }
    }
}

// So many planes that most of them are followed by a vector's worth of others.
TEST(MaxPoolStride1, MatchesReferenceOnManySmallPlanes) {
    uint64_t seed = 2000;
    for (uint32_t width = 2; width <= 33; ++width) {
        for (const uint32_t height : {1u, 2u, 3u, 4u, 5u, 6u, 8u, 12u, 14u, 32u}) {
            ExpectStride1Match(++seed, width, height, 41);
        }
    }
}

TEST(MaxPoolStride1, LeavesTheHorizontalMaximaInItsInput) {
    Q7 src = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    Q7 dst(4, 77);
    ArmAMaxpoolK2x2S1x1ChwQ7(src.data(), 3, 3, 1, dst.data(), nullptr);
    EXPECT_EQ(dst, (Q7{5, 6, 8, 9}));
    EXPECT_EQ(src, (Q7{2, 3, 3, 5, 6, 6, 8, 9, 9}));
}

TEST(MaxPoolStride1, EachValueMeetsItsNeighboursOldValue) {
    // Had the neighbour been pooled already, the 9 would spread along the row.
    Q7 src(40, 0);
    src[39] = 9;
    Q7 dst(1, 77);
    ArmAMaxpoolK2x2S1x1ChwQ7(src.data(), 40, 1, 1, dst.data(), nullptr);
    Q7 expected(40, 0);
    expected[38] = 9;
    expected[39] = 9;
    EXPECT_EQ(src, expected);
}

TEST(MaxPoolStride1, OneRowIsPooledInPlaceOnly) {
    Q7 src = {3, 1, 2, -5, 4, 0};
    int8_t dst = 77;
    ArmAMaxpoolK2x2S1x1ChwQ7(src.data(), 3, 1, 2, &dst, nullptr);
    EXPECT_EQ(src, (Q7{3, 2, 2, 4, 4, 0}));
    EXPECT_EQ(dst, 77);
}

TEST(MaxPoolStride1, NoChannelsOrNoRowsDoNothing) {
    Q7 src = {1, 2, 3, 4};
    int8_t dst = 77;
    ArmAMaxpoolK2x2S1x1ChwQ7(src.data(), 2, 2, 0, &dst, nullptr);
    ArmAMaxpoolK2x2S1x1ChwQ7(src.data(), 2, 0, 2, &dst, nullptr);
    ArmAMaxpoolK2x2S1x1ChwQ7(src.data(), 0, 2, 2, &dst, nullptr);
    EXPECT_EQ(src, (Q7{1, 2, 3, 4}));
    EXPECT_EQ(dst, 77);
}

TEST(MaxPoolStride1, NeedsNoAlignment) {
    for (size_t offset = 1; offset < 4; ++offset) {
        const Q7 src = RandomTensor(offset, 35, 3, 2);
        Q7 expected(2 * 34 * 2);
        orvo_reference::MaxPool2x2Stride1(src.data(), 35, 3, 2, expected.data());
        Q7 input(offset);
        input.insert(input.end(), src.begin(), src.end());
        Q7 dst(expected.size() + offset);
        ArmAMaxpoolK2x2S1x1ChwQ7(&input[offset], 35, 3, 2, &dst[offset], nullptr);
        EXPECT_EQ(Q7(dst.begin() + static_cast<ptrdiff_t>(offset), dst.end()), expected);
    }
}

// ---- Every second value of every second row

void ExpectDownsampleMatch(uint64_t seed, uint32_t width, uint32_t height, uint32_t channels) {
    SCOPED_TRACE(testing::Message() << width << " x " << height << " x " << channels);
    const Q7 src = RandomTensor(seed, width, height, channels);
    Q7 expected(size_t{channels} * ((width + 1) / 2) * ((height + 1) / 2));
    orvo_reference::Downsample(src.data(), width, height, channels, expected.data());
    for (const auto place : kBothPlaces) {
        GuardedInput<int8_t> input(src, place);
        GuardedCopy<int8_t> dst(Q7(expected.size(), 77), place);
        ArmADownsample(input.data(), width, static_cast<int32_t>(height), channels, dst.data(),
                       nullptr);
        ASSERT_EQ(dst.values(), expected);
    }
}

TEST(Downsample, MatchesReferenceOnTheNetworksShapes) {
    ExpectDownsampleMatch(1, 95, 95, 32);
    ExpectDownsampleMatch(2, 47, 47, 64);
    ExpectDownsampleMatch(3, 23, 23, 128);
    ExpectDownsampleMatch(4, 11, 11, 256);
}

TEST(Downsample, MatchesReferenceForEveryTail) {
    uint64_t seed = 100;
    for (uint32_t width = 1; width <= 37; ++width) {
        for (uint32_t height = 1; height <= 6; ++height) {
            ++seed;
            ExpectDownsampleMatch(seed, width, height, 1 + seed % 4);
        }
    }
    for (uint32_t channels = 1; channels <= 17; ++channels) {
        ExpectDownsampleMatch(++seed, 9, 5, channels);
    }
}

TEST(Downsample, MatchesReferenceOnWideAndOnManyPlanes) {
    uint64_t seed = 1000;
    for (const uint32_t width : kWidths) {
        for (const uint32_t height : {1u, 2u, 5u}) {
            for (const uint32_t channels : {1u, 2u, 30u}) {
                ExpectDownsampleMatch(++seed, width, height, channels);
            }
        }
    }
}

TEST(Downsample, FiveByThreeKeepsColumns024OfRows02) {
    const Q7 src = {0, 1, 2, 3, 4, 10, 11, 12, 13, 14, 20, 21, 22, 23, 24};
    Q7 dst(6, 77);
    ArmADownsample(src.data(), 5, 3, 1, dst.data(), nullptr);
    EXPECT_EQ(dst, (Q7{0, 2, 4, 20, 22, 24}));
}

TEST(Downsample, NoChannelsOrNoRowsDoNothing) {
    const Q7 src = {1, 2, 3, 4};
    int8_t dst = 77;
    ArmADownsample(src.data(), 2, 2, 0, &dst, nullptr);
    ArmADownsample(src.data(), 2, 0, 2, &dst, nullptr);
    ArmADownsample(src.data(), 2, -1, 2, &dst, nullptr);
    ArmADownsample(src.data(), 0, 2, 2, &dst, nullptr);
    EXPECT_EQ(dst, 77);
}

TEST(Downsample, NeedsNoAlignment) {
    for (size_t offset = 1; offset < 4; ++offset) {
        const Q7 src = RandomTensor(offset, 35, 3, 2);
        Q7 expected(2 * 18 * 2);
        orvo_reference::Downsample(src.data(), 35, 3, 2, expected.data());
        Q7 input(offset);
        input.insert(input.end(), src.begin(), src.end());
        Q7 dst(expected.size() + offset);
        ArmADownsample(&input[offset], 35, 3, 2, &dst[offset], nullptr);
        EXPECT_EQ(Q7(dst.begin() + static_cast<ptrdiff_t>(offset), dst.end()), expected);
    }
}

// ---- Global average

Q7 Averages(const Q7& src, uint32_t width, uint32_t height, uint32_t channels, uint16_t shift,
            GuardedBuffer::Place place = GuardedBuffer::kAtEnd) {
    GuardedInput<int8_t> input(src, place);
    GuardedCopy<int8_t> dst(Q7(channels, 77), place);
    ArmAGapQ7Chw(input.data(), width, height, channels, shift, nullptr, dst.data());
    return dst.values();
}

void ExpectAverageMatch(const Q7& src, uint32_t width, uint32_t height, uint32_t channels,
                        uint16_t shift) {
    SCOPED_TRACE(testing::Message()
                 << width << " x " << height << " x " << channels << " << " << shift);
    Q7 expected(channels);
    orvo_reference::GlobalAverage(src.data(), width, height, channels, shift, expected.data());
    for (const auto place : kBothPlaces) {
        ASSERT_EQ(Averages(src, width, height, channels, shift, place), expected);
    }
}

TEST(GlobalAverage, MatchesReferenceOnTheNetworksShape) {
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        ExpectAverageMatch(RandomTensor(seed, 6, 6, 68), 6, 6, 68, 3);
    }
}

TEST(GlobalAverage, MatchesReferenceForEveryTail) {
    uint64_t seed = 100;
    for (uint32_t plane = 1; plane <= 67; ++plane) {
        const uint32_t channels = 1 + plane % 17;
        ExpectAverageMatch(RandomTensor(++seed, plane, 1, channels), plane, 1, channels, 2);
        ExpectAverageMatch(RandomTensor(++seed, 3, plane, channels), 3, plane, channels, 4);
    }
}

TEST(GlobalAverage, RoundsHalfAwayFromZero) {
    EXPECT_EQ(Averages({1, 2, 2, 2}, 2, 2, 1, 0), Q7{2});
    EXPECT_EQ(Averages({-1, -2, -2, -2}, 2, 2, 1, 0), Q7{-2});
    EXPECT_EQ(Averages({1, 1, 0, 0}, 2, 2, 1, 0), Q7{1});
    EXPECT_EQ(Averages({-1, -1, 0, 0}, 2, 2, 1, 0), Q7{-1});
    EXPECT_EQ(Averages({1, 0, 0, 0}, 2, 2, 1, 0), Q7{0});
    EXPECT_EQ(Averages({-1, 0, 0, 0}, 2, 2, 1, 0), Q7{0});
}

TEST(GlobalAverage, ShiftedMeanSaturates) {
    EXPECT_EQ(Averages(Q7(4, 127), 2, 2, 1, 3), Q7{127});
    EXPECT_EQ(Averages(Q7(4, -128), 2, 2, 1, 3), Q7{-128});
}

TEST(GlobalAverage, ShiftCarriesFractionalBits) {
    EXPECT_EQ(Averages({1, 0, 0, 0}, 2, 2, 1, 3), Q7{2});
    EXPECT_EQ(Averages({-1, 0, 0, 0}, 2, 2, 1, 3), Q7{-2});
}

TEST(GlobalAverage, ShiftOf32AndMoreGivesZero) {
    for (const uint16_t shift : {32, 33, 64, 128, 255, 0x1FF}) {
        EXPECT_EQ(Averages(Q7{127}, 1, 1, 1, shift), Q7{0}) << shift;
        EXPECT_EQ(Averages(Q7(4, 127), 2, 2, 1, shift), Q7{0}) << shift;
        EXPECT_EQ(Averages(Q7(4, -128), 2, 2, 1, shift), Q7{0}) << shift;
    }
}

TEST(GlobalAverage, OnlyTheLowEightBitsOfTheShiftCount) {
    EXPECT_EQ(Averages(Q7(4, 5), 2, 2, 1, 0x100), Q7{5});
    EXPECT_EQ(Averages(Q7(4, 5), 2, 2, 1, 0xFF02), Q7{20});
}

TEST(GlobalAverage, ShiftedSumsWrapAt32Bits) {
    for (uint16_t shift = 16; shift < 32; ++shift) {
        for (uint64_t seed = 1; seed <= 4; ++seed) {
            ExpectAverageMatch(RandomTensor(seed, 5, 5, 9), 5, 5, 9, shift);
        }
        ExpectAverageMatch(Q7(16, 127), 2, 2, 4, shift);
        ExpectAverageMatch(Q7(16, -128), 2, 2, 4, shift);
    }
}

TEST(GlobalAverage, NoChannelsWriteNothing) {
    const int8_t src = 5;
    int8_t dst = 77;
    ArmAGapQ7Chw(&src, 1, 1, 0, 0, nullptr, &dst);
    EXPECT_EQ(dst, 77);
}

TEST(GlobalAverage, PlanesWithoutValuesLeaveTheOutputUnwritten) {
    const int8_t src = 5;
    Q7 dst(2, 77);
    ArmAGapQ7Chw(&src, 0, 3, 2, 0, nullptr, dst.data());
    ArmAGapQ7Chw(&src, 3, 0, 2, 0, nullptr, dst.data());
    EXPECT_EQ(dst, Q7(2, 77));
}

// Every kernel on planes of which there are none, or that hold nothing: there is not a byte that it
// may read or write.
void PoolNothing(uint32_t width, uint32_t height, uint16_t channels) {
    SCOPED_TRACE(testing::Message() << width << " x " << height << " x " << channels);
    for (const auto place : kBothPlaces) {
        GuardedBuffer src(0, place);
        GuardedBuffer dst(0, place);
        GuardedBuffer scratch(0, place);
        ArmAMaxpoolK2x2S1x1ChwQ7(src.q7(), width, height, channels, dst.q7(), scratch.q7());
        ArmAMaxPool2x2S2ChwQ7(src.q7(), dst.q7(), width, height, channels, 0, scratch.q7());
        ArmADownsample(src.q7(), width, static_cast<int32_t>(height), channels, dst.q7(),
                       scratch.q7());
        ArmAGapQ7Chw(src.q7(), width, height, channels, 3, scratch.q7(), dst.q7());
    }
}

TEST(PoolingKernels, NoChannelsTouchNothingAtAnyWidth) {
    for (uint32_t width = 1; width <= 130; ++width) {
        for (const uint32_t height : {1u, 2u, 3u, 8u, 130u}) {
            PoolNothing(width, height, 0);
            for (const auto place : kBothPlaces) {
                GuardedBuffer none(0, place);
                for (const int32_t pad : {1, 2}) {
                    ArmAMaxPool2x2S2ChwQ7(none.q7(), none.q7(), width, height, 0, pad, none.q7());
                }
            }
        }
    }
}

TEST(PoolingKernels, EmptyPlanesTouchNothing) {
    for (const uint16_t channels : {0, 1, 2, 33}) {
        for (uint32_t size = 0; size <= 130; ++size) {
            PoolNothing(size, 0, channels);
            PoolNothing(0, size, channels);
        }
    }
}

TEST(PoolingKernels, LeaveTheIgnoredScratchAlone) {
    int8_t scratch[4] = {1, 2, 3, 4};
    Q7 src = RandomTensor(1, 4, 4, 1);
    Q7 dst(16);
    ArmAMaxpoolK2x2S1x1ChwQ7(src.data(), 4, 4, 1, dst.data(), scratch);
    ArmADownsample(src.data(), 4, 4, 1, dst.data(), scratch);
    ArmAGapQ7Chw(src.data(), 4, 4, 1, 0, scratch, dst.data());
    ArmAMaxPool2x2S2ChwQ7(src.data(), dst.data(), 4, 4, 1, 0, scratch);
    EXPECT_EQ(Q7(scratch, scratch + 4), (Q7{1, 2, 3, 4}));
}

} // namespace
