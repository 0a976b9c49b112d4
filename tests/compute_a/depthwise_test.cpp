// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "compute_a/chw_case.h"
#include "support/bounded_faults.h"
#include "support/random.h"
#include "support/stderr_capture.h"

namespace {

using namespace orvo_test;

// The two kernels: their results differ in the rectifier, their diagnostics in everything.
struct Kernel {
    const ChwSubject* subject;
    bool rectify;
    bool boundIsCount; // the destination size given to a bounded call is its count
    const char* unit;
    int topLine, leftLine, rowLine, rightLine, bottomLine;
    const char* rowFunction;
};

const Kernel kPlain = {
    &kDepthwiseConv, false, true, "../compute_a/convolutiondepthwise_3x3_int8", 73, 81, 85, 90, 97,
    "memset_s"};
const Kernel kRelu = {
    &kDepthwiseReluConv, true, false, "../compute_a/arma_dwconv", 66, 77, 85, 94, 104, "memcpy_s"};

ConvShape Shape(int width, int height, int channels, int pad) {
    ConvShape s;
    s.srcWidth = width;
    s.srcHeight = height;
    s.srcChannels = s.dstChannels = channels;
    s.kernelSize = 3;
    s.pad = pad;
    s.dstWidth = width + 2 * pad - 2;
    s.dstHeight = height + 2 * pad - 2;
    s.outShift = LivelyShift(9);
    return s;
}

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
            RecordBoundedCalls();
            Call(kernel->subject->kernel, s, src.data(), weights.data(), bias.data(), dst.data(),
                 scratch.data());
            const bool refused = std::count(dst.begin(), dst.end(), 77) == 128 &&
                                 std::count(scratch.begin(), scratch.end(), 77) == 200 &&
                                 BoundedCalls().empty();
            EXPECT_EQ(refused, kernelSize != 3 || stride != 1) << kernelSize << " " << stride;
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
        RecordBoundedCalls();
        Call(kernel->subject->kernel, s, data.src.data(), data.weights.data(), data.bias.data(),
             dst.data(), scratch.data());
        EXPECT_TRUE(BoundedCalls().empty());
        EXPECT_EQ(scratch, std::vector<int8_t>(3 * 60, 77));
        EXPECT_EQ(dst, kernel->subject->reference(s, data));
        Call(kernel->subject->kernel, s, data.src.data(), data.weights.data(), data.bias.data(),
             dst.data(), nullptr);
        EXPECT_EQ(dst, kernel->subject->reference(s, data));
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
    // Every input plane is padded, the first ones are computed.
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
            EXPECT_EQ(scratch, orvo_reference::PaddedPlanes(s, data.src.data()));
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

// ---- Padding: every bounded call, and what happens when it fails --------------------------------

// One bounded call of the padding stage as it should come.
struct Step {
    bool isCopy;
    size_t offset; // in the scratch
    size_t count;
    size_t srcOffset; // copies only
    int line;
    const char* function; // as the report names it
};

std::vector<Step> PaddingSteps(const Kernel& kernel, const ConvShape& s) {
    std::vector<Step> steps;
    size_t at = 0;
    size_t from = 0;
    const size_t pad = static_cast<size_t>(s.pad);
    const size_t width = static_cast<size_t>(s.srcWidth);
    const auto fill = [&](size_t count, int line) {
        steps.push_back({false, at, count, 0, line, "memset_s"});
        at += count;
    };
    for (int c = 0; c < s.srcChannels; ++c) {
        for (int y = 0; y < s.pad; ++y) {
            fill(width + 2 * pad, kernel.topLine);
        }
        for (int y = 0; y < s.srcHeight; ++y) {
            fill(pad, kernel.leftLine);
            steps.push_back({true, at, width, from, kernel.rowLine, kernel.rowFunction});
            at += width;
            from += width;
            fill(pad, kernel.rightLine);
        }
        for (int y = 0; y < s.pad; ++y) {
            fill(width + 2 * pad, kernel.bottomLine);
        }
    }
    return steps;
}

std::string Report(const Kernel& kernel, const Step& step, int code) {
    return std::string("[ERR] ") + kernel.unit + ":" + std::to_string(step.line) + " " +
           step.function + " dst failed: " + std::to_string(code) + "\n";
}

// One call with faults, and everything it left behind.
struct Outcome {
    std::vector<int8_t> dst;
    std::vector<int8_t> scratch;
    std::string text;
};

constexpr int8_t kOldScratch = 0x3C;
constexpr int8_t kOldDst = 0x5A;

class DepthwisePadding : public ::testing::Test {
  protected:
    DepthwisePadding() : shape_(Shape(5, 3, 2, 2)) {
        data_ = LivelyData(kDepthwiseConv, shape_, 11);
    }

