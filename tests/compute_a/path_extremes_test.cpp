// SPDX-License-Identifier: MIT
//
// Weights, biases, shifts and sizes at the limits of what the inner routines of some path take in
// one of their faster ways: sums of products that just fit 16 bits and sums that just do not,
// filters that fall back, planes narrower than a vector. The test runs once for each path; see
// CMakeLists.txt.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <iterator>
#include <vector>

#include "compute_a/chw_case.h"
#include "support/random.h"

namespace {

using namespace orvo_test;

ConvShape Pointwise(int width, int height, int srcChannels, int dstChannels, uint32_t shift) {
    ConvShape s;
    s.srcWidth = s.dstWidth = width;
    s.srcHeight = s.dstHeight = height;
    s.srcChannels = srcChannels;
    s.dstChannels = dstChannels;
    s.outShift = shift;
    return s;
}

ConvShape Depthwise(int width, int height, int channels, uint32_t shift) {
    ConvShape s = Pointwise(width, height, channels, channels, shift);
    s.kernelSize = 3;
    s.pad = 1;
    return s;
}

enum class Inputs { kLowest, kHighest, kEither };

std::vector<int8_t> Fill(size_t count, Inputs inputs, Random& random) {
    std::vector<int8_t> values(count);
    for (int8_t& value : values) {
        const bool lowest =
            inputs == Inputs::kLowest || (inputs == Inputs::kEither && random.Between(0, 1) == 0);
        value = lowest ? INT8_MIN : INT8_MAX;
    }
    return values;
}

// `count` weights whose magnitudes add up to `total`, as evenly as they can, of one sign or of any.
void PutWeights(int8_t* to, size_t stride, size_t count, int total, int sign, Random& random) {
    for (size_t i = 0; i < count; ++i) {
        const int left = static_cast<int>(count - i);
        const int magnitude = std::min(total / left + (total % left != 0), 128);
        const bool negative =
            sign < 0 || magnitude == 128 || (sign == 0 && random.Between(0, 1) == 0);
        to[i * stride] = static_cast<int8_t>(negative ? -magnitude : magnitude);
        total -= magnitude;
    }
}

constexpr Inputs kAllInputs[] = {Inputs::kLowest, Inputs::kHighest, Inputs::kEither};

// Even and odd rows of each stretch of `stretch` rows add up to `total`: 16-bit sums over such a
// stretch reach 32640 with 255 and would overflow with 256.
void CheckRowTotals(const ChwSubject& subject, const ConvShape& shape, size_t stretch, int total) {
    const size_t rows = orvo_reference::DotLength(shape);
    Random random(rows * 1000 + static_cast<size_t>(total));
    for (const int sign : {-1, 1, 0}) {
        for (const Inputs inputs : kAllInputs) {
            ConvData data;
            data.src = Fill(orvo_reference::SrcBytes(shape), inputs, random);
            data.weights.resize(subject.weightCount(shape));
            for (int c = 0; c < shape.dstChannels; ++c) {
                int8_t* row = data.weights.data() + static_cast<size_t>(c) * rows;
                for (size_t k = 0; k < rows; k += stretch) {
                    const size_t here = std::min(stretch, rows - k);
                    PutWeights(row + k, 2, (here + 1) / 2, total, sign, random);
                    PutWeights(row + k + 1, 2, here / 2, total, sign, random);
                }
                data.bias.push_back(random.Between(-1000, 1000));
            }
            EXPECT_TRUE(MatchesReference(subject, shape, data))
                << "stretch " << stretch << ", total " << total << ", sign " << sign;
        }
    }
}

void CheckAllRowTotals(const ChwSubject& subject, const ConvShape& shape) {
    for (const size_t stretch : {size_t{4}, size_t{8}, size_t{16}, size_t{1000}}) {
        for (const int total : {254, 255, 256, 257}) {
            CheckRowTotals(subject, shape, stretch, total);
        }
    }
}

TEST(PathExtremes, PointwiseSumsThatJustFit) {
    CheckAllRowTotals(kPointwiseConv, Pointwise(5, 5, 24, 6, 9));
    CheckAllRowTotals(kPointwiseConv, Pointwise(6, 3, 19, 5, 12));
    CheckAllRowTotals(kPointwiseConv, Pointwise(1, 3, 68, 4, 10));
}

TEST(PathExtremes, ConvolutionSumsThatJustFit) {
    ConvShape shape = Pointwise(5, 4, 3, 6, 10);
    shape.kernelSize = 3;
    shape.pad = 1;
    CheckAllRowTotals(kGenericConv, shape);
}

// Inputs without a sign, as a rectifier leaves them, let 16-bit sums take a total of 258: pairs of
// rows of each stretch, the first two of each four and the second two, add up to `total`.
void CheckRectifiedTotals(const ConvShape& shape, size_t stretch, int total, int sign) {
    const size_t rows = orvo_reference::DotLength(shape);
    Random random(rows * 1000 + static_cast<size_t>(total));
    ConvData data;
    data.src.assign(orvo_reference::SrcBytes(shape), INT8_MAX);
    data.weights.resize(kPointwiseConv.weightCount(shape));
    for (int c = 0; c < shape.dstChannels; ++c) {
        int8_t* row = data.weights.data() + static_cast<size_t>(c) * rows;
        for (size_t start = 0; start < rows; start += stretch) {
            for (const size_t pair : {0, 2}) {
                std::vector<size_t> places;
                for (size_t k = start; k < std::min(start + stretch, rows); ++k) {
                    if ((k & 2) == pair) {
                        places.push_back(k);
                    }
                }
                std::vector<int8_t> weights(places.size());
                PutWeights(weights.data(), 1, weights.size(), total, sign, random);
                for (size_t i = 0; i < places.size(); ++i) {
                    row[places[i]] = weights[i];
                }
            }
        }
        data.bias.push_back(random.Between(-1000, 1000));
    }
    EXPECT_TRUE(MatchesReference(kPointwiseConv, shape, data))
        << "stretch " << stretch << ", total " << total << ", sign " << sign;
    data.src.back() = INT8_MIN; // one sign anywhere
    EXPECT_TRUE(MatchesReference(kPointwiseConv, shape, data)) << "with a sign";
}

TEST(PathExtremes, RectifiedPointwiseSumsThatJustFit) {
    for (const int rows : {24, 37, 64}) {
        for (const size_t stretch : {size_t{4}, size_t{8}, size_t{1000}}) {
            for (const int total : {256, 257, 258, 259, 260, 600}) {
                for (const int sign : {-1, 1, 0}) {
                    CheckRectifiedTotals(Pointwise(6, 6, rows, 6, 9), stretch, total, sign);
                }
            }
        }
    }
}

TEST(PathExtremes, RectifiedPointwiseSizes) {
    for (const int rows : {1, 2, 3, 4, 5, 7, 8, 9, 511, 512, 513, 1100}) {
        for (const int pixels : {16, 17, 24, 25, 31, 33, 41}) {
            const ConvShape shape = Pointwise(pixels, 1, rows, 1 + (rows + pixels) % 9, 10);
            for (ConvData data :
                 {LivelyData(kPointwiseConv, shape, 3), ExtremeData(kPointwiseConv, shape, 4)}) {
                for (int8_t& value : data.src) {
                    value = std::max<int8_t>(value, 0);
                }
                EXPECT_TRUE(MatchesReference(kPointwiseConv, shape, data))
                    << rows << " rows, " << pixels << " pixels";
            }
        }
    }
}

// Long sums are made ready in chunks of rows, and what a chunk's weights allow need not hold for
// the next one: before `boundary` hardly any weight, from there on as much as there can be, or the
// other way round.
void CheckWeightsThatChangeAt(size_t boundary, int rows, bool smallFirst) {
    const ConvShape shape = Pointwise(17, 1, rows, 6, 17);
    const size_t count = static_cast<size_t>(rows);
    Random random(boundary + count);
    ConvData data;
    data.src.assign(orvo_reference::SrcBytes(shape), INT8_MAX);
    data.weights.resize(kPointwiseConv.weightCount(shape));
    for (size_t i = 0; i < data.weights.size(); ++i) {
        const size_t channel = i / count;
        const bool small = (i % count < boundary) == smallFirst;
        const int large = channel % 2 == 0 ? random.Between(100, 127) : random.Between(-128, -100);
        data.weights[i] = static_cast<int8_t>(small ? i % 64 == channel : large);
    }
    data.bias.assign(static_cast<size_t>(shape.dstChannels), 1000);
    EXPECT_TRUE(MatchesReference(kPointwiseConv, shape, data))
        << rows << " rows, changing at " << boundary << (smallFirst ? ", small first" : "");
    data.src.back() = INT8_MIN; // one sign anywhere
    EXPECT_TRUE(MatchesReference(kPointwiseConv, shape, data)) << "with a sign";
}

TEST(PathExtremes, WeightsThatGrowOrShrinkWithinALongSum) {
    for (const size_t boundary : {64, 128, 256, 512, 1024}) {
        for (const int rows : {513, 600, 1023, 1024, 1100, 1700}) {
            if (boundary < static_cast<size_t>(rows)) {
                CheckWeightsThatChangeAt(boundary, rows, true);
                CheckWeightsThatChangeAt(boundary, rows, false);
            }
        }
    }
}

// Every row count up to the steps of any path, every leftover of pixels and of channels.
TEST(PathExtremes, PointwiseSizes) {
    for (int rows = 1; rows <= 20; ++rows) {
        for (int pixels = 1; pixels <= 37; pixels += 3) {
            const ConvShape shape = Pointwise(pixels, 1, rows, 1 + (rows + pixels) % 9, 9);
            EXPECT_TRUE(
                MatchesReference(kPointwiseConv, shape, LivelyData(kPointwiseConv, shape, 7)));
            EXPECT_TRUE(
                MatchesReference(kPointwiseConv, shape, ExtremeData(kPointwiseConv, shape, 8)));
        }
    }
}

// The scratch has exactly the size that the interface states for a number of pixels: what a path
// takes of it must fit for each number, the odd ones that leave it hardly more than the pixels too.
TEST(PathExtremes, PointwiseScratchOfEveryPixelCount) {
    for (int pixels = 1; pixels <= 200; ++pixels) {
        for (const int rows : {4, 7, 32, 36, 160}) {
            const ConvShape shape = Pointwise(pixels, 1, rows, 5, 9);
            EXPECT_TRUE(
                MatchesReference(kPointwiseConv, shape, LivelyData(kPointwiseConv, shape, 17)));
        }
    }
}

TEST(PathExtremes, ConvolutionScratchOfEveryPixelCount) {
    for (int width = 1; width <= 40; ++width) {
        for (const int height : {1, 3, 4}) {
            for (const int srcChannels : {1, 3, 4}) {
                ConvShape shape = Pointwise(width, height, srcChannels, 5, 9);
                shape.kernelSize = 3;
                shape.pad = 1;
                EXPECT_TRUE(
                    MatchesReference(kGenericConv, shape, LivelyData(kGenericConv, shape, 18)));
            }
        }
    }
}

TEST(PathExtremes, PointwiseManyRows) {
    for (const int rows : {255, 256, 257, 1023, 1025, 1100}) {
        const ConvShape shape = Pointwise(7, 3, rows, 5, 14);
        EXPECT_TRUE(MatchesReference(kPointwiseConv, shape, LivelyData(kPointwiseConv, shape, 3)));
        EXPECT_TRUE(MatchesReference(kPointwiseConv, shape, ExtremeData(kPointwiseConv, shape, 4)));
    }
}

// The destination's size does not follow from the source's: the caller says both.
TEST(PathExtremes, ConvolutionOfEqualWidths) {
    for (int width = 1; width <= 9; width += 2) {
        for (int kernelSize = 1; kernelSize <= 5; ++kernelSize) {
            for (int pad = 0; pad <= 3; ++pad) {
                for (const int dstHeight : {1, 4, 8}) {
                    ConvShape shape = Pointwise(width, 4, 2, 5, 8);
                    shape.kernelSize = kernelSize;
                    shape.pad = pad;
                    shape.dstHeight = dstHeight;
                    EXPECT_TRUE(
                        MatchesReference(kGenericConv, shape, LivelyData(kGenericConv, shape, 5)))
                        << width << " " << kernelSize << " " << pad << " " << dstHeight;
                }
            }
        }
    }
}

TEST(PathExtremes, DepthwiseSizes) {
    for (int width = 1; width <= 36; ++width) {
        for (const int height : {1, 2, 5, 6, 7, 12, 13}) {
            const ConvShape shape = Depthwise(width, height, 2, 8);
            for (const ChwSubject* subject : {&kDepthwiseConv, &kDepthwiseReluConv}) {
                EXPECT_TRUE(MatchesReference(*subject, shape, LivelyData(*subject, shape, 11)))
                    << width << " x " << height;
                EXPECT_TRUE(MatchesReference(*subject, shape, ExtremeData(*subject, shape, 12)))
                    << width << " x " << height;
            }
        }
    }
}

// Narrow planes of more rows than are worked on at a time, and of so many that rows of a vector's width reach
// beyond the plane's end from several of them.
TEST(PathExtremes, DepthwiseTallPlanes) {
    for (int width = 1; width <= 17; ++width) {
        for (const int height : {15, 16, 17, 31, 32, 250, 251}) {
            const ConvShape shape = Depthwise(width, height, 2, 8);
            EXPECT_TRUE(
                MatchesReference(kDepthwiseConv, shape, LivelyData(kDepthwiseConv, shape, 15)))
                << width << " x " << height;
        }
    }
    for (const int width : {1, 2, 3, 12, 13, 24, 25}) {
        const ConvShape shape = Depthwise(width, 3100, 1, 8);
        EXPECT_TRUE(MatchesReference(kDepthwiseConv, shape, LivelyData(kDepthwiseConv, shape, 16)))
            << width;
    }
}

// Filters light enough for the faster sums in each of their forms, on planes that are taken in one strip,
// in half of one, and in several of which the last overlaps.
TEST(PathExtremes, DepthwiseSizesOfLightFilters) {
    Random random(13);
    for (int width = 1; width <= 70; ++width) {
        for (const int height : {3, 4, 5, 8}) {
            for (const int total : {100, 200, 300}) {
                const ConvShape shape = Depthwise(width, height, 3, 6);
                ConvData data;
                data.src = Fill(orvo_reference::SrcBytes(shape), Inputs::kEither, random);
                data.weights.resize(27);
                for (size_t c = 0; c < 3; ++c) {
                    PutWeights(data.weights.data() + 9 * c, 1, 9, total, 0, random);
                }
                data.bias = {1000, -1000, 0};
                for (const ChwSubject* subject : {&kDepthwiseConv, &kDepthwiseReluConv}) {
                    EXPECT_TRUE(MatchesReference(*subject, shape, data))
                        << width << " x " << height << ", total " << total;
                }
            }
        }
    }
}

// Filters whose outer and middle rows have these totals, under every shift at which the faster sums
// give way and with biases that they can take and cannot.
TEST(PathExtremes, DepthwiseSumsThatJustFit) {
    constexpr int32_t kBiases[] = {0,      1,      -1,     127,     128,       -127,     -128,
                                   -32768, 32767,  65534,  65535,   65536,     -65536,   -65537,
                                   65521,  131071, -70001, 1 << 20, INT32_MAX, INT32_MIN};
    constexpr int kChannels = static_cast<int>(std::size(kBiases));
    Random random(21);
    for (const uint32_t shift : {0u, 1u, 2u, 7u, 8u, 9u, 10u, 16u, 31u, 32u, 40u}) {
        for (const int outer : {200, 255, 256, 700}) {
            for (const int middle : {55, 56, 255, 256, 384}) {
                const ConvShape shape = Depthwise(17, 6, kChannels, shift);
                ConvData data;
                data.src =
                    Fill(orvo_reference::SrcBytes(shape), kAllInputs[random.Between(0, 2)], random);
                data.weights.resize(static_cast<size_t>(kChannels) * 9);
                for (int c = 0; c < kChannels; ++c) {
                    int8_t* filter = data.weights.data() + 9 * c;
                    const int sign = random.Between(-1, 1);
                    int8_t rows[6];
                    PutWeights(rows, 1, 6, outer, sign, random);
                    std::copy(rows, rows + 3, filter);
                    std::copy(rows + 3, rows + 6, filter + 6);
                    PutWeights(filter + 3, 1, 3, middle, sign, random);
                }
                data.bias.assign(std::begin(kBiases), std::end(kBiases));
                for (const ChwSubject* subject : {&kDepthwiseConv, &kDepthwiseReluConv}) {
                    EXPECT_TRUE(MatchesReference(*subject, shape, data))
                        << "shift " << shift << ", totals " << outer << " and " << middle;
                }
            }
        }
    }
}

// Values from `lowest` to `highest`, both of them among the values of each plane.
std::vector<int8_t> FillPlanes(size_t planes, size_t planeBytes, int lowest, int highest,
                               Random& random) {
    std::vector<int8_t> values;
    for (size_t i = 0; i < planes * planeBytes; ++i) {
        const size_t at = i % planeBytes;
        const bool low = at == 0 || (at != planeBytes - 1 && random.Between(0, 1) == 0);
        values.push_back(static_cast<int8_t>(low ? lowest : highest));
    }
    return values;
}

// Some paths take values as their distances from the lowest, and sum in 16 bits while the positive
// weights, times the highest distance, stay within them, and the negative ones, too: totals at that
// limit and just above it, for values in many ranges.
struct Spread {
    int lowest, highest;

