// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <iterator>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "compute_a/network_layers.h"
#include "orvo/q7_kernels.h"
#include "reference/reference_conv.h"
#include "support/bounded_faults.h"
#include "support/guarded_buffer.h"
#include "support/random.h"
#include "support/stderr_capture.h"

namespace {

using namespace orvo_test;
using orvo_reference::ConvShape;
using orvo_reference::DotLength;
using orvo_reference::DstBytes;
using orvo_reference::SrcBytes;

using HwcKernel = decltype(&ArmAConvHWCQ7Naive);

struct Subject {
    const char* name;
    HwcKernel kernel;
};

constexpr Subject kNaive = {"Naive", ArmAConvHWCQ7Naive};
constexpr Subject kNaive1 = {"Naive1", ArmAConvHWCQ7Naive1};
constexpr Subject kNaive2 = {"Naive2", ArmAConvHWCQ7Naive2};
constexpr Subject kAll[] = {kNaive, kNaive1, kNaive2};

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
    s.outShift = 10;
    return s;
}

size_t Im2colBytes(const ConvShape& s) {
    return s.dstHeight < 1
               ? 0
               : DotLength(s) * static_cast<size_t>(s.dstWidth) * static_cast<size_t>(s.dstHeight);
}

struct Data {
    std::vector<int8_t> src;
    std::vector<int8_t> weights; // natural order
    std::vector<int32_t> bias;
};

Data RandomData(const ConvShape& s, uint64_t seed) {
    Random random(seed);
    Data data;
    data.src.resize(SrcBytes(s));
    data.weights.resize(static_cast<size_t>(s.dstChannels) * DotLength(s));
    data.bias.resize(static_cast<size_t>(s.dstChannels));
    random.Fill(data.src.data(), data.src.size());
    random.Fill(data.weights.data(), data.weights.size());
    for (int32_t& b : data.bias) {
        b = random.Between(-20000, 20000);
    }
    return data;
}

Data UniformData(const ConvShape& s, int8_t input, int8_t weight, int32_t bias) {
    return {std::vector<int8_t>(SrcBytes(s), input),
            std::vector<int8_t>(static_cast<size_t>(s.dstChannels) * DotLength(s), weight),
            std::vector<int32_t>(static_cast<size_t>(s.dstChannels), bias)};
}

std::vector<int8_t> Rows(const ConvShape& s, const std::vector<int8_t>& natural) {
    std::vector<int8_t> rows(natural.size());
    orvo_reference::PackHwcWeights(natural.data(), s.dstChannels, s.srcChannels, s.kernelSize,
                                   rows.data(), rows.size());
    return rows;
}

int32_t Call(HwcKernel kernel, const ConvShape& s, const int8_t* src, const int8_t* weights,
             const int32_t* bias, int8_t* dst, int8_t* scratch, size_t scratchSize) {
    const auto u16 = [](auto value) { return static_cast<uint16_t>(value); };
    return kernel(src, u16(s.srcWidth), u16(s.srcHeight), u16(s.srcChannels), weights,
                  u16(s.dstChannels), u16(s.kernelSize), u16(s.pad), u16(s.stride), bias,
                  u16(s.outShift), dst, u16(s.dstWidth), static_cast<int16_t>(s.dstHeight), scratch,
                  static_cast<uint32_t>(scratchSize));
}

template <typename T>
void Load(GuardedBuffer& buffer, const std::vector<T>& data) {
    if (!data.empty()) {
        std::memcpy(buffer.bytes(), data.data(), data.size() * sizeof(T));
    }
    buffer.MakeReadOnly();
}

struct Outcome {
    int32_t status;
    std::vector<int8_t> dst;
    std::vector<int8_t> scratch;
};

constexpr int8_t kFresh = static_cast<int8_t>(0xA5); // what guarded memory holds at first

// All buffers between unmapped pages at their exact size, inputs read-only.
Outcome RunGuarded(HwcKernel kernel, const ConvShape& s, const Data& data, size_t scratchSize,
                   GuardedBuffer::Place place = GuardedBuffer::kAtEnd) {
    GuardedBuffer src(data.src.size(), place);
    GuardedBuffer weights(data.weights.size(), place);
    GuardedBuffer bias(data.bias.size() * sizeof(int32_t), place);
    const size_t dstSize = s.dstHeight < 1 ? 0 : DstBytes(s);
    GuardedBuffer dst(dstSize, place);
    GuardedBuffer scratch(scratchSize, place);
    Load(src, data.src);
    Load(weights, Rows(s, data.weights));
    Load(bias, data.bias);
    const int32_t status = Call(kernel, s, src.q7(), weights.q7(), bias.as<int32_t>(), dst.q7(),
                                scratch.q7(), scratchSize);
    return {status, {dst.q7(), dst.q7() + dstSize}, {scratch.q7(), scratch.q7() + scratchSize}};
}

