// SPDX-License-Identifier: MIT
//
// The depthwise kernels with the library's own bounded functions, given addresses that those
// refuse.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "compute_a/depthwise_case.h"
#include "support/stderr_capture.h"

namespace {

using namespace orvo_test;

constexpr int8_t kOld = 0x5A;

// What one call on 2 planes of 6 x 5 with a border of one leaves behind.
struct Outcome {
    std::vector<int8_t> dst;
    std::vector<int8_t> scratch;
    std::string text;
};

class DepthwiseNull : public ::testing::Test {
  protected:
    DepthwiseNull() { data_ = LivelyData(kDepthwiseConv, shape_, 3); }

    Outcome Run(const Kernel& kernel, bool hasSource, bool hasScratch) {
        Outcome run;
        run.dst.assign(2 * 30, kOld);
        run.scratch.assign(2 * 56, kOld);
        StderrCapture capture;
        Call(kernel.subject->kernel, shape_, hasSource ? data_.src.data() : nullptr,
             data_.weights.data(), data_.bias.data(), run.dst.data(),
             hasScratch ? run.scratch.data() : nullptr);
        run.text = capture.text();
        return run;
    }

    ConvShape shape_ = Shape(6, 5, 2, 1);
    ConvData data_;
    const std::vector<int8_t> untouched_ = std::vector<int8_t>(2 * 30, kOld);
};

std::string Report(const Kernel& kernel, int line, const std::string& function) {
    return std::string("[ERR] ") + kernel.unit + ":" + std::to_string(line) + " " + function +
           " dst failed: 22\n";
}

std::string Repeated(const std::string& text, int times) {
    std::string all;
    while (times-- > 0) {
        all += text;
    }
    return all;
}

TEST_F(DepthwiseNull, WithoutScratchTheRectifyingKernelReportsTheFirstRowAndReturns) {
    const Outcome run = Run(kRelu, true, false);
    EXPECT_EQ(run.text, Report(kRelu, 66, "memset_s"));
    EXPECT_EQ(run.dst, untouched_);
}

TEST_F(DepthwiseNull, WithoutSourceTheRectifyingKernelReportsTheCopyAndReturns) {
    const Outcome run = Run(kRelu, false, true);
    EXPECT_EQ(run.text, Report(kRelu, 85, "memcpy_s"));
    EXPECT_EQ(run.dst, untouched_);
}

// A report for each row of both planes: one above, five, one below.
TEST_F(DepthwiseNull, WithoutScratchThePlainKernelReportsEveryRow) {
    const Outcome run = Run(kPlain, true, false);
    EXPECT_EQ(run.text, Repeated(Report(kPlain, 73, "memset_s") +
                                     Repeated(Report(kPlain, 81, "memset_s"), 5) +
                                     Report(kPlain, 97, "memset_s"),
                                 2));
    EXPECT_EQ(run.dst, untouched_);
}

TEST_F(DepthwiseNull, WithoutSourceThePlainKernelReportsEveryCopyAndConvolvesWhatThereIs) {
    const Outcome run = Run(kPlain, false, true);
    EXPECT_EQ(run.text, Repeated(Report(kPlain, 85, "memset_s"), 10));
    // Above, below and at the left there are zeros; the rest of each row is as it was.
    std::vector<int8_t> planes(2 * 56, 0);
    for (size_t row = 0; row < 14; ++row) {
        if (row % 7 != 0 && row % 7 != 6) {
            std::fill_n(planes.begin() + static_cast<ptrdiff_t>(8 * row + 1), 7, kOld);
        }
    }
    EXPECT_EQ(run.scratch, planes);
    std::vector<int8_t> expected(2 * 30);
    orvo_reference::WalkDepthwisePlanes(shape_, false, planes.data(), data_.weights.data(),
                                        data_.bias.data(), expected.data());
    EXPECT_EQ(run.dst, expected);
}

TEST_F(DepthwiseNull, NoOutputChannelsEndTheCallAfterThePadding) {
    shape_.dstChannels = 0;
    for (const Kernel* kernel : {&kPlain, &kRelu}) {
        const Outcome run = Run(*kernel, true, true);
        EXPECT_EQ(run.scratch, orvo_reference::PaddedPlanes(shape_, data_.src.data()));
        EXPECT_EQ(run.dst, untouched_);
        EXPECT_EQ(run.text, "");
    }
}

} // namespace