    // failing 0: no fault.
    Outcome RunFailing(const Kernel& kernel, int failing, int code, bool forGood) {
        Outcome run;
        run.dst.assign(orvo_reference::DstBytes(shape_), kOldDst);
        run.scratch.assign(kernel.subject->scratchBytes(shape_), kOldScratch);
        StderrCapture capture;
        RecordBoundedCalls();
        if (failing != 0) {
            FailBoundedCall(failing, code, forGood);
        }
        Call(kernel.subject->kernel, shape_, data_.src.data(), data_.weights.data(),
             data_.bias.data(), run.dst.data(), run.scratch.data());
        run.text = capture.text();
        scratch_ = run.scratch.data();
        scratchSize_ = run.scratch.size();
        StopBoundedFaults();
        return run;
    }

    // The first `count` recorded calls are the first steps, and there are no others.
    void ExpectSteps(const Kernel& kernel, const std::vector<Step>& steps, size_t count) {
        const std::vector<BoundedCall>& calls = BoundedCalls();
        ASSERT_EQ(calls.size(), count);
        for (size_t i = 0; i < count; ++i) {
            SCOPED_TRACE("call " + std::to_string(i));
            EXPECT_EQ(calls[i].isCopy, steps[i].isCopy);
            EXPECT_EQ(calls[i].dst, scratch_ + steps[i].offset);
            EXPECT_EQ(calls[i].count, steps[i].count);
            EXPECT_EQ(calls[i].dstSize,
                      kernel.boundIsCount ? steps[i].count : scratchSize_ - steps[i].offset);
            if (steps[i].isCopy) {
                EXPECT_EQ(calls[i].src, data_.src.data() + steps[i].srcOffset);
            } else {
                EXPECT_EQ(calls[i].value, 0);
            }
        }
    }

    std::vector<int8_t> Walked(const Kernel& kernel, const std::vector<int8_t>& planes) {
        std::vector<int8_t> dst(orvo_reference::DstBytes(shape_));
        orvo_reference::WalkDepthwisePlanes(shape_, kernel.rectify, planes.data(),
                                            data_.weights.data(), data_.bias.data(), dst.data());
        return dst;
    }