void ExpectAllMatch(const ConvShape& s, const Data& data) {
    std::vector<int8_t> expected(DstBytes(s));
    orvo_reference::ConvolveHwc(s, data.src.data(), data.weights.data(), data.bias.data(),
                                expected.data());
    const std::vector<int8_t> columns = orvo_reference::Im2colHwc(s, data.src.data());
    ASSERT_EQ(columns.size(), Im2colBytes(s));
    for (const Subject& subject : kAll) {
        for (const GuardedBuffer::Place place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
            const Outcome run = RunGuarded(subject.kernel, s, data, columns.size(), place);
            EXPECT_EQ(run.status, 0) << subject.name;
            // Not EXPECT_EQ: that would print whole tensors.
            EXPECT_TRUE(run.dst == expected)
                << subject.name << ": dst differs, src " << s.srcChannels << "x" << s.srcHeight
                << "x" << s.srcWidth << " dst " << s.dstChannels << "x" << s.dstHeight << "x"
                << s.dstWidth << " kernel " << s.kernelSize << " pad " << s.pad << " stride "
                << s.stride << " shift " << s.outShift;
            EXPECT_TRUE(run.scratch == columns)
                << subject.name << ": columns differ, src " << s.srcChannels << "x" << s.srcHeight
                << "x" << s.srcWidth << " dst " << s.dstHeight << "x" << s.dstWidth << " kernel "
                << s.kernelSize << " pad " << s.pad << " stride " << s.stride;
        }
    }
}

void ExpectAllMatch(const ConvShape& s, uint64_t seed) { ExpectAllMatch(s, RandomData(s, seed)); }

// ---- Results ------------------------------------------------------------------------------------

void CheckLayers(std::span<const Layer> layers, int largestSize, int smallestSize) {
    int checked = 0;
    for (const Layer& layer : layers) {
        const bool dense =
            layer.kernel == LayerKernel::kGeneric || layer.kernel == LayerKernel::kPointwise;
        if (!dense || layer.size > largestSize || layer.size < smallestSize) {
            continue;
        }
        SCOPED_TRACE("layer " + std::to_string(layer.number));
        ConvShape s = ShapeOf(layer);
        // Random bytes deviate by 74: bring the sum of K products to about 40.
        s.outShift = static_cast<uint32_t>(
            std::lround(std::log2(74 * 74 * std::sqrt(static_cast<double>(DotLength(s))) / 40)));
        ExpectAllMatch(s, static_cast<uint64_t>(layer.number));
        ++checked;
    }
    EXPECT_GT(checked, 0);
}

TEST(ConvHwcLayers, AlignmentNetwork) { CheckLayers(kAlignLayers, 24, 6); }
TEST(ConvHwcLayers, RecognitionNetworkAt96And48) { CheckLayers(kRecognitionLayers, 96, 48); }
TEST(ConvHwcLayers, RecognitionNetworkAt24) { CheckLayers(kRecognitionLayers, 24, 24); }
TEST(ConvHwcLayers, RecognitionNetworkAt12) { CheckLayers(kRecognitionLayers, 12, 12); }
TEST(ConvHwcLayers, RecognitionNetworkAt6) { CheckLayers(kRecognitionLayers, 6, 6); }

TEST(ConvHwc, EveryTailOfChannels) {
    for (int dstChannels = 1; dstChannels <= 17; ++dstChannels) {
        ExpectAllMatch(Shape(3, 3, 3, dstChannels, 3, 1, 1), 1);
    }
    for (int srcChannels = 1; srcChannels <= 17; ++srcChannels) {
        ExpectAllMatch(Shape(3, 3, srcChannels, 6, 3, 1, 1), 2);
        ExpectAllMatch(Shape(5, 1, srcChannels, 6, 1, 0, 1), 2);
    }
}

TEST(ConvHwc, EveryTailOfPixels) {
    for (int pixels = 1; pixels <= 17; ++pixels) {
        ExpectAllMatch(Shape(pixels, 1, 5, 6, 1, 0, 1), 3);
        ExpectAllMatch(Shape(pixels, 1, 2, 6, 3, 1, 1), 3);
        ExpectAllMatch(Shape(1, pixels, 2, 6, 3, 1, 1), 3);
    }
}

TEST(ConvHwc, FivePixelsAndSixOutputChannels) {
    // A group of four pixels and one, a group of four channels and two: all three agree.
    const ConvShape s = Shape(5, 1, 3, 6, 1, 0, 1);
    ExpectAllMatch(s, 4);
    const Data data = RandomData(s, 4);
    const Outcome naive = RunGuarded(ArmAConvHWCQ7Naive, s, data, Im2colBytes(s));
    EXPECT_EQ(naive.dst, RunGuarded(ArmAConvHWCQ7Naive1, s, data, Im2colBytes(s)).dst);
    EXPECT_EQ(naive.dst, RunGuarded(ArmAConvHWCQ7Naive2, s, data, Im2colBytes(s)).dst);
}

