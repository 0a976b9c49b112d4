// SPDX-License-Identifier: MIT
// Links support/bounded_faults.cpp, to see and to fail the copies of repeated rows.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "orvo/image_tools.h"
#include "reference/reference_small.h"
#include "support/bounded_faults.h"
#include "support/error_line.h"
#include "support/guarded_buffer.h"
#include "support/random.h"
#include "support/stderr_capture.h"

namespace {

using orvo_test::BoundedCall;
using orvo_test::GuardedBuffer;
using orvo_test::Random;

using Bytes = std::vector<uint8_t>;

struct Size {
    int32_t height;
    int32_t width;
};

size_t Area(Size size) {
    return static_cast<size_t>(size.height) * static_cast<size_t>(size.width);
}

Bytes RandomPixels(uint64_t seed, size_t count) {
    Random random(seed);
    Bytes pixels(count);
    random.Fill(pixels.data(), count);
    return pixels;
}

Bytes Resized(const uint8_t* src, int32_t stride, Size from, Size to) {
    Bytes dst(Area(to));
    ImageResizeBilin(src, dst.data(), from.height, from.width, stride, to.height, to.width);
    return dst;
}

Bytes Expected(const uint8_t* src, int32_t stride, Size from, Size to) {
    Bytes dst(Area(to));
    orvo_reference::ResizeBilinear(src, dst.data(), from.height, from.width, stride, to.height,
                                   to.width);
    return dst;
}

// Where the first difference is, or nothing.
std::string Difference(const Bytes& got, const Bytes& expected, Size from, Size to) {
    const auto at = std::mismatch(got.begin(), got.end(), expected.begin()).first;
    if (at == got.end()) {
        return "";
    }
    const auto index = at - got.begin();
    return std::to_string(from.width) + " x " + std::to_string(from.height) + " to " +
           std::to_string(to.width) + " x " + std::to_string(to.height) + ": row " +
           std::to_string(index / to.width) + " column " + std::to_string(index % to.width) +
           " is " + std::to_string(*at) + ", not " +
           std::to_string(expected[static_cast<size_t>(index)]);
}

class ImageResize : public testing::Test {
  protected:
    void SetUp() override { ImageResizeInit(); }

