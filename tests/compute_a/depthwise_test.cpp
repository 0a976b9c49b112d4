// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "compute_a/depthwise_case.h"
#include "support/random.h"
#include "support/stderr_capture.h"

namespace {

using namespace orvo_test;

void ExpectBothMatch(const ConvShape& shape, uint64_t seed) {
    for (const Kernel* kernel : {&kPlain, &kRelu}) {
        EXPECT_TRUE(
            MatchesReference(*kernel->subject, shape, LivelyData(*kernel->subject, shape, seed)));
    }
}

TEST(DepthwiseLayers, AlignmentNetwork) {
    CheckLayers(kDepthwiseConv, LayerKernel::kDepthwise, kAlignLayers);
}

TEST(DepthwiseLayers, RecognitionNetwork) {
    CheckLayers(kDepthwiseConv, LayerKernel::kDepthwise, kRecognitionLayers);
}

TEST(DepthwiseReluLayers, AlignmentNetwork) {
    CheckLayers(kDepthwiseReluConv, LayerKernel::kDepthwiseRelu, kAlignLayers);
}

TEST(DepthwiseReluLayers, RecognitionNetwork) {
    CheckLayers(kDepthwiseReluConv, LayerKernel::kDepthwiseRelu, kRecognitionLayers);
}

TEST(Depthwise, EveryTailOfColumns) {
    for (int dstWidth = 1; dstWidth <= 40; ++dstWidth) {
        for (const int dstHeight : {1, 2, 3}) {
            ExpectBothMatch(Shape(dstWidth + 2, dstHeight + 2, 3, 0), 1);
            ExpectBothMatch(Shape(dstWidth, dstHeight, 3, 1), 1);
        }
    }
}

// Wide planes are worked on strip by strip, and a strip's outer columns have neighbours in the
// next.
TEST(Depthwise, PlanesWiderThanAStrip) {
    for (const int width : {62, 63, 64, 65, 66, 124, 125, 128, 129, 130, 193, 257}) {
        ExpectBothMatch(Shape(width, 3, 2, 1), static_cast<uint64_t>(width));
    }
}

// Widths around those at which planes share vectors or are cut into strips, heights for every turn
// that rows take, and planes enough for some that share a vector, with some left over.
TEST(Depthwise, PlanesSideBySideAndStripAfterStrip) {
    for (const int width : {6, 7, 11, 12, 13, 23, 24, 25, 47, 48, 49, 95, 96, 97, 145}) {
        for (int height = 1; height <= 9; ++height) {
            for (const int channels : {1, 3, 6, 9}) {
                ExpectBothMatch(Shape(width, height, channels, 1),
                                static_cast<uint64_t>(width * 100 + height));
            }
        }
    }
}

TEST(Depthwise, EveryTailOfChannels) {
    for (int channels = 1; channels <= 17; ++channels) {
        ExpectBothMatch(Shape(9, 5, channels, 1), 2);
        ExpectBothMatch(Shape(9, 5, channels, 0), 2);
    }
}

TEST(Depthwise, OddHeightsAndPads) {
    for (int height = 1; height <= 9; ++height) {
        for (int pad = 0; pad <= 4; ++pad) {
            if (height + 2 * pad >= 3) {
                ExpectBothMatch(Shape(11, height, 2, pad), 3);
            }
        }
    }
}

TEST(Depthwise, WidthsBelowEightRunOneColumnAtATime) {
    for (int dstWidth = 1; dstWidth < 8; ++dstWidth) {
        ExpectBothMatch(Shape(dstWidth + 2, 7, 5, 0), 4);
    }
}

TEST(Depthwise, OddHeightGivesPairsAndOneSingleRow) {
    const ConvShape s = Shape(20, 7, 3, 1);
    ASSERT_EQ(s.dstHeight, 7);
    ExpectBothMatch(s, 5);
}

TEST(Depthwise, EveryShift) { CheckEveryShift(kDepthwiseConv, Shape(9, 3, 5, 1)); }
TEST(Depthwise, EveryShiftOfTallerPlanes) {
    for (const int width : {12, 24, 50}) {
        CheckEveryShift(kDepthwiseConv, Shape(width, 7, 5, 1));
    }
}
TEST(DepthwiseRelu, EveryShift) { CheckEveryShift(kDepthwiseReluConv, Shape(9, 3, 5, 1)); }

TEST(Depthwise, AllInputsAndWeightsAtTheirEnds) {
    CheckUniformExtremes(kDepthwiseConv, Shape(9, 3, 5, 1));
}
TEST(DepthwiseRelu, AllInputsAndWeightsAtTheirEnds) {
    CheckUniformExtremes(kDepthwiseReluConv, Shape(9, 3, 5, 1));
}

TEST(Depthwise, SumsThatReachTheLargestBiasWrap) {
    CheckBiasWraps(kDepthwiseConv, Shape(9, 3, 5, 1));
}
TEST(DepthwiseRelu, SumsThatReachTheLargestBiasWrap) {
    CheckBiasWraps(kDepthwiseReluConv, Shape(9, 3, 5, 1));
}

TEST(Depthwise, OddAddresses) {
    CheckOddAddresses(kDepthwiseConv, Shape(13, 5, 3, 1));
    CheckOddAddresses(kDepthwiseConv, Shape(13, 5, 3, 0));
}
TEST(DepthwiseRelu, OddAddresses) {
    CheckOddAddresses(kDepthwiseReluConv, Shape(13, 5, 3, 1));
    CheckOddAddresses(kDepthwiseReluConv, Shape(13, 5, 3, 0));
}

TEST(Depthwise, RefusesOtherKernelSizesAndStridesSilently) {
    for (const Kernel* kernel : {&kPlain, &kRelu}) {
        for (const auto& [kernelSize, stride] :
             {std::pair{1, 1}, {0, 1}, {5, 1}, {259, 1}, {3, 2}, {3, 0}, {3, 257}, {3, 1}}) {
            ConvShape s = Shape(8, 8, 2, 1);
            const std::vector<int8_t> src(128, 1);
            const std::vector<int8_t> weights(18, 1);
            const std::vector<int32_t> bias(2, 1);
            std::vector<int8_t> dst(128, 77);
            std::vector<int8_t> scratch(200, 77);
            s.kernelSize = kernelSize;
            s.stride = stride;
            StderrCapture capture;
            Call(kernel->subject->kernel, s, src.data(), weights.data(), bias.data(), dst.data(),
                 scratch.data());
            const bool refused = std::count(dst.begin(), dst.end(), 77) == 128 &&
                                 std::count(scratch.begin(), scratch.end(), 77) == 200;
            const bool written = std::count(dst.begin(), dst.end(), 77) != 128;
            EXPECT_EQ(refused, kernelSize != 3 || stride != 1) << kernelSize << " " << stride;
            EXPECT_EQ(written, kernelSize == 3 && stride == 1) << kernelSize << " " << stride;
            EXPECT_EQ(capture.text(), "");
        }
    }
}

TEST(Depthwise, WithoutPaddingTheScratchIsUntouched) {
    for (const Kernel* kernel : {&kPlain, &kRelu}) {
        const ConvShape s = Shape(10, 6, 3, 0);
        const ConvData data = LivelyData(*kernel->subject, s, 6);
        std::vector<int8_t> dst(orvo_reference::DstBytes(s));
        std::vector<int8_t> scratch(3 * 60, 77);
        Call(kernel->subject->kernel, s, data.src.data(), data.weights.data(), data.bias.data(),
             dst.data(), scratch.data());
        EXPECT_EQ(scratch, std::vector<int8_t>(3 * 60, 77));
        EXPECT_EQ(dst, kernel->subject->reference(s, data));
        Call(kernel->subject->kernel, s, data.src.data(), data.weights.data(), data.bias.data(),
             dst.data(), nullptr);
        EXPECT_EQ(dst, kernel->subject->reference(s, data));
    }
}

// A border of one around outputs as large as the inputs is what all layers of the networks have,
// and is put around the values where they are worked on: the scratch has room for the padded
// planes, but nothing is written to it. The layers would take longer by the copy otherwise.
TEST(Depthwise, UsualGeometryNeedsNoPaddedCopy) {
    constexpr int8_t kOld = 0x3C;
    for (const Kernel* kernel : {&kPlain, &kRelu}) {
        for (const int width : {1, 6, 9, 24, 95}) {
            for (const int dstChannels : {1, 2, 3}) {
                ConvShape s = Shape(width, 5, 3, 1);
                s.dstChannels = dstChannels;
                const ConvData data = LivelyData(*kernel->subject, s, 7);
                std::vector<int8_t> dst(orvo_reference::DstBytes(s));
                std::vector<int8_t> scratch(kernel->subject->scratchBytes(s), kOld);
                Call(kernel->subject->kernel, s, data.src.data(), data.weights.data(),
                     data.bias.data(), dst.data(), scratch.data());
                EXPECT_EQ(dst, kernel->subject->reference(s, data)) << width;
                EXPECT_EQ(scratch, std::vector<int8_t>(scratch.size(), kOld)) << width;
            }
        }
    }
}

TEST(Depthwise, SinglePixelWithPaddingIsTheCentreWeightTimesItPlusTheBias) {
    ConvShape s = Shape(1, 1, 2, 1);
    s.outShift = 2;
    ConvData data;
    data.src = {10, 10};
    data.weights = {90, 91, 92, 93, 5,  95, 96, 97, 98, //
                    90, 91, 92, 93, -5, 95, 96, 97, 98};
    data.bias = {7, 7};
    EXPECT_EQ(RunGuarded(kDepthwiseConv, s, data, {}), (std::vector<int8_t>{14, -11}));
    EXPECT_EQ(RunGuarded(kDepthwiseReluConv, s, data, {}), (std::vector<int8_t>{14, 0}));
}

TEST(Depthwise, MinusOneStaysMinusOneAndIsZeroWhenRectified) {
    for (const uint32_t shift : {0u, 1u, 31u, 32u, 65535u}) {
        ConvShape s = Shape(11, 3, 2, 0);
        s.outShift = shift;
        const ConvData data = UniformData(kDepthwiseConv, s, 0, 1, -1);
        EXPECT_EQ(RunGuarded(kDepthwiseConv, s, data, {}), std::vector<int8_t>(18, -1));
        EXPECT_EQ(RunGuarded(kDepthwiseReluConv, s, data, {}), std::vector<int8_t>(18, 0));
    }
}

TEST(Depthwise, LargeSumsSaturate) {
    ConvShape s = Shape(11, 4, 2, 0);
    s.outShift = 3;
    const ConvData up = UniformData(kDepthwiseConv, s, 100, 100, 0);
    const ConvData down = UniformData(kDepthwiseConv, s, 100, -100, 0);
    EXPECT_EQ(RunGuarded(kDepthwiseConv, s, up, {}), std::vector<int8_t>(36, 127));
    EXPECT_EQ(RunGuarded(kDepthwiseConv, s, down, {}), std::vector<int8_t>(36, -128));
    EXPECT_EQ(RunGuarded(kDepthwiseReluConv, s, up, {}), std::vector<int8_t>(36, 127));
    EXPECT_EQ(RunGuarded(kDepthwiseReluConv, s, down, {}), std::vector<int8_t>(36, 0));
}

TEST(Depthwise, FewerOutputThanInputChannels) {
    for (const Kernel* kernel : {&kPlain, &kRelu}) {
        for (int dstChannels = 0; dstChannels < 4; ++dstChannels) {
            ConvShape s = Shape(9, 3, 4, 1);
            s.dstChannels = dstChannels;
            const ConvData data = LivelyData(*kernel->subject, s, 7);
            EXPECT_TRUE(MatchesReference(*kernel->subject, s, data));
            std::vector<int8_t> dst(4 * 27, 77);
            std::vector<int8_t> scratch(4 * 55, 77);
            Call(kernel->subject->kernel, s, data.src.data(), data.weights.data(), data.bias.data(),
                 dst.data(), scratch.data());
            EXPECT_EQ(std::count(dst.begin() + 27 * dstChannels, dst.end(), 77),
                      27 * (4 - dstChannels));
        }
    }
}

TEST(Depthwise, NoOutputRowsOrColumnsWriteNothing) {
    ConvShape s = Shape(9, 3, 2, 1);
    s.dstHeight = 0;
    ExpectBothMatch(s, 8);
    s = Shape(9, 3, 2, 1);
    s.dstWidth = 0;
    ExpectBothMatch(s, 8);
    // Nor is there anything in the input.
    ExpectBothMatch(Shape(0, 5, 3, 1), 8);
    ExpectBothMatch(Shape(5, 0, 3, 1), 8);
}

// Wider than any band of rows that a path keeps.
TEST(Depthwise, VeryWidePlanes) {
    for (const int width : {2041, 2042, 2100, 5000}) {
        ExpectBothMatch(Shape(width, 3, 2, 1), 10);
    }
}

// The padding is that of the input's planes; further outputs are made of what the scratch holds.
TEST(Depthwise, MoreOutputThanInputChannels) {
    for (const Kernel* kernel : {&kPlain, &kRelu}) {
        ConvShape s = Shape(9, 3, 2, 1);
        const ConvData both = LivelyData(*kernel->subject, s, 7);
        std::vector<int8_t> expected(2 * 27);
        std::vector<int8_t> padded(2 * 55);
        Call(kernel->subject->kernel, s, both.src.data(), both.weights.data(), both.bias.data(),
             expected.data(), padded.data());
        // The second plane is in the scratch already, with its border.
        std::vector<int8_t> scratch(2 * 55, 0);
        for (size_t y = 0; y < 3; ++y) {
            std::copy_n(both.src.begin() + static_cast<ptrdiff_t>(27 + 9 * y), 9,
                        scratch.begin() + static_cast<ptrdiff_t>(55 + 11 * (y + 1) + 1));
        }
        s.srcChannels = 1;
        std::vector<int8_t> dst(2 * 27);
        Call(kernel->subject->kernel, s, both.src.data(), both.weights.data(), both.bias.data(),
             dst.data(), scratch.data());
        EXPECT_EQ(dst, expected);
    }
}

TEST(DepthwiseWalk, EqualsTheDefinitionWhenTheOutputFits) {
    // Of the references: the walk and the plain definition are the same convolution then.
    for (const Kernel* kernel : {&kPlain, &kRelu}) {
        for (const int pad : {0, 1, 2}) {
            const ConvShape s = Shape(11, 6, 3, pad);
            const ConvData data = LivelyData(*kernel->subject, s, 9);
            const std::vector<int8_t> planes = orvo_reference::PaddedPlanes(s, data.src.data());
            std::vector<int8_t> walked(orvo_reference::DstBytes(s));
            orvo_reference::WalkDepthwisePlanes(s, kernel->rectify, planes.data(),
                                                data.weights.data(), data.bias.data(),
                                                walked.data());
            EXPECT_EQ(walked, kernel->subject->reference(s, data));
        }
    }
}

TEST(DepthwiseWalk, NarrowerOutputsStartEachPairWhereTheWalkComesTo) {
    for (const Kernel* kernel : {&kPlain, &kRelu}) {
        for (const int pad : {0, 1, 2}) {
            const ConvShape full = Shape(21, 8, 3, pad);
            for (int dstWidth = 1; dstWidth < full.dstWidth; ++dstWidth) {
                for (int dstHeight = 1; dstHeight <= full.dstHeight; ++dstHeight) {
                    ConvShape s = full;
                    s.dstWidth = dstWidth;
                    s.dstHeight = dstHeight;
                    const ConvData data = LivelyData(*kernel->subject, s, 10);
                    const std::vector<int8_t> planes =
                        orvo_reference::PaddedPlanes(s, data.src.data());
                    std::vector<int8_t> expected(orvo_reference::DstBytes(s));
                    orvo_reference::WalkDepthwisePlanes(s, kernel->rectify, planes.data(),
                                                        data.weights.data(), data.bias.data(),
                                                        expected.data());
                    ASSERT_EQ(RunGuarded(*kernel->subject, s, data, {}), expected)
                        << "pad " << pad << " " << dstWidth << "x" << dstHeight;
                }
            }
        }
    }
}

TEST(DepthwiseWalk, ThirdRowOfANarrowOutputInFigures) {
    // Input of 10 x 6 counting up, no padding, only the filter's first weight set, an output of
    // 3 x 5: pairs start at 0, 15 and 30 (3 + 2 + 10 bytes apart), their second rows 10 later.
    ConvShape s = Shape(10, 6, 1, 0);
    s.dstWidth = 3;
    s.dstHeight = 5;
    s.outShift = 0;
    ConvData data;
    for (int8_t i = 0; i < 60; ++i) {
        data.src.push_back(i);
    }
    data.weights = {1, 0, 0, 0, 0, 0, 0, 0, 0};
    data.bias = {0};
    const std::vector<int8_t> expected = {0, 1, 2, 10, 11, 12, 15, 16, 17, 25, 26, 27, 30, 31, 32};
    EXPECT_EQ(RunGuarded(kDepthwiseConv, s, data, {}), expected);
    EXPECT_EQ(RunGuarded(kDepthwiseReluConv, s, data, {}), expected);
}

} // namespace