TEST(ConvHwc, KernelSizesPadsAndStrides) {
    // Most of these break the footprint that the banded walk assumes of its interior.
    for (int kernelSize = 1; kernelSize <= 5; ++kernelSize) {
        for (int pad = 0; pad <= 3; ++pad) {
            for (int stride = 1; stride <= 3; ++stride) {
                ExpectAllMatch(Shape(8, 6, 2, 5, kernelSize, pad, stride), 5);
            }
        }
    }
}

TEST(ConvHwc, OutputsLargerThanTheInputReadZeros) {
    for (const int kernelSize : {1, 2, 3}) {
        for (const int pad : {0, 1, 2}) {
            for (const int stride : {1, 2}) {
                ConvShape s = Shape(4, 3, 2, 5, kernelSize, pad, stride);
                s.dstWidth = 9;
                s.dstHeight = 8;
                ExpectAllMatch(s, 6);
            }
        }
    }
}

TEST(ConvHwc, StrideOfZeroReadsOnePlaceForEveryPixel) {
    for (const int pad : {0, 1, 2}) {
        ConvShape s = Shape(4, 3, 2, 5, 3, pad, 1);
        s.stride = 0;
        s.dstWidth = 7;
        s.dstHeight = 6;
        ExpectAllMatch(s, 8);
    }
}

TEST(ConvHwc, OutputsSmallerThanTheirPadding) {
    for (int dstWidth = 1; dstWidth <= 7; ++dstWidth) {
        for (int dstHeight = 1; dstHeight <= 7; ++dstHeight) {
            ConvShape s = Shape(6, 6, 2, 5, 7, 3, 1);
            s.dstWidth = dstWidth;
            s.dstHeight = dstHeight;
            ExpectAllMatch(s, 7);
        }
    }
}

TEST(ConvHwc, SinglePixelColumnIsZerosThePixelAndZeros) {
    const ConvShape s = Shape(1, 1, 5, 3, 3, 1, 1);
    const Data data = RandomData(s, 8);
    std::vector<int8_t> column(45, 0);
    std::copy(data.src.begin(), data.src.end(), column.begin() + 20);
    for (const Subject& subject : kAll) {
        EXPECT_EQ(RunGuarded(subject.kernel, s, data, 45).scratch, column) << subject.name;
    }
    ExpectAllMatch(s, data);
}

TEST(ConvHwc, EveryShift) {
    std::vector<uint32_t> shifts = {32, 33, 40, 64, 255, 256, 65535};
    for (uint32_t shift = 0; shift < 32; ++shift) {
        shifts.push_back(shift);
    }
    for (const uint32_t shift : shifts) {
        ConvShape s = Shape(5, 1, 3, 6, 3, 1, 1);
        s.outShift = shift;
        Data data = RandomData(s, shift);
        ExpectAllMatch(s, data);
        Random random(shift);
        for (int32_t& b : data.bias) {
            const int32_t bound = shift >= 24 ? INT32_MAX : (1 << (shift + 7)) - 1;
            b = random.Between(-bound - 1, bound);
        }
        ExpectAllMatch(s, data);
    }
}

TEST(ConvHwc, ShiftOfZeroOnlyClamps) {
    ConvShape s = Shape(5, 1, 1, 6, 1, 0, 1);
    s.outShift = 0;
    Data data = UniformData(s, 2, 3, 0);
    data.bias = {0, 121, 122, -134, -135, -7};
    const std::vector<int8_t> pixel = {6, 127, 127, -128, -128, -1};
    std::vector<int8_t> expected;
    for (int i = 0; i < 5; ++i) {
        expected.insert(expected.end(), pixel.begin(), pixel.end());
    }
    for (const Subject& subject : kAll) {
        EXPECT_EQ(RunGuarded(subject.kernel, s, data, 5).dst, expected) << subject.name;
    }
}

TEST(ConvHwc, AllInputsAndWeightsAtTheirEndsAndSumsThatWrap) {
    ConvShape s = Shape(3, 3, 3, 6, 3, 1, 1);
    for (const uint32_t shift : {0u, 14u, 24u}) {
        s.outShift = shift;
        for (const int8_t input : {int8_t{-128}, int8_t{127}}) {
            for (const int8_t weight : {int8_t{-128}, int8_t{127}}) {
                for (const int32_t bias : {0, INT32_MAX, INT32_MIN}) {
                    ExpectAllMatch(s, UniformData(s, input, weight, bias));
                }
            }
        }
    }
    // In figures: one beyond the largest sum is the smallest.
    s.outShift = 24;
    for (const Subject& subject : kAll) {
        EXPECT_EQ(RunGuarded(subject.kernel, s, UniformData(s, 127, 127, INT32_MAX), 243).dst,
                  std::vector<int8_t>(54, -128));
        EXPECT_EQ(RunGuarded(subject.kernel, s, UniformData(s, 127, -128, INT32_MIN), 243).dst,
                  std::vector<int8_t>(54, 127));
    }
}