    int limit() const { return INT16_MAX / (std::max(highest, 0) - std::min(lowest, 0)); }
};

constexpr Spread kSpreads[] = {{-128, 127}, {-128, 126}, {-127, 127}, {-128, 0}, {-128, -100},
                               {-100, 60},  {-75, 112},  {-1, 127},   {0, 127},  {5, 127},
                               {0, 73},     {-40, 24},   {0, 29}};

TEST(PathExtremes, PointwiseSumsThatJustFitTheValues) {
    Random random(31);
    for (const Spread spread : kSpreads) {
        for (const int total : {spread.limit(), spread.limit() + 1, 2 * spread.limit() + 1}) {
            for (const size_t stretch : {size_t{4}, size_t{8}, size_t{40}}) {
                const ConvShape shape = Pointwise(7, 5, 40, 9, 9);
                ConvData data;
                data.src = FillPlanes(40, 35, spread.lowest, spread.highest, random);
                data.weights.resize(kPointwiseConv.weightCount(shape));
                data.bias.assign(9, 100);
                for (size_t at = 0; at < data.weights.size(); at += stretch) {
                    // Every half of four rows has a total of its own, the two of unlike signs.
                    int8_t halves[2][20];
                    const size_t half = stretch / 2;
                    const int sign = random.Between(0, 1) == 0 ? -1 : 1;
                    PutWeights(halves[0], 1, half, total, sign, random);
                    PutWeights(halves[1], 1, half, total, -sign, random);
                    for (size_t i = 0; i < stretch; ++i) {
                        data.weights[at + i] = halves[i / 2 % 2][i / 4 * 2 + i % 2];
                    }
                }
                EXPECT_TRUE(MatchesReference(kPointwiseConv, shape, data))
                    << "values from " << spread.lowest << " to " << spread.highest << ", total "
                    << total << ", stretch " << stretch;
            }
        }
    }
}

TEST(PathExtremes, DepthwiseSumsThatJustFitTheValues) {
    constexpr int32_t kBiases[] = {0, 1, -1, 32767, -32768, 32768, -32769, 70000, INT32_MIN};
    constexpr int kChannels = static_cast<int>(std::size(kBiases));
    Random random(41);
    for (const Spread spread : kSpreads) {
        for (const int total : {spread.limit(), spread.limit() + 1}) {
            for (const uint32_t shift : {0u, 7u, 8u, 9u, 31u}) {
                const ConvShape shape = Depthwise(19, 7, kChannels, shift);
                ConvData data;
                data.src = FillPlanes(kChannels, 133, spread.lowest, spread.highest, random);
                data.bias.assign(std::begin(kBiases), std::end(kBiases));
                for (int c = 0; c < kChannels; ++c) {
                    // One sign in up to eight of the places, the other in what is left.
                    int8_t filter[9];
                    const size_t places = static_cast<size_t>(random.Between(1, 8));
                    const int sign = random.Between(0, 1) == 0 ? -1 : 1;
                    PutWeights(filter, 1, places, total, sign, random);
                    PutWeights(filter + places, 1, 9 - places, total, -sign, random);
                    std::rotate(filter, filter + random.Between(0, 8), filter + 9);
                    data.weights.insert(data.weights.end(), filter, filter + 9);
                }
                for (const ChwSubject* subject : {&kDepthwiseConv, &kDepthwiseReluConv}) {
                    EXPECT_TRUE(MatchesReference(*subject, shape, data))
                        << "values from " << spread.lowest << " to " << spread.highest << ", total "
                        << total << ", shift " << shift;
                }
            }
        }
    }
}

} // namespace
