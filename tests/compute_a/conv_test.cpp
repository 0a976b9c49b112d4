// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <stdexcept>
#include <string>
#include <vector>

#include "compute_a/chw_case.h"
#include "support/random.h"
#include "support/stderr_capture.h"

namespace {

using namespace orvo_test;

ConvShape Shape(int srcWidth, int srcHeight, int srcChannels, int dstChannels, int kernelSize,
                int pad, int stride) {
    ConvShape s;
    s.srcWidth = srcWidth;
    s.srcHeight = srcHeight;
    s.srcChannels = srcChannels;
    s.dstChannels = dstChannels;
    s.kernelSize = kernelSize;
    s.pad = pad;
    s.stride = stride;
    s.dstWidth = (srcWidth + 2 * pad - kernelSize) / stride + 1;
    s.dstHeight = (srcHeight + 2 * pad - kernelSize) / stride + 1;
    s.outShift = LivelyShift(orvo_reference::DotLength(s));
    return s;
}

::testing::AssertionResult Matches(const ConvShape& shape, uint64_t seed) {
    return MatchesReference(kGenericConv, shape, LivelyData(kGenericConv, shape, seed));
}

// Runs with packed weights that the test wrote out by itself.
std::vector<int8_t> RunPacked(const ConvShape& s, const std::vector<int8_t>& src,
                              const std::vector<int8_t>& packed, const std::vector<int32_t>& bias) {
    std::vector<int8_t> dst(orvo_reference::DstBytes(s));
    std::vector<int8_t> scratch(kGenericConv.scratchBytes(s));
    Call(arma_convolve_chw_q7, s, src.data(), packed.data(), bias.data(), dst.data(),
         scratch.data());
    return dst;
}

TEST(ConvPacking, GroupsOfFourSideBySideThenLeftoversAtTheGroupSpacing) {
    // Seven channels of two weights: channel o has the weights 10 * o + 1 and 10 * o + 2.
    std::vector<int8_t> natural;
    for (int o = 0; o < 7; ++o) {
        natural.push_back(static_cast<int8_t>(10 * o + 1));
        natural.push_back(static_cast<int8_t>(10 * o + 2));
    }
    const int8_t _ = -1;
    const std::vector<int8_t> expected = {1, 11, 21, 31, 2,  12, 22, 32, 41, 42, _, _,  _,
                                          _, _,  _,  51, 52, _,  _,  _,  _,  _,  _, 61, 62};
    std::vector<int8_t> packed(orvo_reference::PackedConvWeightsSize(7, 2, 1), _);
    orvo_reference::PackConvWeights(natural.data(), 7, 2, 1, packed.data(), packed.size());
    EXPECT_EQ(packed, expected);
}

TEST(ConvPacking, RefusesAnArrayThatIsTooSmall) {
    const std::vector<int8_t> natural(7 * 2);
    std::vector<int8_t> packed(25);
    EXPECT_THROW(
        orvo_reference::PackConvWeights(natural.data(), 7, 2, 1, packed.data(), packed.size()),
        std::length_error);
}

TEST(ConvLayers, AlignmentNetwork) {
    CheckLayers(kGenericConv, LayerKernel::kGeneric, kAlignLayers);
}

TEST(ConvLayers, RecognitionNetwork) {
    CheckLayers(kGenericConv, LayerKernel::kGeneric, kRecognitionLayers);
}

TEST(Conv, EveryTailOfOutputAndInputChannels) {
    for (int dstChannels = 1; dstChannels <= 17; ++dstChannels) {
        for (int srcChannels = 1; srcChannels <= 17; ++srcChannels) {
            EXPECT_TRUE(Matches(Shape(13, 1, srcChannels, dstChannels, 1, 0, 1), 1));
        }
    }
}

TEST(Conv, EveryTailOfPixels) {
    for (int pixels = 1; pixels <= 33; ++pixels) {
        for (const int srcChannels : {1, 3, 8, 16, 17}) {
            EXPECT_TRUE(Matches(Shape(pixels, 1, srcChannels, 7, 1, 0, 1), 2));
        }
        for (int dstChannels = 1; dstChannels <= 9; ++dstChannels) {
            EXPECT_TRUE(Matches(Shape(pixels, 1, 5, dstChannels, 1, 0, 1), 3));
        }
    }
}

TEST(Conv, EveryTailOfChannelsWithThreeByThreeKernels) {
    for (int channels = 1; channels <= 17; ++channels) {
        EXPECT_TRUE(Matches(Shape(5, 3, channels, 6, 3, 1, 1), 4));
        EXPECT_TRUE(Matches(Shape(4, 7, 3, channels, 3, 1, 1), 5));
    }
}

TEST(Conv, KernelSizesPadsAndStrides) {
    for (int kernelSize = 1; kernelSize <= 7; ++kernelSize) {
        for (int pad = 0; pad <= 4; ++pad) {
            for (int stride = 1; stride <= 4; ++stride) {
                EXPECT_TRUE(Matches(Shape(9, 7, 3, 6, kernelSize, pad, stride), 6));
            }
        }
    }
}

TEST(Conv, ThreeByThreeKernelsOverWholeVectorsOfPixels) {
    const int sizes[][4] = {{4, 144, 1, 16}, {8, 64, 2, 32},  {256, 2, 3, 16}, {128, 4, 4, 32},
                            {16, 12, 5, 32}, {12, 32, 5, 16}, {20, 16, 3, 32}, {96, 4, 3, 48}};
    for (const auto& [width, height, srcChannels, dstChannels] : sizes) {
        const ConvShape shape = Shape(width, height, srcChannels, dstChannels, 3, 1, 1);
        EXPECT_TRUE(Matches(shape, static_cast<uint64_t>(width)));
    }
    // And each of them a little beside that.
    const int others[][4] = {{4, 255, 1, 16}, {20, 20, 3, 32}, {12, 20, 5, 16}, {2, 512, 1, 16},
                             {66, 32, 2, 16}, {32, 8, 6, 16},  {16, 32, 2, 24}, {1, 512, 3, 16}};
    for (const auto& [width, height, srcChannels, dstChannels] : others) {
        const ConvShape shape = Shape(width, height, srcChannels, dstChannels, 3, 1, 1);
        EXPECT_TRUE(Matches(shape, static_cast<uint64_t>(height)));
    }
    const ConvShape shape = Shape(12, 16, 3, 16, 3, 1, 1);
    CheckEveryShift(kGenericConv, shape);
    CheckUniformExtremes(kGenericConv, shape);
    CheckBiasWraps(kGenericConv, shape);
    CheckOddAddresses(kGenericConv, shape);
}

TEST(Conv, OddSizes) {
    for (int width = 1; width <= 11; width += 2) {
        for (int height = 1; height <= 11; ++height) {
            EXPECT_TRUE(Matches(Shape(width, height, 2, 5, 3, 1, 1), 7));
        }
    }
}

// The output is made in bands of some hundred pixels, of at least one row.
TEST(Conv, RowsAsLongAsABandAndLonger) {
    for (const int width : {191, 192, 193, 383, 384, 385, 800}) {
        for (const int kernelSize : {1, 2, 3}) {
            EXPECT_TRUE(Matches(Shape(width, 3, 2, 5, kernelSize, kernelSize / 2, 1), 9));
        }
        EXPECT_TRUE(Matches(Shape(2 * width, 5, 1, 5, 3, 1, 2), 10));
    }
}

TEST(Conv, SizeOfTheOutputIsTakenAsGiven) {
    // Larger outputs reach beyond the right and the bottom edge, where the input reads as zero.
    for (int dstWidth = 0; dstWidth <= 12; ++dstWidth) {
        for (int dstHeight = 0; dstHeight <= 9; dstHeight += 3) {
            for (const int stride : {1, 2}) {
                ConvShape s = Shape(6, 5, 2, 5, 3, 1, stride);
                s.dstWidth = dstWidth;
                s.dstHeight = dstHeight;
                EXPECT_TRUE(Matches(s, 8));
            }
        }
    }
}

TEST(Conv, KernelLargerThanTheInput) {
    EXPECT_TRUE(Matches(Shape(2, 3, 3, 5, 7, 3, 1), 9));
    EXPECT_TRUE(Matches(Shape(1, 1, 1, 1, 9, 4, 1), 9));
}

TEST(Conv, StrideOfZeroReadsOnePositionForEveryPixel) {
    ConvShape s = Shape(6, 5, 2, 5, 3, 1, 1);
    s.stride = 0;
    EXPECT_TRUE(Matches(s, 10));
}

TEST(Conv, EveryShift) { CheckEveryShift(kGenericConv, Shape(5, 3, 2, 6, 3, 1, 1)); }

TEST(Conv, AllInputsAndWeightsAtTheirEnds) {
    CheckUniformExtremes(kGenericConv, Shape(5, 3, 3, 7, 3, 1, 1));
}

TEST(Conv, SumsThatReachTheLargestBiasWrap) {
    CheckBiasWraps(kGenericConv, Shape(5, 3, 2, 7, 3, 1, 1));
    // Whole blocks of eight pixels and single ones, groups of channels and single ones.
    CheckBiasWraps(kGenericConv, Shape(13, 1, 17, 6, 1, 0, 1));
}

TEST(Conv, LongestDotProductOfSmallestValues) {
    // 65535 products of 16384 are 1073725440, just inside 31 bits.
    ConvShape s = Shape(1, 1, 65535, 5, 1, 0, 1);
    const ConvData data = UniformData(kGenericConv, s, -128, -128, 0);
    s.outShift = 24;
    EXPECT_EQ(RunGuarded(kGenericConv, s, data, {}), std::vector<int8_t>(5, 63));
    s.outShift = 23;
    EXPECT_EQ(RunGuarded(kGenericConv, s, data, {}), std::vector<int8_t>(5, 127));
}

TEST(Conv, OddAddresses) { CheckOddAddresses(kGenericConv, Shape(7, 5, 3, 7, 3, 1, 1)); }

TEST(Conv, FewerThanFourOutputChannelsLieFourDotProductsApart) {
    // K = 2: channel r has its weights at byte 8 * r, whatever stands between.
    ConvShape s = Shape(9, 1, 2, 3, 1, 0, 1);
    s.outShift = 0;
    std::vector<int8_t> src(18);
    for (size_t i = 0; i < src.size(); ++i) {
        src[i] = static_cast<int8_t>(i);
    }
    std::vector<int8_t> packed(18, 99);
    const int8_t weights[3][2] = {{1, 2}, {-3, 4}, {5, -6}};
    for (size_t r = 0; r < 3; ++r) {
        packed[8 * r] = weights[r][0];
        packed[8 * r + 1] = weights[r][1];
    }
    std::vector<int8_t> expected;
    for (const auto& w : weights) {
        for (int i = 0; i < 9; ++i) {
            expected.push_back(static_cast<int8_t>(w[0] * i + w[1] * (9 + i)));
        }
    }
    EXPECT_EQ(RunPacked(s, src, packed, {0, 0, 0}), expected);
}

TEST(Conv, LeftoverChannelsFollowTheGroupsAtTheSameSpacing) {
    // K = 1, six channels: a group of four at byte 0, then single ones at bytes 4 and 8.
    ConvShape s = Shape(1, 1, 1, 6, 1, 0, 1);
    s.outShift = 0;
    const std::vector<int8_t> packed = {1, 2, 3, 4, 5, 99, 99, 99, 6};
    EXPECT_EQ(RunPacked(s, {10}, packed, {0, 0, 0, 0, 0, 0}),
              (std::vector<int8_t>{10, 20, 30, 40, 50, 60}));
}

TEST(Conv, WeightsRunOverChannelThenRowThenColumn) {
    // One output pixel, one channel: the k-th weight meets the k-th byte of the input.
    ConvShape s = Shape(3, 3, 2, 1, 3, 0, 1);
    s.outShift = 0;
    for (size_t k = 0; k < 18; ++k) {
        std::vector<int8_t> src(18, 0);
        std::vector<int8_t> packed(18, 0);
        src[k] = 7;
        packed[k] = 5;
        EXPECT_EQ(RunPacked(s, src, packed, {0}), std::vector<int8_t>{35}) << k;
    }
}

TEST(Conv, FewerThanEightPixels) {
    // Only single pixels, whose packed columns lie 8 * K bytes apart in scratch of the exact size.
    for (int pixels = 1; pixels < 8; ++pixels) {
        const ConvShape s = Shape(pixels, 1, 3, 6, 1, 0, 1);
        const size_t k = 3;
        const size_t n = static_cast<size_t>(pixels);
        ASSERT_EQ(kGenericConv.scratchBytes(s), (k * n + 3) / 4 * 4 + 8 * k * n);
        EXPECT_TRUE(Matches(s, 11));
    }
}

TEST(Conv, NoInputChannelsGiveTheShiftedBias) {
    ConvShape s = Shape(5, 3, 0, 6, 3, 1, 1);
    s.outShift = 4;
    const ConvData data = {{}, {}, {0, 160, -1, -17, INT32_MAX, INT32_MIN}};
    std::vector<int8_t> expected;
    for (const int8_t value : {0, 10, -1, -2, 127, -128}) {
        expected.insert(expected.end(), 15, value);
    }
    EXPECT_EQ(RunGuarded(kGenericConv, s, data, {}), expected);
    // In planes of whole tiles, too.
    EXPECT_TRUE(Matches(Shape(16, 16, 0, 16, 3, 1, 1), 13));
}

TEST(Conv, KernelSizeOfZeroGivesTheShiftedBias) {
    ConvShape s = Shape(5, 3, 2, 5, 0, 0, 1);
    s.dstWidth = 5;
    s.dstHeight = 3;
    s.outShift = 4;
    const ConvData data = {std::vector<int8_t>(30, 99), {}, {0, 160, -1, INT32_MAX, INT32_MIN}};
    std::vector<int8_t> expected;
    for (const int8_t value : {0, 10, -1, 127, -128}) {
        expected.insert(expected.end(), 15, value);
    }
    EXPECT_EQ(RunGuarded(kGenericConv, s, data, {}), expected);
}

TEST(Conv, NoOutputChannelsOrNoPixelsWriteNothing) {
    EXPECT_TRUE(Matches(Shape(5, 3, 2, 0, 3, 1, 1), 12));
    ConvShape s = Shape(5, 3, 2, 5, 3, 1, 1);
    s.dstHeight = 0;
    EXPECT_TRUE(Matches(s, 12));
    s.dstHeight = 3;
    s.dstWidth = 0;
    EXPECT_TRUE(Matches(s, 12));
    // Nor is there anything in the input.
    EXPECT_TRUE(Matches(Shape(0, 5, 2, 4, 3, 1, 1), 12));
    EXPECT_TRUE(Matches(Shape(5, 0, 2, 4, 3, 1, 1), 12));
}

TEST(Conv, MoreInputChannelsThanATileOfTapsHas) {
    for (const int channels : {5, 6, 21, 22}) {
        EXPECT_TRUE(Matches(Shape(16, 16, channels, 16, 3, 1, 1), 14));
    }
}

TEST(Conv, FootprintInThePaddingGivesOnlyTheBias) {
    // Pad 3 around a single pixel: the corner outputs of a 3 x 3 kernel meet nothing but zeros.
    ConvShape s = Shape(1, 1, 2, 5, 3, 3, 1);
    s.outShift = 2;
    ConvData data = UniformData(kGenericConv, s, 100, 100, 0);
    data.bias = {0, 44, -3, 1000, -1000};
    const std::vector<int8_t> dst = RunGuarded(kGenericConv, s, data, {});
    ASSERT_EQ(dst.size(), 5u * 25);
    const int expected[] = {0, 11, -1, 127, -128};
    for (size_t o = 0; o < 5; ++o) {
        for (const size_t corner : {0u, 4u, 20u, 24u}) {
            EXPECT_EQ(dst[25 * o + corner], expected[o]);
        }
        EXPECT_EQ(dst[25 * o + 12], 127); // the centre sees the pixel
    }
}

TEST(Conv, SaturatesAtBothEndsAndRoundsTowardsMinusInfinity) {
    // Input 1, weight 1: the sum is 1 and the bias sets the rest.
    for (const uint32_t shift : {0u, 1u, 5u, 20u}) {
        ConvShape s = Shape(9, 1, 1, 5, 1, 0, 1);
        s.outShift = shift;
        ConvData data = UniformData(kGenericConv, s, 1, 1, 0);
        const int32_t one = 1 << shift;
        data.bias = {127 * one + one - 2, 128 * one - 1, -128 * one - 1, -128 * one - 2, -2};
        std::vector<int8_t> expected;
        for (const int8_t value : {127, 127, -128, -128, -1}) {
            expected.insert(expected.end(), 9, value);
        }
        EXPECT_EQ(RunGuarded(kGenericConv, s, data, {}), expected) << shift;
    }
}

TEST(Conv, MinusOneStaysMinusOneUnderEveryShift) {
    for (const uint32_t shift : {0u, 1u, 7u, 31u, 32u, 40u, 65535u}) {
        ConvShape s = Shape(9, 1, 1, 5, 1, 0, 1);
        s.outShift = shift;
        const ConvData data = UniformData(kGenericConv, s, 1, -1, 0);
        EXPECT_EQ(RunGuarded(kGenericConv, s, data, {}), std::vector<int8_t>(45, -1)) << shift;
    }
}

// ---- Planes that are equal may be taken for one, by the sums of their weights.

ConvData WithEqualPlanes(const ConvShape& s, ConvData data) {
    const ptrdiff_t plane = ptrdiff_t{s.srcWidth} * s.srcHeight;
    for (int c = 1; c < s.srcChannels; ++c) {
        std::copy_n(data.src.begin(), plane, data.src.begin() + c * plane);
    }
    return data;
}

::testing::AssertionResult EqualPlanesMatch(const ConvShape& shape, uint64_t seed) {
    for (const auto makeData : {LivelyData, ExtremeData}) {
        const ConvData data = WithEqualPlanes(shape, makeData(kGenericConv, shape, seed));
        const auto matches = MatchesReference(kGenericConv, shape, data);
        if (!matches) {
            return matches;
        }
    }
    return ::testing::AssertionSuccess();
}

TEST(ConvOfEqualPlanes, NetworkLayers) {
    EXPECT_TRUE(EqualPlanesMatch(Shape(96, 96, 3, 32, 3, 1, 1), 1));
    EXPECT_TRUE(EqualPlanesMatch(Shape(24, 24, 1, 32, 3, 1, 1), 2));
}

TEST(ConvOfEqualPlanes, EveryWidth) {
    for (int width = 1; width <= 70; ++width) {
        for (const int height : {1, 2, 3, 4, 7}) {
            const int planes = 1 + (width + height) % 4;
            EXPECT_TRUE(EqualPlanesMatch(Shape(width, height, planes, 4, 3, 1, 1), 3));
        }
    }
    for (const int width : {95, 96, 97, 127, 128, 129, 130, 192, 257, 300}) {
        EXPECT_TRUE(EqualPlanesMatch(Shape(width, 5, 3, 8, 3, 1, 1), 4));
    }
}

TEST(ConvOfEqualPlanes, EveryHeight) {
    for (int height = 1; height <= 40; ++height) {
        for (const int width : {1, 8, 12, 16, 33}) {
            EXPECT_TRUE(EqualPlanesMatch(Shape(width, height, 2, 5, 3, 1, 1), 5));
        }
    }
}

TEST(ConvOfEqualPlanes, EveryTailOfChannels) {
    for (int channels = 0; channels <= 37; ++channels) {
        EXPECT_TRUE(EqualPlanesMatch(Shape(16, 4, 3, channels, 3, 1, 1), 6));
    }
}

// The sum of a weight of each of 255 planes has at most 16 bits.
TEST(ConvOfEqualPlanes, UpToMorePlanesThanTheSumsOfWeightsHaveRoomFor) {
    for (const int planes : {2, 3, 4, 127, 254, 255, 256, 257, 258, 259, 300, 1000}) {
        const ConvShape shape = Shape(17, 3, planes, 5, 3, 1, 1);
        EXPECT_TRUE(EqualPlanesMatch(shape, 7));
        CheckUniformExtremes(kGenericConv, shape);
    }
    // A row of three such sums fits for up to 85.
    for (const int planes : {84, 85, 86, 255}) {
        const ConvShape shape = Shape(16, 2, planes, 4, 3, 1, 1);
        EXPECT_TRUE(EqualPlanesMatch(shape, 7));
        CheckUniformExtremes(kGenericConv, shape);
    }
}

// Sums that are shifted to the upper half of 32 bits have room for the products and for some biases.
TEST(ConvOfEqualPlanes, BiasesAtTheEndOfTheRoomForSums) {
    for (const int planes : {1, 2, 3, 85}) {
        for (const int shift : {0, 3, 6, 8, 11, 15, 16, 17}) {
            ConvShape shape = Shape(32, 3, planes, 4, 3, 1, 1);
            shape.outShift = static_cast<uint32_t>(shift);
            const int products = 9 * 128 * 128 * planes;
            const int room = std::max((INT32_MAX >> std::max(16 - shift, 0)) - products, 0);
            for (const int beyond : {0, 1, 9 * 128 * planes}) {
                const int bias = std::min(room, INT32_MAX - products - beyond) + beyond;
                EXPECT_TRUE(MatchesReference(kGenericConv, shape,
                                             UniformData(kGenericConv, shape, -128, -128, bias)));
                EXPECT_TRUE(MatchesReference(kGenericConv, shape,
                                             UniformData(kGenericConv, shape, -128, 127, -bias)));
            }
        }
    }
}

TEST(ConvOfEqualPlanes, OneByteMakesADifference) {
    ConvShape shape = Shape(32, 6, 3, 8, 3, 1, 1);
    shape.outShift = 0;
    ConvData equal = WithEqualPlanes(shape, LivelyData(kGenericConv, shape, 8));
    std::fill(equal.weights.begin(), equal.weights.end(), int8_t{1});
    std::fill(equal.src.begin(), equal.src.end(), int8_t{1});
    std::fill(equal.bias.begin(), equal.bias.end(), 0);
    const size_t plane = 32 * 6;
    for (const size_t place :
         {size_t{0}, plane - 1, plane, 2 * plane - 1, 2 * plane, 3 * plane - 1}) {
        ConvData data = equal;
        data.src[place] = 3;
        EXPECT_NE(kGenericConv.reference(shape, data), kGenericConv.reference(shape, equal));
        EXPECT_TRUE(MatchesReference(kGenericConv, shape, data)) << place;
    }
}

TEST(ConvOfEqualPlanes, EveryShift) {
    for (uint32_t shift = 0; shift <= 40; ++shift) {
        ConvShape shape = Shape(16, 3, 3, 4, 3, 1, 1);
        shape.outShift = shift;
        EXPECT_TRUE(EqualPlanesMatch(shape, 9));
    }
    CheckEveryShift(kGenericConv, Shape(20, 3, 1, 6, 3, 1, 1));
}

TEST(ConvOfEqualPlanes, LimitsOfSumsAndAddresses) {
    for (const int planes : {1, 3}) {
        for (const ConvShape& shape :
             {Shape(33, 3, planes, 6, 3, 1, 1), Shape(32, 3, planes, 8, 3, 1, 1)}) {
            CheckUniformExtremes(kGenericConv, shape);
            CheckBiasWraps(kGenericConv, shape);
        }
    }
    CheckOddAddresses(kGenericConv, Shape(33, 3, 1, 6, 3, 1, 1));
    CheckOddAddresses(kGenericConv, Shape(8, 1, 1, 6, 3, 1, 1)); // hardly any scratch
    CheckOddAddresses(kGenericConv, Shape(24, 24, 1, 32, 3, 1, 1));
}

TEST(Conv, SaysNothing) {
    StderrCapture capture;
    EXPECT_TRUE(Matches(Shape(5, 3, 2, 6, 3, 1, 1), 13));
    EXPECT_EQ(capture.text(), "");
}

} // namespace