TEST(ConvHwc, OddAddresses) {
    const ConvShape s = Shape(5, 3, 3, 6, 3, 1, 1);
    const Data data = RandomData(s, 9);
    const std::vector<int8_t> rows = Rows(s, data.weights);
    std::vector<int8_t> expected(DstBytes(s));
    orvo_reference::ConvolveHwc(s, data.src.data(), data.weights.data(), data.bias.data(),
                                expected.data());
    for (const Subject& subject : kAll) {
        for (size_t offset = 1; offset < 8; offset += 2) {
            GuardedBuffer src(data.src.size() + offset, GuardedBuffer::kAtStart);
            GuardedBuffer weights(rows.size() + 8 - offset, GuardedBuffer::kAtStart);
            GuardedBuffer dst(expected.size() + offset, GuardedBuffer::kAtStart);
            GuardedBuffer scratch(Im2colBytes(s) + 8 - offset, GuardedBuffer::kAtStart);
            std::copy(data.src.begin(), data.src.end(), src.q7() + offset);
            std::copy(rows.begin(), rows.end(), weights.q7() + 8 - offset);
            EXPECT_EQ(Call(subject.kernel, s, src.q7() + offset, weights.q7() + 8 - offset,
                           data.bias.data(), dst.q7() + offset, scratch.q7() + 8 - offset,
                           Im2colBytes(s)),
                      0);
            EXPECT_EQ(std::vector<int8_t>(dst.q7() + offset, dst.q7() + dst.size()), expected)
                << subject.name;
        }
    }
}

TEST(ConvHwc, SpareScratchIsUntouched) {
    const ConvShape s = Shape(3, 3, 2, 5, 3, 1, 1);
    const Data data = RandomData(s, 10);
    for (const Subject& subject : kAll) {
        const Outcome run = RunGuarded(subject.kernel, s, data, Im2colBytes(s) + 50);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(std::count(run.scratch.end() - 50, run.scratch.end(), kFresh), 50);
    }
}

TEST(ConvHwc, NegativeHeightReturnsZeroAndWritesNothing) {
    for (const int dstHeight : {0, -1, -2, -32768}) {
        for (const auto& [kernelSize, pad] : {std::pair{3, 1}, {1, 0}}) {
            ConvShape s = Shape(4, 4, 2, 5, kernelSize, pad, 1);
            s.dstHeight = dstHeight;
            const Data data = RandomData(s, 11);
            const std::vector<int8_t> rows = Rows(s, data.weights);
            for (const Subject& subject : kAll) {
                std::vector<int8_t> dst(100, 77);
                std::vector<int8_t> scratch(1000, 77);
                StderrCapture capture;
                EXPECT_EQ(Call(subject.kernel, s, data.src.data(), rows.data(), data.bias.data(),
                               dst.data(), scratch.data(), scratch.size()),
                          0);
                EXPECT_EQ(std::count(dst.begin(), dst.end(), 77), 100);
                EXPECT_EQ(std::count(scratch.begin(), scratch.end(), 77), 1000);
                EXPECT_EQ(capture.text(), "");
            }
        }
    }
}

TEST(ConvHwc, NoOutputChannelsStillBuildTheColumns) {
    for (const auto& [kernelSize, pad] : {std::pair{3, 1}, {1, 0}}) {
        ExpectAllMatch(Shape(4, 4, 2, 0, kernelSize, pad, 1), 12);
    }
}

TEST(ConvHwc, NoColumnsReturnZero) {
    ConvShape s = Shape(4, 4, 2, 5, 3, 1, 1);
    s.dstWidth = 0;
    ExpectAllMatch(s, 13);
}

TEST(ConvHwc, NoInputChannelsOrKernelGiveTheShiftedBias) {
    for (const auto& [srcChannels, kernelSize, pad] : {std::tuple{0, 3, 1}, {0, 1, 0}, {2, 0, 0}}) {
        ConvShape s = Shape(5, 1, srcChannels, 6, kernelSize, pad, 1);
        s.dstWidth = 5;
        s.dstHeight = 1;
        s.outShift = 4;
        Data data = RandomData(s, 14);
        data.bias = {0, 160, -1, -17, INT32_MAX, INT32_MIN};
        std::vector<int8_t> expected;
        for (int i = 0; i < 5; ++i) {
            for (const int8_t value : {0, 10, -1, -2, 127, -128}) {
                expected.push_back(value);
            }
        }
        for (const Subject& subject : kAll) {
            const Outcome run = RunGuarded(subject.kernel, s, data, 0);
            EXPECT_EQ(run.status, 0) << subject.name;
            EXPECT_EQ(run.dst, expected) << subject.name;
        }
    }
}