    ConvShape shape_;
    ConvData data_;
    const int8_t* scratch_ = nullptr;
    size_t scratchSize_ = 0;
};

TEST_F(DepthwisePadding, CallsInOrderWithTheirBounds) {
    for (const Kernel* kernel : {&kPlain, &kRelu}) {
        const Outcome run = RunFailing(*kernel, 0, 0, false);
        const std::vector<Step> steps = PaddingSteps(*kernel, shape_);
        ASSERT_EQ(steps.size(), 2u * (2 + 3 * 3 + 2));
        ExpectSteps(*kernel, steps, steps.size());
        EXPECT_EQ(run.text, "");
        EXPECT_EQ(run.scratch, orvo_reference::PaddedPlanes(shape_, data_.src.data()));
        EXPECT_EQ(run.dst, kernel->subject->reference(shape_, data_));
    }
}

TEST_F(DepthwisePadding, PlainKernelReportsAFailedPieceAndGoesOn) {
    const std::vector<Step> steps = PaddingSteps(kPlain, shape_);
    const std::vector<int8_t> planes = orvo_reference::PaddedPlanes(shape_, data_.src.data());
    for (size_t n = 0; n < steps.size(); ++n) {
        SCOPED_TRACE("failing call " + std::to_string(n));
        const int code = 1000 + static_cast<int>(n);
        const Outcome run = RunFailing(kPlain, static_cast<int>(n) + 1, code, false);
        EXPECT_EQ(run.text, Report(kPlain, steps[n], code));
        ExpectSteps(kPlain, steps, steps.size());
        // The failed piece keeps its old bytes, the rest of its row included is padded as ever.
        std::vector<int8_t> expected = planes;
        std::fill_n(expected.begin() + static_cast<ptrdiff_t>(steps[n].offset), steps[n].count,
                    kOldScratch);
        EXPECT_EQ(run.scratch, expected);
        EXPECT_EQ(run.dst, Walked(kPlain, expected));
    }
}

TEST_F(DepthwisePadding, PlainKernelReportsEveryFailureAndStillConvolves) {
    const std::vector<Step> steps = PaddingSteps(kPlain, shape_);
    const Outcome run = RunFailing(kPlain, 1, -5, true);
    std::string reports;
    for (const Step& step : steps) {
        reports += Report(kPlain, step, -5);
    }
    EXPECT_EQ(run.text, reports);
    ExpectSteps(kPlain, steps, steps.size());
    const std::vector<int8_t> old(run.scratch.size(), kOldScratch);
    EXPECT_EQ(run.scratch, old);
    EXPECT_EQ(run.dst, Walked(kPlain, old));
}

TEST_F(DepthwisePadding, RectifyingKernelReportsTheFirstFailureAndReturns) {
    const std::vector<Step> steps = PaddingSteps(kRelu, shape_);
    const std::vector<int8_t> planes = orvo_reference::PaddedPlanes(shape_, data_.src.data());
    for (size_t n = 0; n < steps.size(); ++n) {
        SCOPED_TRACE("failing call " + std::to_string(n));
        const int code = 1000 + static_cast<int>(n);
        const Outcome run = RunFailing(kRelu, static_cast<int>(n) + 1, code, false);
        EXPECT_EQ(run.text, Report(kRelu, steps[n], code));
        ExpectSteps(kRelu, steps, n + 1);
        std::vector<int8_t> expected = planes;
        std::fill(expected.begin() + static_cast<ptrdiff_t>(steps[n].offset), expected.end(),
                  kOldScratch);
        EXPECT_EQ(run.scratch, expected);
        EXPECT_EQ(run.dst, std::vector<int8_t>(run.dst.size(), kOldDst));
    }
}

TEST_F(DepthwisePadding, ReportsInFull) {
    // The table of messages, spelled out: the first channel's steps of one row of one pixel.
    shape_ = Shape(1, 1, 1, 1);
    data_ = LivelyData(kDepthwiseConv, shape_, 12);
    EXPECT_EQ(RunFailing(kPlain, 1, 34, true).text,
              "[ERR] ../compute_a/convolutiondepthwise_3x3_int8:73 memset_s dst failed: 34\n"
              "[ERR] ../compute_a/convolutiondepthwise_3x3_int8:81 memset_s dst failed: 34\n"
              "[ERR] ../compute_a/convolutiondepthwise_3x3_int8:85 memset_s dst failed: 34\n"
              "[ERR] ../compute_a/convolutiondepthwise_3x3_int8:90 memset_s dst failed: 34\n"
              "[ERR] ../compute_a/convolutiondepthwise_3x3_int8:97 memset_s dst failed: 34\n");
    const char* const relu[] = {"[ERR] ../compute_a/arma_dwconv:66 memset_s dst failed: 22\n",
                                "[ERR] ../compute_a/arma_dwconv:77 memset_s dst failed: 22\n",
                                "[ERR] ../compute_a/arma_dwconv:85 memcpy_s dst failed: 22\n",
                                "[ERR] ../compute_a/arma_dwconv:94 memset_s dst failed: 22\n",
                                "[ERR] ../compute_a/arma_dwconv:104 memset_s dst failed: 22\n"};
    for (int n = 0; n < 5; ++n) {
        EXPECT_EQ(RunFailing(kRelu, n + 1, 22, false).text, relu[n]);
    }
}

TEST_F(DepthwisePadding, NoOutputChannelsEndTheCallAfterThePadding) {
    shape_.dstChannels = 0;
    for (const Kernel* kernel : {&kPlain, &kRelu}) {
        const std::vector<Step> steps = PaddingSteps(*kernel, shape_);
        const Outcome run = RunFailing(*kernel, 0, 0, false);
        ExpectSteps(*kernel, steps, steps.size());
        EXPECT_EQ(run.scratch, orvo_reference::PaddedPlanes(shape_, data_.src.data()));
        EXPECT_EQ(run.text, "");
    }
}

} // namespace