    // One size to another, from a picture of its own with rows of exactly the width.
    void ExpectMatch(Size from, Size to) {
        const Bytes src = RandomPixels(Area(from) * 31 + Area(to), Area(from));
        ASSERT_EQ(Difference(Resized(src.data(), from.width, from, to),
                             Expected(src.data(), from.width, from, to), from, to),
                  "");
    }
};

// ---- The weight table

TEST(BilinearTable, EveryEntryIsTheDefinedOne) {
    ImageResizeInit();
    for (int v = 0; v < 32; ++v) {
        for (int h = 0; h < 32; ++h) {
            const auto expected = orvo_reference::BilinearWeights(v, h);
            EXPECT_TRUE(std::equal(expected.begin(), expected.end(), g_bilinLUT[v][h]))
                << v << ' ' << h;
        }
    }
}

TEST(BilinearTable, CornerEntries) {
    ImageResizeInit();
    const int16_t topLeft[4] = {16384, 0, 0, 0};
    const int16_t topRight[4] = {0, 16384, 0, 0};
    const int16_t bottomLeft[4] = {0, 0, 16384, 0};
    const int16_t bottomRight[4] = {0, 0, 0, 16384};
    EXPECT_TRUE(std::equal(topLeft, topLeft + 4, g_bilinLUT[0][0]));
    EXPECT_TRUE(std::equal(topRight, topRight + 4, g_bilinLUT[0][31]));
    EXPECT_TRUE(std::equal(bottomLeft, bottomLeft + 4, g_bilinLUT[31][0]));
    EXPECT_TRUE(std::equal(bottomRight, bottomRight + 4, g_bilinLUT[31][31]));
}

TEST(BilinearTable, EveryEntrySumsTo16384) {
    ImageResizeInit();
    for (const auto& row : g_bilinLUT) {
        for (const auto& entry : row) {
            EXPECT_EQ(entry[0] + entry[1] + entry[2] + entry[3], 16384);
        }
    }
}

// Taken before any test can have filled the table.
const bool zeroAtLoad = std::all_of(&g_bilinLUT[0][0][0], &g_bilinLUT[0][0][0] + 32 * 32 * 4,
                                    [](int16_t weight) { return weight == 0; });

TEST(BilinearTable, IsZeroUntilFilledAndFillingAgainChangesNothing) {
    EXPECT_EQ(sizeof g_bilinLUT, 8192u);
    EXPECT_TRUE(zeroAtLoad);
    ImageResizeInit();
    Bytes first(sizeof g_bilinLUT);
    std::memcpy(first.data(), g_bilinLUT, first.size());
    ImageResizeInit();
    EXPECT_EQ(std::memcmp(g_bilinLUT, first.data(), first.size()), 0);
}

TEST_F(ImageResize, TakesItsWeightsFromTheTable) {
    const uint8_t src[4] = {10, 20, 30, 40};
    const int16_t onlyBottomLeft[4] = {0, 0, 16384, 0};
    std::copy(onlyBottomLeft, onlyBottomLeft + 4, g_bilinLUT[16][16]);
    EXPECT_EQ(Resized(src, 2, {2, 2}, {1, 1}), Bytes{30});
}

// ---- Values

TEST_F(ImageResize, EqualSizesCopyTheImage) {
    for (const Size size : {Size{1, 1}, {1, 9}, {9, 1}, {24, 24}, {96, 96}, {37, 53}}) {
        const Bytes src = RandomPixels(Area(size), Area(size));
        EXPECT_EQ(Resized(src.data(), size.width, size, size), src);
    }
}

TEST_F(ImageResize, HalvingTakesTheMiddleOfTwoByTwoBlocks) {
    const Bytes src = RandomPixels(1, 48 * 48);
    const Bytes got = Resized(src.data(), 48, {48, 48}, {24, 24});
    const int16_t* w = g_bilinLUT[16][16];
    for (size_t y = 0; y < 24; ++y) {
        for (size_t x = 0; x < 24; ++x) {
            const uint8_t* block = &src[2 * y * 48 + 2 * x];
            const int sum =
                w[0] * block[0] + w[1] * block[1] + w[2] * block[48] + w[3] * block[49] + 8192;
            EXPECT_EQ(got[y * 24 + x], sum >> 14);
        }
    }
}

TEST_F(ImageResize, EnlargingSixToTwentyFourRepeatsTwoRowsAndColumnsAtEachSide) {
    const Bytes src = RandomPixels(2, 36);
    const Bytes got = Resized(src.data(), 6, {6, 6}, {24, 24});
    for (size_t i = 0; i < 24; ++i) {
        EXPECT_EQ(got[i], got[24 + i]);
        EXPECT_EQ(got[22 * 24 + i], got[23 * 24 + i]);
        EXPECT_EQ(got[i * 24], got[i * 24 + 1]);
        EXPECT_EQ(got[i * 24 + 22], got[i * 24 + 23]);
    }
    EXPECT_EQ(got[0], src[0]);
    EXPECT_EQ(got[23], src[5]);
    EXPECT_EQ(got[23 * 24], src[30]);
    EXPECT_EQ(got[23 * 24 + 23], src[35]);
    // The middle band's side columns look at one source column only.
    Bytes other = src;
    for (size_t y = 0; y < 6; ++y) {
        for (size_t x = 1; x < 5; ++x) {
            other[y * 6 + x] = static_cast<uint8_t>(~other[y * 6 + x]);
        }
    }
    const Bytes gotOther = Resized(other.data(), 6, {6, 6}, {24, 24});
    for (size_t y = 0; y < 24; ++y) {
        EXPECT_EQ(got[y * 24], gotOther[y * 24]);
        EXPECT_EQ(got[y * 24 + 1], gotOther[y * 24 + 1]);
        EXPECT_EQ(got[y * 24 + 22], gotOther[y * 24 + 22]);
        EXPECT_EQ(got[y * 24 + 23], gotOther[y * 24 + 23]);
    }
}

TEST_F(ImageResize, ConstantImageStaysConstant) {
    for (const Size from : {Size{1, 1}, {2, 3}, {6, 6}, {50, 31}, {256, 256}}) {
        for (const Size to : {Size{1, 1}, {5, 2}, {24, 24}, {96, 96}}) {
            for (const uint8_t value : {0, 1, 127, 128, 254, 255}) {
                const Bytes src(Area(from), value);
                EXPECT_EQ(Resized(src.data(), from.width, from, to), Bytes(Area(to), value));
            }
        }
    }
}

TEST_F(ImageResize, WholeImageTo24MatchesReference) {
    for (uint64_t seed = 1; seed <= 10; ++seed) {
        const Bytes src = RandomPixels(seed, 256 * 256);
        const Size from{256, 256};
        const Size to{24, 24};
        ASSERT_EQ(Difference(Resized(src.data(), 256, from, to),
                             Expected(src.data(), 256, from, to), from, to),
                  "");
    }
}

// The accumulated positions differ from sx * x - ox at these widths.
TEST_F(ImageResize, PositionsAreAccumulatedNotComputed) {
    const Bytes src = RandomPixels(3, 256 * 256);
    for (const int32_t box : {32, 64, 128, 160, 224}) {
        const Size from{box, box};
        ASSERT_EQ(Difference(Resized(src.data(), 256, from, {96, 96}),
                             Expected(src.data(), 256, from, {96, 96}), from, {96, 96}),
                  "");
    }
}

// Every width and every height that a box can have; the axes are independent, so that each width
// meets a few heights of both kinds, enlarged and reduced, and the other way round.
TEST_F(ImageResize, EveryBoxSizeTo96MatchesReference) {
    const Bytes src = RandomPixels(4, 256 * 256);
    for (int32_t n = 2; n <= 256; n += 2) {
        for (const Size from : {Size{n, n}, {n, 258 - n}, {60, n}, {n, 200}}) {
            ASSERT_EQ(Difference(Resized(src.data(), 256, from, {96, 96}),
                                 Expected(src.data(), 256, from, {96, 96}), from, {96, 96}),
                      "");
        }
    }
}

TEST_F(ImageResize, AnySizeToAnySizeMatchesReference) {
    Random random(5);
    for (int round = 0; round < 400; ++round) {
        const Size from{random.Between(1, 70), random.Between(1, 70)};
        const Size to{random.Between(1, 70), random.Between(1, 70)};
        ExpectMatch(from, to);
    }
}

TEST_F(ImageResize, EverySmallSizeToEverySmallSizeMatchesReference) {
    for (int32_t from = 1; from <= 40; ++from) {
        for (int32_t to = 1; to <= 40; ++to) {
            ExpectMatch({from, 3}, {to, 5});
            ExpectMatch({4, from}, {2, to});
        }
    }
}

// One source pixel: the borders of both sides can meet or overlap.
TEST_F(ImageResize, OnePixelFillsEverySizeExactly) {
    for (int32_t n = 1; n <= 300; ++n) {
        for (const Size to : {Size{1, n}, {n, 1}, {n, 3}, {3, n}}) {
            GuardedBuffer src(1);
            src.bytes()[0] = 201;
            src.MakeReadOnly();
            GuardedBuffer dst(Area(to));
            ImageResizeBilin(src.bytes(), dst.bytes(), 1, 1, 1, to.height, to.width);
            ASSERT_TRUE(std::all_of(dst.bytes(), dst.bytes() + Area(to),
                                    [](uint8_t p) { return p == 201; }))
                << to.width << " x " << to.height;
        }
    }
}

// ---- Memory

TEST_F(ImageResize, SourceStrideIsRespected) {
    for (const int32_t stride : {50, 51, 64, 256, 1000}) {
        const Bytes src = RandomPixels(6, static_cast<size_t>(stride) * 41);
        for (const Size to : {Size{24, 24}, {96, 96}, {7, 130}}) {
            ASSERT_EQ(Difference(Resized(src.data(), stride, {41, 50}, to),
                                 Expected(src.data(), stride, {41, 50}, to), {41, 50}, to),
                      "");
        }
    }
}

// The source region ends with its last row's last pixel, not with that row's stride; source and
// destination touch unmapped pages at either side.
TEST_F(ImageResize, TouchesNothingOutsideItsBuffers) {
    Random random(7);
    std::vector<std::pair<Size, Size>> cases = {
        {{256, 256}, {24, 24}}, {{2, 2}, {96, 96}}, {{96, 96}, {96, 96}}, {{254, 254}, {96, 96}}};
    for (int round = 0; round < 150; ++round) {
        cases.push_back({{random.Between(1, 60), random.Between(1, 60)},
                         {random.Between(1, 60), random.Between(1, 60)}});
    }
    for (const auto& [from, to] : cases) {
        for (const int32_t gap : {0, 5}) {
            const int32_t stride = from.width + gap;
            const size_t extent =
                static_cast<size_t>(stride) * static_cast<size_t>(from.height - 1) +
                static_cast<size_t>(from.width);
            for (const auto place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
                GuardedBuffer src(extent, place);
                random.Fill(src.bytes(), extent);
                src.MakeReadOnly();
                GuardedBuffer dst(Area(to), place);
                ImageResizeBilin(src.bytes(), dst.bytes(), from.height, from.width, stride,
                                 to.height, to.width);
                const Bytes got(dst.bytes(), dst.bytes() + Area(to));
                ASSERT_EQ(Difference(got, Expected(src.bytes(), stride, from, to), from, to), "");
            }
        }
    }
}

// Sums of many rounded steps drift; even where they pass the last pixel nothing outside is read.
TEST_F(ImageResize, LongAxesAreNeverReadBeyondTheirEnd) {
    Random random(8);
    for (const Size from : {Size{1, 5000}, {5000, 1}, {1, 40000}, {1, 65537}}) {
        for (const int32_t n : {1, 2, 997, 3333, 4999, 5000, 5001, 20001, 39999, 65536}) {
            const Size to = from.height == 1 ? Size{1, n} : Size{n, 1};
            GuardedBuffer src(Area(from));
            random.Fill(src.bytes(), Area(from));
            src.MakeReadOnly();
            GuardedBuffer dst(Area(to));
            ImageResizeBilin(src.bytes(), dst.bytes(), from.height, from.width, from.width,
                             to.height, to.width);
            const Bytes got(dst.bytes(), dst.bytes() + Area(to));
            ASSERT_EQ(Difference(got, Expected(src.bytes(), from.width, from, to), from, to), "");
        }
    }
}

TEST_F(ImageResize, SizesBelowOneWriteNothing) {
    const Bytes src(16, 9);
    for (const int32_t bad : {0, -1, -256, INT32_MIN}) {
        const int32_t sizes[][4] = {{bad, 4, 4, 4}, {4, bad, 4, 4}, {4, 4, bad, 4}, {4, 4, 4, bad}};
        for (const auto& s : sizes) {
            orvo_test::StderrCapture capture;
            Bytes dst(16, 77);
            ImageResizeBilin(src.data(), dst.data(), s[0], s[1], 4, s[2], s[3]);
            EXPECT_EQ(dst, Bytes(16, 77));
            ImageResizeBilin(nullptr, nullptr, s[0], s[1], 4, s[2], s[3]);
            EXPECT_EQ(capture.text(), "");
        }
    }
}

// ---- Bounded copies

// The rows that repeat the first and the last source row: 6 to 24 rows has two at each side.
struct Copies {
    std::vector<BoundedCall> calls;
    Bytes dst;
    std::string text;
};

Copies ResizeSixTo(Size to, int failing, int code) {
    const Bytes src = RandomPixels(9, 36);
    Copies result;
    result.dst.assign(Area(to), 77);
    orvo_test::StderrCapture capture;
    orvo_test::RecordBoundedCalls();
    orvo_test::FailBoundedCall(failing, code);
    ImageResizeBilin(src.data(), result.dst.data(), 6, 6, 6, to.height, to.width);
    result.calls = orvo_test::BoundedCalls();
    orvo_test::StopBoundedFaults();
    result.text = capture.text();
    return result;
}

TEST_F(ImageResize, RepeatedRowsAreCopiedWithinTheSpaceLeft) {
    // 6 to 40 rows: by = ceil((40 / 6 - 1) / 2) = 3.
    const Copies run = ResizeSixTo({40, 24}, 0, 0);
    ASSERT_EQ(run.calls.size(), 4u);
    const size_t rows[] = {1, 2, 38, 39};
    const size_t from[] = {0, 0, 37, 37};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_TRUE(run.calls[i].isCopy);
        EXPECT_EQ(run.calls[i].count, 24u);
        EXPECT_EQ(run.calls[i].dstSize, (40 - rows[i]) * 24);
        // The addresses are those of the run's own buffer, whose start the first copy reads.
        const auto* start = static_cast<const uint8_t*>(run.calls[0].src);
        EXPECT_EQ(run.calls[i].dst, start + rows[i] * 24);
        EXPECT_EQ(run.calls[i].src, start + from[i] * 24);
    }
    EXPECT_EQ(run.text, "");
}