TEST(ConvHwc, DotProductLengthIsTakenModulo65536) {
    // 9 * 7282 = 65538: one column and one weight row of that length, of which two bytes count.
    ConvShape s = Shape(3, 3, 7282, 1, 3, 0, 1);
    s.outShift = 0;
    Data data = UniformData(s, 1, 1, 0);
    for (const Subject& subject : kAll) {
        EXPECT_EQ(RunGuarded(subject.kernel, s, data, 65538).dst, std::vector<int8_t>{2})
            << subject.name;
    }
}

// ---- Failures -----------------------------------------------------------------------------------

// One bounded call of the im2col step as it should come.
struct Step {
    bool isCopy;
    size_t count;
    size_t srcOffset; // copies only
    int line;
};

struct Lines {
    int fill;
    int copy;
};

// The taps of one output position, each checked against the input. A kernel row outside the input
// is as many runs of zeros as it has taps.
void AddCheckedTaps(std::vector<Step>& steps, const ConvShape& s, int oy, int ox, Lines lines) {
    const size_t channels = static_cast<size_t>(s.srcChannels);
    for (int ky = 0; ky < s.kernelSize; ++ky) {
        for (int kx = 0; kx < s.kernelSize; ++kx) {
            const int y = oy * s.stride + ky - s.pad;
            const int x = ox * s.stride + kx - s.pad;
            if (y < 0 || y >= s.srcHeight || x < 0 || x >= s.srcWidth) {
                steps.push_back({false, channels, 0, lines.fill});
            } else {
                steps.push_back({true, channels, channels * static_cast<size_t>(y * s.srcWidth + x),
                                 lines.copy});
            }
        }
    }
}

std::vector<Step> PlainSteps(const ConvShape& s, Lines lines) {
    std::vector<Step> steps;
    for (int oy = 0; oy < s.dstHeight; ++oy) {
        for (int ox = 0; ox < s.dstWidth; ++ox) {
            AddCheckedTaps(steps, s, oy, ox, lines);
        }
    }
    return steps;
}

// For the usual geometry, where every interior footprint lies inside the input.
std::vector<Step> BandedSteps(const ConvShape& s) {
    std::vector<Step> steps;
    const size_t channels = static_cast<size_t>(s.srcChannels);
    const auto pixel = [&](int y, int x) {
        return channels * static_cast<size_t>(y * s.srcWidth + x);
    };
    for (int oy = 0; oy < s.dstHeight; ++oy) {
        for (int ox = 0; ox < s.dstWidth; ++ox) {
            if (s.pad == 0 && s.kernelSize == 1 && s.stride == 1) {
                steps.push_back({true, channels, pixel(oy, ox), 2096});
            } else if (oy < s.pad) {
                AddCheckedTaps(steps, s, oy, ox, {1970, 1978});
            } else if (oy >= s.dstHeight - s.pad) {
                AddCheckedTaps(steps, s, oy, ox, {2072, 2079});
            } else if (ox < s.pad) {
                AddCheckedTaps(steps, s, oy, ox, {2001, 2008});
            } else if (ox >= s.dstWidth - s.pad) {
                AddCheckedTaps(steps, s, oy, ox, {2044, 2051});
            } else {
                for (int ky = 0; ky < s.kernelSize; ++ky) {
                    steps.push_back({true, channels * static_cast<size_t>(s.kernelSize),
                                     pixel(oy * s.stride + ky - s.pad, ox * s.stride - s.pad),
                                     2026});
                }
            }
        }
    }
    return steps;
}

std::vector<Step> Steps(const Subject& subject, const ConvShape& s) {
    if (subject.kernel == kNaive.kernel) {
        return PlainSteps(s, {1886, 1894});
    }
    return subject.kernel == kNaive1.kernel ? BandedSteps(s) : PlainSteps(s, {2259, 2267});
}

std::string Report(const Step& step, int code) {
    return "[ERR] ../compute_a/arma_conv:" + std::to_string(step.line) + " " +
           (step.isCopy ? "memcpy_s" : "memset_s") + " tmpBuffer failed: " + std::to_string(code) +
           "\n";
}

const ConvShape kUsualShapes[] = {
    Shape(5, 4, 2, 3, 3, 1, 1), // all bands, all columns
    Shape(5, 5, 1, 3, 5, 2, 1), // one interior pixel
    Shape(3, 3, 2, 3, 5, 2, 1), // no interior: the top and the bottom band overlap
    Shape(2, 5, 2, 3, 3, 1, 1), // middle rows without interior columns
    Shape(1, 1, 3, 3, 3, 1, 1), // the top band alone
    Shape(4, 3, 3, 3, 1, 0, 1), // a copy per pixel
    Shape(4, 4, 2, 3, 2, 0, 1), // interior alone
    Shape(5, 5, 2, 3, 1, 0, 2),
};

