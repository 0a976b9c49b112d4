// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <stdexcept>
#include <utility>
#include <vector>

#include "compute_a/chw_case.h"
#include "support/stderr_capture.h"

namespace {

using namespace orvo_test;

ConvShape Shape(int width, int height, int srcChannels, int dstChannels) {
    ConvShape s;
    s.srcWidth = s.dstWidth = width;
    s.srcHeight = s.dstHeight = height;
    s.srcChannels = srcChannels;
    s.dstChannels = dstChannels;
    s.outShift = LivelyShift(orvo_reference::DotLength(s));
    return s;
}

::testing::AssertionResult Matches(const ConvShape& shape, uint64_t seed) {
    return MatchesReference(kPointwiseConv, shape, LivelyData(kPointwiseConv, shape, seed));
}

TEST(PointwisePacking, GroupsAndLeftoversSixteenTimesSApart) {
    // Three inputs: S = 3, spacing 48. Six outputs: a group at 0, single channels at 48 and 96.
    std::vector<int8_t> natural;
    for (int o = 0; o < 6; ++o) {
        for (int c = 0; c < 3; ++c) {
            natural.push_back(static_cast<int8_t>(10 * o + c));
        }
    }
    std::vector<int8_t> expected(99, -1);
    const int8_t group[12] = {0, 10, 20, 30, 1, 11, 21, 31, 2, 12, 22, 32};
    std::copy(group, group + 12, expected.begin());
    for (int c = 0; c < 3; ++c) {
        expected[static_cast<size_t>(48 + c)] = static_cast<int8_t>(40 + c);
        expected[static_cast<size_t>(96 + c)] = static_cast<int8_t>(50 + c);
    }
    ASSERT_EQ(orvo_reference::PackedPointwiseWeightsSize(6, 3), 99u);
    std::vector<int8_t> packed(99, -1);
    orvo_reference::PackPointwiseWeights(natural.data(), 6, 3, packed.data(), packed.size());
    EXPECT_EQ(packed, expected);
}

TEST(PointwisePacking, RefusesAnArrayThatIsTooSmall) {
    const std::vector<int8_t> natural(6 * 3);
    std::vector<int8_t> packed(98);
    EXPECT_THROW(
        orvo_reference::PackPointwiseWeights(natural.data(), 6, 3, packed.data(), packed.size()),
        std::length_error);
}

TEST(PointwiseLayers, AlignmentNetwork) {
    CheckLayers(kPointwiseConv, LayerKernel::kPointwise, kAlignLayers);
}

TEST(PointwiseLayers, RecognitionNetworkAt48And24) {
    std::vector<Layer> layers(std::begin(kRecognitionLayers), std::end(kRecognitionLayers));
    std::erase_if(layers, [](const Layer& layer) { return layer.size < 24; });
    CheckLayers(kPointwiseConv, LayerKernel::kPointwise, layers);
}

TEST(PointwiseLayers, RecognitionNetworkAt12And6) {
    std::vector<Layer> layers(std::begin(kRecognitionLayers), std::end(kRecognitionLayers));
    std::erase_if(layers, [](const Layer& layer) { return layer.size >= 24; });
    CheckLayers(kPointwiseConv, LayerKernel::kPointwise, layers);
}

TEST(Pointwise, EveryTailOfOutputAndInputChannels) {
    for (int dstChannels = 1; dstChannels <= 17; ++dstChannels) {
        for (int srcChannels = 1; srcChannels <= 17; ++srcChannels) {
            EXPECT_TRUE(Matches(Shape(13, 1, srcChannels, dstChannels), 1));
        }
    }
}

TEST(Pointwise, EveryTailOfPixels) {
    for (int pixels = 1; pixels <= 33; ++pixels) {
        for (const int srcChannels : {1, 2, 3, 4, 16, 17, 33}) {
            EXPECT_TRUE(Matches(Shape(pixels, 1, srcChannels, 7), 2));
        }
        for (int dstChannels = 1; dstChannels <= 9; ++dstChannels) {
            EXPECT_TRUE(Matches(Shape(pixels, 1, 5, dstChannels), 3));
        }
    }
}

TEST(Pointwise, OddSizes) {
    for (int width = 1; width <= 11; width += 2) {
        for (int height = 1; height <= 11; ++height) {
            EXPECT_TRUE(Matches(Shape(width, height, 6, 6), 4));
        }
    }
}

TEST(Pointwise, ManyInputChannelsWithEveryKindOfPixelTail) {
    for (const int srcChannels : {63, 64, 65, 128, 131, 256, 257}) {
        for (const int pixels : {5, 16, 17, 64, 80, 81, 145}) {
            EXPECT_TRUE(Matches(Shape(pixels, 1, srcChannels, 21), static_cast<uint64_t>(pixels)));
        }
    }
}

// More pixels than are packed at a time, with every number of single vectors behind the last ones.
TEST(Pointwise, MoreInputChannelsThanAnyLayerHas) {
    for (const int srcChannels : {500, 505, 513, 1021, 1024, 1025}) {
        for (const int pixels : {36, 80}) {
            EXPECT_TRUE(Matches(Shape(pixels, 1, srcChannels, 11), 5));
        }
    }
}

TEST(Pointwise, ManyPixelsWithEveryKindOfTail) {
    for (const int srcChannels : {32, 64, 100, 192}) {
        for (const int pixels : {300, 320, 577, 1040}) {
            EXPECT_TRUE(Matches(Shape(pixels, 1, srcChannels, 37), static_cast<uint64_t>(pixels)));
        }
    }
}

TEST(Pointwise, EveryHeightOfATileOfChannels) {
    for (int dstChannels = 1; dstChannels <= 50; ++dstChannels) {
        EXPECT_TRUE(Matches(Shape(100, 1, 40, dstChannels), static_cast<uint64_t>(dstChannels)));
    }
}

TEST(Pointwise, ManyChannelsOnBothSides) {
    EXPECT_TRUE(Matches(Shape(9, 9, 256, 261), 1));
    EXPECT_TRUE(Matches(Shape(12, 12, 128, 300), 2));
}

// Which rows have large weights.
enum class Large { kAll, kFirstHalf, kSecondHalf, kTwoInTheMidst };

bool IsLarge(Large large, int row, int rows) {
    switch (large) {
        case Large::kAll:
            return true;
        case Large::kFirstHalf:
            return row < rows / 2;
        case Large::kSecondHalf:
            return row >= rows / 2;
        case Large::kTwoInTheMidst:
            return row / 2 == rows / 4;
    }
    return false;
}

// Sums as far from zero as inputs between `lowest` and `highest` can bring them, and some in between: a path may
// keep sums in 16 bits as long as weights and inputs allow.
::testing::AssertionResult ReachesItsEnds(ConvShape shape, int magnitude, Large large, int lowest,
                                          int highest) {
    const int rows = shape.srcChannels;
    const int pixels = shape.srcWidth * shape.srcHeight;
    ConvData data = UniformData(kPointwiseConv, shape, 0, 0, 0);
    for (int row = 0; row < rows; ++row) {
        for (int i = 0; i < pixels; ++i) {
            const bool isHighest = i % 4 == 0 || (i % 4 == 1 && row % 2 == 0);
            const int value = i % 4 == 3 ? (lowest + highest) / 2 : isHighest ? highest : lowest;
            data.src[static_cast<size_t>(row * pixels + i)] = static_cast<int8_t>(value);
        }
        for (int c = 0; c < shape.dstChannels; ++c) {
            const int weight = IsLarge(large, row, rows) ? magnitude : std::min(magnitude, 2);
            const bool isNegative = c % 4 == 1 || (c % 4 == 2 && row % 2 != 0);
            data.weights[static_cast<size_t>(c * rows + row)] =
                static_cast<int8_t>(isNegative ? -weight : std::min(weight, 127));
        }
    }
    const auto most = static_cast<unsigned>(rows * magnitude * std::max(-lowest, highest));
    shape.outShift = static_cast<uint16_t>(std::max(static_cast<int>(std::bit_width(most)) - 7, 0));
    return MatchesReference(kPointwiseConv, shape, data);
}

TEST(Pointwise, SumsThatReachTheirEnds) {
    constexpr Large kLarge[] = {Large::kAll, Large::kFirstHalf, Large::kSecondHalf,
                                Large::kTwoInTheMidst};
    for (const Large large : kLarge) {
        for (int magnitude = 1; magnitude <= 128; magnitude += magnitude < 20 ? 1 : 12) {
            for (const int rows : {30, 64, magnitude % 8 == 0 ? 300 : 9}) {
                const ConvShape shape = Shape(6, 6, rows, 5);
                EXPECT_TRUE(ReachesItsEnds(shape, magnitude, large, -128, 127)) << magnitude;
                EXPECT_TRUE(ReachesItsEnds(shape, magnitude, large, 0, 127)) << magnitude;
                EXPECT_TRUE(ReachesItsEnds(shape, magnitude, large, -90, 17)) << magnitude;
            }
        }
    }
}

TEST(Pointwise, EveryShift) { CheckEveryShift(kPointwiseConv, Shape(13, 1, 18, 6)); }
TEST(Pointwise, EveryShiftOfLongerSums) { CheckEveryShift(kPointwiseConv, Shape(81, 1, 36, 20)); }

TEST(Pointwise, AllInputsAndWeightsAtTheirEnds) {
    CheckUniformExtremes(kPointwiseConv, Shape(13, 1, 35, 7));
    CheckUniformExtremes(kPointwiseConv, Shape(81, 1, 130, 20));
}

TEST(Pointwise, SumsThatReachTheLargestBiasWrap) {
    CheckBiasWraps(kPointwiseConv, Shape(13, 1, 35, 7));
}

TEST(Pointwise, LongestDotProductOfSmallestValues) {
    // 65535 products of 16384 are 1073725440, just inside 31 bits.
    ConvShape s = Shape(1, 1, 65535, 5);
    const ConvData data = UniformData(kPointwiseConv, s, -128, -128, 0);
    s.outShift = 24;
    EXPECT_EQ(RunGuarded(kPointwiseConv, s, data, {}), std::vector<int8_t>(5, 63));
    s.outShift = 23;
    EXPECT_EQ(RunGuarded(kPointwiseConv, s, data, {}), std::vector<int8_t>(5, 127));
}

TEST(Pointwise, OddAddresses) {
    CheckOddAddresses(kPointwiseConv, Shape(7, 5, 19, 7));
    CheckOddAddresses(kPointwiseConv, Shape(12, 12, 64, 20));
    // Just scratch enough for what is packed, so that none is left to begin at a better address.
    CheckOddAddresses(kPointwiseConv, Shape(8, 1, 4, 5));
    CheckOddAddresses(kPointwiseConv, Shape(16, 1, 8, 5));
    CheckOddAddresses(kPointwiseConv, Shape(24, 1, 16, 5));
}

// A path that wants its packed pixels on a cache line finds room for that, or does without: most of
// these shapes fill the scratch to its last byte.
TEST(Pointwise, ScratchAnywhereInALine) {
    constexpr size_t kLine = 64;
    constexpr uint8_t kUntouched = 77;
    const ConvShape shapes[] = {
        Shape(24, 24, 32, 10), Shape(24, 24, 20, 10), Shape(12, 12, 128, 10), Shape(12, 12, 44, 10),
        Shape(8, 8, 200, 10),  Shape(8, 8, 64, 10),   Shape(6, 6, 64, 10),    Shape(6, 6, 62, 10),
        Shape(6, 6, 31, 10),   Shape(17, 1, 4, 10),   Shape(1, 1, 4, 10)};
    for (const ConvShape& s : shapes) {
        const ConvData data = LivelyData(kPointwiseConv, s, 12);
        const std::vector<int8_t> weights = kPointwiseConv.packedWeights(s, data.weights);
        const std::vector<int8_t> expected = kPointwiseConv.reference(s, data);
        const size_t bytes = kPointwiseConv.scratchBytes(s);
        for (size_t offset = 0; offset < kLine; ++offset) {
            SCOPED_TRACE(offset);
            GuardedBuffer memory(kLine + bytes + kLine, GuardedBuffer::kAtStart);
            std::fill_n(memory.bytes(), memory.size(), kUntouched);
            std::vector<int8_t> dst(expected.size());
            Call(ArmAConvolve1x1s1p0ChwQ7, s, data.src.data(), weights.data(), data.bias.data(),
                 dst.data(), memory.q7() + offset);
            EXPECT_EQ(dst, expected);
            const auto untouched = [](uint8_t byte) { return byte == kUntouched; };
            EXPECT_TRUE(std::all_of(memory.bytes(), memory.bytes() + offset, untouched));
            EXPECT_TRUE(std::all_of(memory.bytes() + offset + bytes, memory.bytes() + memory.size(),
                                    untouched));
        }
    }
}

// Calls with one argument changed, and tells whether dst and scratch stayed as they were.
bool Refused(void (*change)(ConvShape&)) {
    ConvShape s = Shape(5, 5, 4, 5);
    const std::vector<int8_t> src(100, 1);
    const std::vector<int8_t> weights(100, 1);
    const std::vector<int32_t> bias(5, 1);
    std::vector<int8_t> dst(125, 77);
    std::vector<int8_t> scratch(10000, 77);
    change(s);
    Call(ArmAConvolve1x1s1p0ChwQ7, s, src.data(), weights.data(), bias.data(), dst.data(),
         scratch.data());
    const auto untouched = [](int8_t v) { return v == 77; };
    return std::all_of(dst.begin(), dst.end(), untouched) &&
           std::all_of(scratch.begin(), scratch.end(), untouched);
}

TEST(Pointwise, RefusesOtherKernelSizesPadsAndStridesSilently) {
    StderrCapture capture;
    EXPECT_TRUE(Refused([](ConvShape& s) { s.kernelSize = 3; }));
    EXPECT_TRUE(Refused([](ConvShape& s) { s.kernelSize = 0; }));
    EXPECT_TRUE(Refused([](ConvShape& s) { s.kernelSize = 257; }));
    EXPECT_TRUE(Refused([](ConvShape& s) { s.pad = 1; }));
    EXPECT_TRUE(Refused([](ConvShape& s) { s.pad = 256; }));
    EXPECT_TRUE(Refused([](ConvShape& s) { s.stride = 2; }));
    EXPECT_TRUE(Refused([](ConvShape& s) { s.stride = 0; }));
    EXPECT_TRUE(Refused([](ConvShape& s) { s.stride = 257; }));
    EXPECT_FALSE(Refused([](ConvShape&) {}));
    EXPECT_EQ(capture.text(), "");
}

TEST(Pointwise, PixelsOfOneFourFiveEightTwelveThirteen) {
    // Slots that the scratch holds: pixel blocks of eight, a block of four, single pixels.
    const std::pair<int, size_t> slots[] = {{1, 1}, {4, 1}, {5, 2}, {8, 1}, {12, 2}, {13, 3}};
    for (const auto& [pixels, count] : slots) {
        for (const int srcChannels : {1, 3, 4, 6, 16}) {
            const ConvShape s = Shape(pixels, 1, srcChannels, 6);
            const size_t slotBytes = 32 * static_cast<size_t>(srcChannels / 4 + srcChannels % 4);
            ASSERT_EQ(kPointwiseConv.scratchBytes(s), slotBytes * count);
            EXPECT_TRUE(Matches(s, 5));
        }
    }
}

// Runs with packed weights that the test wrote out by itself, against an unmapped page.
std::vector<int8_t> RunPacked(const ConvShape& s, const std::vector<int8_t>& src,
                              const std::vector<int8_t>& packed) {
    GuardedBuffer weights(packed.size());
    std::copy(packed.begin(), packed.end(), weights.q7());
    weights.MakeReadOnly();
    const std::vector<int32_t> bias(static_cast<size_t>(s.dstChannels), 0);
    std::vector<int8_t> dst(orvo_reference::DstBytes(s));
    std::vector<int8_t> scratch(kPointwiseConv.scratchBytes(s));
    Call(ArmAConvolve1x1s1p0ChwQ7, s, src.data(), weights.q7(), bias.data(), dst.data(),
         scratch.data());
    return dst;
}

TEST(Pointwise, FewerThanFourOutputChannelsLieSixteenTimesSApart) {
    ConvShape s = Shape(1, 1, 5, 3); // S = 1 + 1
    s.outShift = 0;
    std::vector<int8_t> packed(69, 99);
    for (size_t r = 0; r < 3; ++r) {
        for (size_t c = 0; c < 5; ++c) {
            packed[32 * r + c] = static_cast<int8_t>(5 * r + c);
        }
    }
    EXPECT_EQ(RunPacked(s, {1, 2, -1, 1, 1}, packed),
              (std::vector<int8_t>{0 + 2 - 2 + 3 + 4, 5 + 12 - 7 + 8 + 9, 10 + 22 - 12 + 13 + 14}));
}

TEST(Pointwise, FewerThanFourInputChannelsReadFourWeightsEach) {
    // S = 3: the second group starts at 48; of each group only 12 bytes are read, the last of them
    // right before an unmapped page.
    ConvShape s = Shape(1, 1, 3, 8);
    s.outShift = 0;
    std::vector<int8_t> packed(60, 99);
    for (size_t c = 0; c < 3; ++c) {
        for (size_t i = 0; i < 4; ++i) {
            packed[4 * c + i] = static_cast<int8_t>(i + 1);
            packed[48 + 4 * c + i] = static_cast<int8_t>(i + 5);
        }
    }
    EXPECT_EQ(RunPacked(s, {1, 2, 3}, packed),
              (std::vector<int8_t>{6, 12, 18, 24, 30, 36, 42, 48}));
}

TEST(Pointwise, NoInputChannelsGiveTheShiftedBias) {
    ConvShape s = Shape(13, 1, 0, 6);
    s.outShift = 4;
    const ConvData data = {{}, {}, {0, 160, -1, -17, INT32_MAX, INT32_MIN}};
    std::vector<int8_t> expected;
    for (const int8_t value : {0, 10, -1, -2, 127, -128}) {
        expected.insert(expected.end(), 13, value);
    }
    EXPECT_EQ(RunGuarded(kPointwiseConv, s, data, {}), expected);
    EXPECT_TRUE(Matches(Shape(6, 6, 0, 5), 14)); // a plane of the network's
}

TEST(Pointwise, NoOutputChannelsOrNoPixelsWriteNothing) {
    EXPECT_TRUE(Matches(Shape(13, 1, 5, 0), 6));
    EXPECT_TRUE(Matches(Shape(80, 1, 64, 0), 6));
    EXPECT_TRUE(Matches(Shape(0, 5, 5, 6), 6));
    EXPECT_TRUE(Matches(Shape(5, 0, 5, 6), 6));
    EXPECT_TRUE(Matches(Shape(0, 5, 40, 32), 6));
}

TEST(Pointwise, OutputPlanesLieTheOutputSizeApart) {
    // A larger output plane than the input has pixels: the rest of every plane stays as it was.
    for (const int pixels : {1, 4, 7, 8, 13}) {
        for (const int dstChannels : {1, 4, 6}) {
            ConvShape s = Shape(pixels, 1, 5, dstChannels);
            const ConvData data = LivelyData(kPointwiseConv, s, 7);
            const std::vector<int8_t> dense = kPointwiseConv.reference(s, data);
            const size_t n = static_cast<size_t>(pixels);
            s.dstWidth = 5;
            s.dstHeight = 4;
            std::vector<int8_t> expected(20 * static_cast<size_t>(dstChannels),
                                         static_cast<int8_t>(0xA5));
            for (size_t i = 0; i < dense.size(); ++i) {
                expected[20 * (i / n) + i % n] = dense[i];
            }
            EXPECT_EQ(RunGuarded(kPointwiseConv, s, data, {}), expected);
        }
    }
}

TEST(Pointwise, OnlyTheProductOfTheOutputSizesCounts) {
    ConvShape s = Shape(6, 4, 5, 6);
    const ConvData data = LivelyData(kPointwiseConv, s, 8);
    const std::vector<int8_t> expected = kPointwiseConv.reference(s, data);
    s.dstWidth = 2;
    s.dstHeight = 12;
    EXPECT_EQ(RunGuarded(kPointwiseConv, s, data, {}), expected);
}

TEST(Pointwise, RoundsTowardsMinusInfinityAndSaturates) {
    ConvShape s = Shape(13, 1, 1, 6);
    s.outShift = 3;
    ConvData data = UniformData(kPointwiseConv, s, 1, 1, 0);
    data.bias = {-2, -9, -10, 6, 127 * 8 + 7, -128 * 8 - 2}; // the sum adds 1
    std::vector<int8_t> expected;
    for (const int8_t value : {-1, -1, -2, 0, 127, -128}) {
        expected.insert(expected.end(), 13, value);
    }
    EXPECT_EQ(RunGuarded(kPointwiseConv, s, data, {}), expected);
}

} // namespace