TEST_F(ImageResize, FailedCopyIntoTheTopBandIsReportedAndEndsTheCall) {
    const Copies run = ResizeSixTo({40, 24}, 2, 34);
    EXPECT_TRUE(orvo_test::IsErrorLine(run.text, "../common/image_tools",
                                       "memcpy_s scaledImage failed: 34\n"))
        << run.text;
    EXPECT_EQ(run.calls.size(), 2u);
    // Rows 0 and 1 are there, nothing after them.
    EXPECT_TRUE(std::equal(run.dst.begin(), run.dst.begin() + 24, run.dst.begin() + 24));
    EXPECT_TRUE(
        std::all_of(run.dst.begin() + 48, run.dst.end(), [](uint8_t p) { return p == 77; }));
}

TEST_F(ImageResize, FailedCopyWithinTheBottomBandIsReportedAndEndsTheCall) {
    const Copies clean = ResizeSixTo({40, 24}, 0, 0);
    for (const int failing : {3, 4}) {
        const Copies run = ResizeSixTo({40, 24}, failing, 22);
        EXPECT_TRUE(
            orvo_test::IsErrorLine(run.text, "../common/image_tools", "memcpy_s failed: 22\n"))
            << run.text;
        EXPECT_EQ(run.calls.size(), static_cast<size_t>(failing));
        const ptrdiff_t written = (failing == 3 ? 38 : 39) * 24;
        EXPECT_TRUE(std::equal(run.dst.begin(), run.dst.begin() + written, clean.dst.begin()));
        EXPECT_TRUE(std::all_of(run.dst.begin() + written, run.dst.end(),
                                [](uint8_t p) { return p == 77; }));
    }
}

TEST_F(ImageResize, ReducingCopiesNoRows) {
    const Copies run = ResizeSixTo({3, 24}, 0, 0);
    EXPECT_TRUE(run.calls.empty());
}

} // namespace