class ConvHwcFailures : public ::testing::TestWithParam<Subject> {
  protected:
    // Runs on buffers whose addresses are known, with the n-th bounded call failing (0: none).
    void RunRecorded(const ConvShape& s, const Data& data, size_t scratchSize, int failing,
                     int code) {
        const std::vector<int8_t> rows = Rows(s, data.weights);
        dst_.assign(DstBytes(s), 77);
        scratch_.assign(std::max<size_t>(scratchSize, 1), 77);
        StderrCapture capture;
        RecordBoundedCalls();
        if (failing != 0) {
            FailBoundedCall(failing, code);
        }
        status_ = Call(GetParam().kernel, s, data.src.data(), rows.data(), data.bias.data(),
                       dst_.data(), scratch_.data(), scratchSize);
        text_ = capture.text();
        StopBoundedFaults();
    }

    // The recorded calls are the first `count` steps, each bounded by the space still free.
    void ExpectSteps(const Data& data, const std::vector<Step>& steps, size_t count,
                     size_t scratchSize) {
        const std::vector<BoundedCall>& calls = BoundedCalls();
        ASSERT_EQ(calls.size(), count);
        size_t at = 0;
        for (size_t i = 0; i < count; ++i) {
            SCOPED_TRACE("call " + std::to_string(i));
            EXPECT_EQ(calls[i].isCopy, steps[i].isCopy);
            EXPECT_EQ(calls[i].dst, scratch_.data() + at);
            EXPECT_EQ(calls[i].dstSize, scratchSize - at);
            EXPECT_EQ(calls[i].count, steps[i].count);
            if (steps[i].isCopy) {
                EXPECT_EQ(calls[i].src, data.src.data() + steps[i].srcOffset);
            } else {
                EXPECT_EQ(calls[i].value, 0);
            }
            at += steps[i].count;
        }
    }

    // The call failed at this step: code and line passed on, dst unwritten, the columns built so
    // far.
    void ExpectFailedAt(const ConvShape& s, const Data& data, const std::vector<Step>& steps,
                        size_t failed, int code) {
        EXPECT_EQ(status_, code);
        EXPECT_EQ(text_, Report(steps[failed], code));
        EXPECT_EQ(std::count(dst_.begin(), dst_.end(), 77), static_cast<ptrdiff_t>(dst_.size()));
        size_t built = 0;
        for (size_t i = 0; i < failed; ++i) {
            built += steps[i].count;
        }
        std::vector<int8_t> expected = orvo_reference::Im2colHwc(s, data.src.data());
        expected.resize(built);
        expected.resize(scratch_.size(), 77);
        EXPECT_EQ(scratch_, expected);
    }

    std::vector<int8_t> dst_;
    std::vector<int8_t> scratch_;
    std::string text_;
    int32_t status_ = 0;
};

TEST_P(ConvHwcFailures, CallsInOrderBoundedByTheSpaceStillFree) {
    for (const ConvShape& s : kUsualShapes) {
        const Data data = RandomData(s, 15);
        const std::vector<Step> steps = Steps(GetParam(), s);
        const size_t size = Im2colBytes(s) + 3;
        RunRecorded(s, data, size, 0, 0);
        EXPECT_EQ(status_, 0);
        EXPECT_EQ(text_, "");
        ExpectSteps(data, steps, steps.size(), size);
    }
}

TEST_P(ConvHwcFailures, EveryFailedStepEndsTheCallWithItsCodeAndLine) {
    for (const ConvShape& s : kUsualShapes) {
        SCOPED_TRACE("kernel " + std::to_string(s.kernelSize) + " pad " + std::to_string(s.pad));
        const Data data = RandomData(s, 16);
        const std::vector<Step> steps = Steps(GetParam(), s);
        for (size_t n = 0; n < steps.size(); ++n) {
            SCOPED_TRACE("failing call " + std::to_string(n));
            const int code = n % 2 == 0 ? 1000 + static_cast<int>(n) : -1 - static_cast<int>(n);
            RunRecorded(s, data, Im2colBytes(s), static_cast<int>(n) + 1, code);
            ExpectSteps(data, steps, n + 1, Im2colBytes(s));
            ExpectFailedAt(s, data, steps, n, code);
        }
    }
}

