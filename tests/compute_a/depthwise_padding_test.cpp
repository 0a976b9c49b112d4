// SPDX-License-Identifier: MIT
//
// The padding of the depthwise kernels: every bounded call, and what happens when it fails. With
// bounded functions that are not the library's own the padded planes are written as described.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "compute_a/depthwise_case.h"
#include "support/bounded_faults.h"
#include "support/stderr_capture.h"

namespace {

using namespace orvo_test;

TEST(DepthwisePaddingCalls, NoneWithoutPaddingOrForOtherShapes) {
    for (const Kernel* kernel : {&kPlain, &kRelu}) {
        for (const int kernelSize : {3, 1}) {
            ConvShape s = Shape(10, 6, 3, kernelSize == 3 ? 0 : 1);
            const ConvData data = LivelyData(*kernel->subject, s, 6);
            s.kernelSize = kernelSize;
            std::vector<int8_t> dst(orvo_reference::DstBytes(s));
            std::vector<int8_t> scratch(kernel->subject->scratchBytes(Shape(10, 6, 3, 1)));
            RecordBoundedCalls();
            Call(kernel->subject->kernel, s, data.src.data(), data.weights.data(), data.bias.data(),
                 dst.data(), scratch.data());
            EXPECT_TRUE(BoundedCalls().empty());
        }
    }
}

// The same results as without faults in front of the library's own functions.
TEST(DepthwisePaddingCalls, ResultsAreThoseOfTheDefinition) {
    for (const Kernel* kernel : {&kPlain, &kRelu}) {
        for (const int size : {1, 2, 6, 7, 24}) {
            const ConvShape s = Shape(size, size, 3, 1);
            EXPECT_TRUE(MatchesReference(*kernel->subject, s, LivelyData(*kernel->subject, s, 7)));
        }
    }
}

TEST(DepthwisePaddingCalls, EveryInputPlaneIsPaddedHoweverFewAreComputed) {
    for (const Kernel* kernel : {&kPlain, &kRelu}) {
        for (int dstChannels = 0; dstChannels <= 4; ++dstChannels) {
            ConvShape s = Shape(9, 3, 4, 1);
            s.dstChannels = dstChannels;
            const ConvData data = LivelyData(*kernel->subject, s, 7);
            std::vector<int8_t> dst(4 * 27);
            std::vector<int8_t> scratch(4 * 55, 77);
            Call(kernel->subject->kernel, s, data.src.data(), data.weights.data(), data.bias.data(),
                 dst.data(), scratch.data());
            EXPECT_EQ(scratch, orvo_reference::PaddedPlanes(s, data.src.data()));
        }
    }
}

// One bounded call of the padding stage as it should come.
struct Step {
    bool isCopy;
    size_t offset; // in the scratch
    size_t count;
    size_t srcOffset; // copies only
    size_t row;       // of all padded planes
    int line;
    const char* function; // as the report names it
};

std::vector<Step> PaddingSteps(const Kernel& kernel, const ConvShape& s) {
    std::vector<Step> steps;
    size_t at = 0;
    size_t from = 0;
    size_t row = 0;
    const size_t pad = static_cast<size_t>(s.pad);
    const size_t width = static_cast<size_t>(s.srcWidth);
    const auto fill = [&](size_t count, int line) {
        steps.push_back({false, at, count, 0, row, line, "memset_s"});
        at += count;
    };
    for (int c = 0; c < s.srcChannels; ++c) {
        for (int y = 0; y < s.pad; ++y, ++row) {
            fill(width + 2 * pad, kernel.topLine);
        }
        for (int y = 0; y < s.srcHeight; ++y, ++row) {
            fill(pad, kernel.leftLine);
            steps.push_back({true, at, width, from, row, kernel.rowLine, kernel.rowFunction});
            at += width;
            from += width;
            fill(pad, kernel.rightLine);
        }
        for (int y = 0; y < s.pad; ++y, ++row) {
            fill(width + 2 * pad, kernel.bottomLine);
        }
    }
    return steps;
}

// Without those that follow a failing one in its row.
std::vector<Step> StepsWithRowLeftAt(const std::vector<Step>& steps, size_t failing) {
    std::vector<Step> done;
    for (size_t i = 0; i < steps.size(); ++i) {
        if (i <= failing || steps[i].row != steps[failing].row) {
            done.push_back(steps[i]);
        }
    }
    return done;
}

// Those of which each is the first of its row.
std::vector<Step> FirstStepsOfRows(const std::vector<Step>& steps) {
    std::vector<Step> first;
    for (const Step& step : steps) {
        if (first.empty() || first.back().row != step.row) {
            first.push_back(step);
        }
    }
    return first;
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

TEST_F(DepthwisePadding, PlainKernelReportsAFailedPieceAndGoesOnWithTheNextRow) {
    const std::vector<Step> steps = PaddingSteps(kPlain, shape_);
    const std::vector<int8_t> planes = orvo_reference::PaddedPlanes(shape_, data_.src.data());
    for (size_t n = 0; n < steps.size(); ++n) {
        SCOPED_TRACE("failing call " + std::to_string(n));
        const int code = 1000 + static_cast<int>(n);
        const Outcome run = RunFailing(kPlain, static_cast<int>(n) + 1, code, false);
        EXPECT_EQ(run.text, Report(kPlain, steps[n], code));
        const std::vector<Step> done = StepsWithRowLeftAt(steps, n);
        ExpectSteps(kPlain, done, done.size());
        // The failed piece and the rest of its row keep their old bytes.
        std::vector<int8_t> expected = planes;
        for (size_t i = n; i < steps.size() && steps[i].row == steps[n].row; ++i) {
            std::fill_n(expected.begin() + static_cast<ptrdiff_t>(steps[i].offset), steps[i].count,
                        kOldScratch);
        }
        EXPECT_EQ(run.scratch, expected);
        EXPECT_EQ(run.dst, Walked(kPlain, expected));
    }
}

TEST_F(DepthwisePadding, PlainKernelReportsEveryRowThatFailsAndStillConvolves) {
    const std::vector<Step> steps = FirstStepsOfRows(PaddingSteps(kPlain, shape_));
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
    const char* const plain[] = {
        "[ERR] ../compute_a/convolutiondepthwise_3x3_int8:73 memset_s dst failed: 34\n",
        "[ERR] ../compute_a/convolutiondepthwise_3x3_int8:81 memset_s dst failed: 34\n",
        "[ERR] ../compute_a/convolutiondepthwise_3x3_int8:85 memset_s dst failed: 34\n",
        "[ERR] ../compute_a/convolutiondepthwise_3x3_int8:90 memset_s dst failed: 34\n",
        "[ERR] ../compute_a/convolutiondepthwise_3x3_int8:97 memset_s dst failed: 34\n"};
    for (int n = 0; n < 5; ++n) {
        EXPECT_EQ(RunFailing(kPlain, n + 1, 34, false).text, plain[n]);
    }
    EXPECT_EQ(RunFailing(kPlain, 1, 34, true).text,
              std::string(plain[0]) + plain[1] + plain[4]); // a report a row
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