TEST_P(ConvHwcFailures, EveryFailedStepEndsTheCallInOddGeometriesToo) {
    // Interior footprints that leave the input: how they are cut into steps is the kernel's affair.
    ConvShape larger = Shape(4, 3, 2, 3, 2, 0, 1);
    larger.dstWidth = 6;
    larger.dstHeight = 5;
    for (const ConvShape& s : {larger, Shape(6, 5, 2, 3, 3, 2, 1), Shape(5, 5, 2, 3, 2, 1, 2)}) {
        const Data data = RandomData(s, 20);
        RunRecorded(s, data, Im2colBytes(s), 0, 0);
        ASSERT_EQ(status_, 0);
        const std::vector<BoundedCall> calls = BoundedCalls();
        ASSERT_GT(calls.size(), 0u);
        for (size_t n = 0; n < calls.size(); ++n) {
            SCOPED_TRACE("failing call " + std::to_string(n));
            RunRecorded(s, data, Im2colBytes(s), static_cast<int>(n) + 1, 99);
            EXPECT_EQ(status_, 99);
            EXPECT_EQ(BoundedCalls().size(), n + 1);
            EXPECT_EQ(std::count(dst_.begin(), dst_.end(), 77),
                      static_cast<ptrdiff_t>(dst_.size()));
            EXPECT_EQ(text_.rfind("[ERR] ../compute_a/arma_conv:", 0), 0u) << text_;
            const std::string rest = calls[n].isCopy ? " memcpy_s tmpBuffer failed: 99\n"
                                                     : " memset_s tmpBuffer failed: 99\n";
            ASSERT_GT(text_.size(), rest.size());
            EXPECT_EQ(text_.substr(text_.size() - rest.size()), rest);
            EXPECT_EQ(std::count(text_.begin(), text_.end(), '\n'), 1);
        }
    }
}

TEST_P(ConvHwcFailures, EveryShortScratchFailsAtTheStepThatDoesNotFit) {
    for (const ConvShape& s : kUsualShapes) {
        SCOPED_TRACE("kernel " + std::to_string(s.kernelSize) + " pad " + std::to_string(s.pad));
        const Data data = RandomData(s, 17);
        const std::vector<Step> steps = Steps(GetParam(), s);
        for (size_t size = 0; size < Im2colBytes(s); ++size) {
            size_t failed = 0;
            for (size_t at = 0; at + steps[failed].count <= size; ++failed) {
                at += steps[failed].count;
            }
            RunRecorded(s, data, size, 0, 0);
            ExpectFailedAt(s, data, steps, failed, ERANGE);
        }
    }
}

TEST_P(ConvHwcFailures, OneByteShortFailsAtTheLastStep) {
    // The last step fills when the last tap is padding and copies when it is not.
    for (const ConvShape& s : {Shape(5, 4, 2, 3, 3, 1, 1), Shape(4, 3, 3, 3, 1, 0, 1)}) {
        const Data data = RandomData(s, 18);
        const std::vector<Step> steps = Steps(GetParam(), s);
        EXPECT_EQ(steps.back().isCopy, s.pad == 0);
        StderrCapture capture;
        const Outcome run = RunGuarded(GetParam().kernel, s, data, Im2colBytes(s) - 1);
        EXPECT_EQ(run.status, ERANGE);
        EXPECT_EQ(capture.text(), Report(steps.back(), ERANGE));
        EXPECT_EQ(run.dst, std::vector<int8_t>(DstBytes(s), kFresh));
    }
}

TEST_P(ConvHwcFailures, EveryLineOfTheKernelOccurs) {
    // The shapes above reach every step that has a line of its own.
    std::vector<std::pair<bool, int>> seen; // copy or fill, line
    for (const ConvShape& s : kUsualShapes) {
        for (const Step& step : Steps(GetParam(), s)) {
            seen.emplace_back(step.isCopy, step.line);
        }
    }
    std::sort(seen.begin(), seen.end());
    seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
    using Expected = std::vector<std::pair<bool, int>>;
    if (GetParam().kernel == kNaive.kernel) {
        EXPECT_EQ(seen, (Expected{{false, 1886}, {true, 1894}}));
    } else if (GetParam().kernel == kNaive1.kernel) {
        EXPECT_EQ(seen, (Expected{{false, 1970},
                                  {false, 2001},
                                  {false, 2044},
                                  {false, 2072},
                                  {true, 1978},
                                  {true, 2008},
                                  {true, 2026},
                                  {true, 2051},
                                  {true, 2079},
                                  {true, 2096}}));
    } else {
        EXPECT_EQ(seen, (Expected{{false, 2259}, {true, 2267}}));
    }
}

INSTANTIATE_TEST_SUITE_P(, ConvHwcFailures, ::testing::ValuesIn(kAll),
                         [](const auto& test) { return test.param.name; });

// ---- Dot products -------------------------------------------------------------------------------

int32_t PlainDot(const int8_t* a, const int8_t* b, size_t length) {
    uint32_t sum = 0;
    for (size_t i = 0; i < length; ++i) {
        sum += static_cast<uint32_t>(a[i] * b[i]);
    }
    return static_cast<int32_t>(sum);
}

TEST(MultAccumulate, LengthsUpToFortyEqualAPlainLoop) {
    for (const GuardedBuffer::Place place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
        for (uint32_t length = 0; length <= 40; ++length) {
            GuardedBuffer a(length, place);
            GuardedBuffer b(length, place);
            Random random(length);
            random.Fill(a.q7(), length);
            random.Fill(b.q7(), length);
            a.MakeReadOnly();
            b.MakeReadOnly();
            EXPECT_EQ(MultAccumulate(a.q7(), b.q7(), length), PlainDot(a.q7(), b.q7(), length))
                << length;
        }
    }
}

TEST(MultAccumulate, ThirteenElements) {
    const int8_t a[13] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13};
    const int8_t b[13] = {1, -1, 1, -1, 1, -1, 1, -1, 1, -1, 1, -1, 100};
    EXPECT_EQ(MultAccumulate(a, b, 13), -6 + 1300);
}

TEST(MultAccumulate, LengthOfZeroReadsNothing) {
    EXPECT_EQ(MultAccumulate(nullptr, nullptr, 0), 0);
}

TEST(MultAccumulate, ExtremesAndSumsThatWrap) {
    const std::vector<int8_t> low(200000, -128);
    const std::vector<int8_t> high(200000, 127);
    for (uint32_t length = 0; length <= 40; ++length) {
        const int32_t n = static_cast<int32_t>(length);
        EXPECT_EQ(MultAccumulate(low.data(), low.data(), length), 16384 * n);
        EXPECT_EQ(MultAccumulate(high.data(), high.data(), length), 16129 * n);
        EXPECT_EQ(MultAccumulate(low.data(), high.data(), length), -16256 * n);
    }
    EXPECT_EQ(MultAccumulate(low.data(), low.data(), 131071), 131071 * 16384);
    EXPECT_EQ(MultAccumulate(low.data(), low.data(), 131072), INT32_MIN);
    EXPECT_EQ(MultAccumulate(low.data(), low.data(), 200000), -1018167296); // 3276800000 - 2^32
    EXPECT_EQ(MultAccumulate(low.data(), high.data(), 200000), 1043767296);
}

TEST(MultAccumulate, OddAddresses) {
    std::vector<int8_t> a(64);
    std::vector<int8_t> b(64);
    Random random(19);
    random.Fill(a.data(), a.size());
    random.Fill(b.data(), b.size());
    for (size_t i = 0; i < 16; ++i) {
        for (size_t j = 0; j < 16; ++j) {
            EXPECT_EQ(MultAccumulate(a.data() + i, b.data() + j, 37),
                      PlainDot(a.data() + i, b.data() + j, 37));
        }
    }
}

TEST(MultAccumulate4, LengthsUpToFortyEqualAPlainLoop) {
    for (const GuardedBuffer::Place place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
        for (uint16_t length = 0; length <= 40; ++length) {
            GuardedBuffer v0(length, place), v1(length, place), v2(length, place),
                v3(length, place), b(length, place), result(16, place);
            Random random(length);
            for (GuardedBuffer* buffer : {&v0, &v1, &v2, &v3, &b}) {
                random.Fill(buffer->q7(), length);
                buffer->MakeReadOnly();
            }
            MultAccumulate4(v0.q7(), v1.q7(), v2.q7(), v3.q7(), b.q7(), length,
                            result.as<int32_t>());
            EXPECT_EQ(result.as<int32_t>()[0], PlainDot(v0.q7(), b.q7(), length));
            EXPECT_EQ(result.as<int32_t>()[1], PlainDot(v1.q7(), b.q7(), length));
            EXPECT_EQ(result.as<int32_t>()[2], PlainDot(v2.q7(), b.q7(), length));
            EXPECT_EQ(result.as<int32_t>()[3], PlainDot(v3.q7(), b.q7(), length));
        }
    }
}

TEST(MultAccumulate4, ExtremesUpToTheLongestLength) {
    const std::vector<int8_t> low(65535, -128);
    const std::vector<int8_t> high(65535, 127);
    for (const int32_t n : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 31, 32, 65534, 65535}) {
        int32_t result[4] = {7, 7, 7, 7};
        const uint16_t length = static_cast<uint16_t>(n);
        MultAccumulate4(low.data(), high.data(), low.data(), high.data(), low.data(), length,
                        result);
        EXPECT_EQ(result[0], 16384 * n);
        EXPECT_EQ(result[1], -16256 * n);
        EXPECT_EQ(result[2], 16384 * n);
        EXPECT_EQ(result[3], -16256 * n);
        MultAccumulate4(high.data(), high.data(), high.data(), low.data(), high.data(), length,
                        result);
        EXPECT_EQ(result[0], 16129 * n);
        EXPECT_EQ(result[3], -16256 * n);
    }
}

} // namespace
