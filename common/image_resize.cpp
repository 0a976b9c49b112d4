// SPDX-License-Identifier: MIT
//
// Bilinear resize of an 8-bit plane in 14-bit fixed point, centre-aligned.
//
// When enlarging, the outermost output pixels have source positions outside the source. They form a
// border of bx columns at the left and right and by rows at the top and bottom, in which the
// nearest source column or row stands for both neighbours. When reducing, the border is empty.
#include <algorithm>
#include <cmath>
#include <cstddef>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "common/diagnostics.h"
#include "common/float_steps.h"
#include "orvo/bounded_memory.h"
#include "orvo/image_tools.h"

int16_t g_bilinLUT[32][32][4];

namespace {

constexpr char kUnit[] = "../common/image_tools";
constexpr int32_t kLevels = 32;     // fractions of a pixel that the weight table knows
constexpr int32_t kOne = 1 << 14;   // 1.0 in the table's fixed point
constexpr int32_t kHalf = kOne / 2; // rounds the shift that takes a sum back to pixels
constexpr double kLastLevel = kLevels - 1;

// How one direction, columns or rows, maps to the source. The positions are single precision and
// accumulated step by step, so the last bits depend on the order of the operations: keep it.
struct Axis {
    int32_t srcSize;
    int32_t dstSize;
    int32_t border; // output positions at each end that lie outside the source
    float step;     // source pixels from one output position to the next
    float start;    // source position of the first output position after the border
};

// A source position: the pixel at or before it, the pixel after it, and the fraction between them.
struct Position {
    int32_t pixel;
    int32_t next;
    int32_t level;
};

Axis MakeAxis(int32_t srcSize, int32_t dstSize) {
    Axis axis;
    axis.srcSize = srcSize;
    axis.dstSize = dstSize;
    axis.step = static_cast<float>(srcSize) / static_cast<float>(dstSize);
    const float offset = (1.0f - axis.step) * 0.5f;
    const double border = std::ceil(static_cast<double>(offset) / static_cast<double>(axis.step));
    axis.border = static_cast<int32_t>(border);
    axis.start = axis.step * static_cast<float>(axis.border) - offset;
    return axis;
}

Position Locate(const Axis& axis, float position) {
    const int64_t pixel = static_cast<int64_t>(position);
    const double fraction = static_cast<double>(position - static_cast<float>(pixel));
    const int32_t level = static_cast<int32_t>(fraction * kLastLevel + 0.5);
    // Accumulated rounding may carry a position past the last pixel of a very large plane; nothing
    // there may be read.
    const int64_t last = axis.srcSize - 1;
    return {static_cast<int32_t>(std::min(pixel, last)),
            static_cast<int32_t>(std::min(pixel + 1, last)), level};
}

bool IsLevel(int32_t level) { return level >= 0 && level < kLevels; }

uint8_t ToPixel(int32_t sum) { return static_cast<uint8_t>(std::clamp(sum >> 14, 0, 255)); }

// A row in the top or bottom border: interpolated along one source row only.
// Returns false, with a message, when a fraction leaves the weight table.
bool ResizeBorderRow(const uint8_t* srcRow, const Axis& columns, uint8_t* dstRow) {
    const int32_t middleEnd = columns.dstSize - columns.border;
    int32_t x = 0;
    for (; x < columns.border; ++x) {
        dstRow[x] = srcRow[0];
    }
    float position = columns.start;
    for (; x < middleEnd; ++x, position += columns.step) {
        const Position p = Locate(columns, position);
        if (!IsLevel(p.level)) {
            ORVO_ERR(kUnit, "lutIdxX is %d out of array: [0, %d].\n\n", p.level, kLevels - 1);
            return false;
        }
        const int16_t* w = g_bilinLUT[0][p.level];
        dstRow[x] = ToPixel(w[0] * srcRow[p.pixel] + w[1] * srcRow[p.next] + kHalf);
    }
    for (; x < columns.dstSize; ++x) {
        dstRow[x] = srcRow[columns.srcSize - 1];
    }
    return true;
}

// The rows between the borders, each interpolated between two source rows.
struct MiddleRows {
    const uint8_t* src;
    int32_t srcStride;
    Axis axis;
    uint8_t* dst;
    int32_t dstWidth;
};

// Calls make(upper, lower, level, dstRow) for each of them.
template <typename Make>
void ForMiddleRows(const MiddleRows& rows, const Make& make) {
    const int32_t bottom = rows.axis.dstSize - rows.axis.border;
    float position = rows.axis.start;
    for (int32_t y = rows.axis.border; y < bottom; ++y, position += rows.axis.step) {
        const Position p = Locate(rows.axis, position);
        make(rows.src + static_cast<ptrdiff_t>(p.pixel) * rows.srcStride,
             rows.src + static_cast<ptrdiff_t>(p.next) * rows.srcStride, p.level,
             rows.dst + static_cast<size_t>(y) * static_cast<size_t>(rows.dstWidth));
    }
}

// The columns at both ends whose positions lie outside the source.
void ResizeMiddleEdges(const MiddleRows& rows, const Axis& columns) {
    const int32_t last = columns.srcSize - 1;
    const int32_t rightEdge = std::max(columns.border, columns.dstSize - columns.border);
    ForMiddleRows(
        rows, [&](const uint8_t* upper, const uint8_t* lower, int32_t level, uint8_t* dstRow) {
            const int16_t* edge = g_bilinLUT[level][0];
            const uint8_t left = ToPixel(edge[0] * upper[0] + edge[2] * lower[0] + kHalf);
            const uint8_t right = ToPixel(edge[0] * upper[last] + edge[2] * lower[last] + kHalf);
            std::fill(dstRow, dstRow + columns.border, left);
            std::fill(dstRow + rightEdge, dstRow + columns.dstSize, right);
        });
}

// The columns at the start of a strip that have the next pixel beside their own.
struct Columns {
    const Position* positions;
    int32_t count;
};

// Makes as many outputs as come in fours, and returns how many.
#if defined(__SSE2__)
int32_t BlendFours(const Columns& columns, const uint8_t* upper, const uint8_t* lower,
                   const int16_t (*weights)[4], uint8_t* dst) {
    const auto pair = [](const uint8_t* at) {
        uint16_t pixels;
        __builtin_memcpy(&pixels, at, sizeof pixels);
        return pixels;
    };
    // The upper two pixels and the lower two, by their weights, of two outputs.
    const auto products = [&](const Position& a, const Position& b) {
        const auto four = [&](const Position& p) {
            return _mm_cvtsi32_si128(
                static_cast<int>(pair(upper + p.pixel) | uint32_t{pair(lower + p.pixel)} << 16));
        };
        const auto load = [](const int16_t* w) {
            return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(w));
        };
        const __m128i pixels =
            _mm_unpacklo_epi8(_mm_unpacklo_epi32(four(a), four(b)), _mm_setzero_si128());
        return _mm_castsi128_ps(_mm_madd_epi16(
            pixels, _mm_unpacklo_epi64(load(weights[a.level]), load(weights[b.level]))));
    };
    const int32_t count = columns.count & ~3;
    for (int32_t i = 0; i < count; i += 4) {
        const Position* p = columns.positions + i;
        const __m128 low = products(p[0], p[1]);
        const __m128 high = products(p[2], p[3]);
        const __m128i sums =
            _mm_add_epi32(_mm_castps_si128(_mm_shuffle_ps(low, high, _MM_SHUFFLE(2, 0, 2, 0))),
                          _mm_castps_si128(_mm_shuffle_ps(low, high, _MM_SHUFFLE(3, 1, 3, 1))));
        const __m128i words = _mm_srai_epi32(_mm_add_epi32(sums, _mm_set1_epi32(kHalf)), 14);
        const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(words, words), words);
        const int32_t four = _mm_cvtsi128_si32(bytes);
        __builtin_memcpy(dst + i, &four, sizeof four);
    }
    return count;
}
#else
int32_t BlendFours(const Columns&, const uint8_t*, const uint8_t*, const int16_t (*)[4], uint8_t*) {
    return 0;
}
#endif

// The others, in strips of columns that are located once for all rows.
void ResizeMiddleColumns(const MiddleRows& rows, const Axis& columns) {
    constexpr int32_t kStrip = 128;
    const int32_t middleEnd = columns.dstSize - columns.border;
    float position = columns.start;
    for (int32_t first = columns.border; first < middleEnd; first += kStrip) {
        const int32_t count = std::min(kStrip, middleEnd - first);
        Position strip[kStrip];
        int32_t pairs = 0;
        for (int32_t i = 0; i < count; ++i, position += columns.step) {
            strip[i] = Locate(columns, position);
            pairs += strip[i].next != strip[i].pixel; // only the last ones may have none
        }
        ForMiddleRows(rows, [&](const uint8_t* upper, const uint8_t* lower, int32_t level,
                                uint8_t* dstRow) {
            const int16_t(*weights)[4] = g_bilinLUT[level];
            int32_t i = BlendFours({strip, pairs}, upper, lower, weights, dstRow + first);
            for (; i < count; ++i) {
                const Position& p = strip[i];
                const int16_t* w = weights[p.level];
                dstRow[first + i] = ToPixel(w[0] * upper[p.pixel] + w[1] * upper[p.next] +
                                            w[2] * lower[p.pixel] + w[3] * lower[p.next] + kHalf);
            }
        });
    }
}

} // namespace

void ImageResizeInit(void) {
    constexpr double kLevelSize = 1.0 / kLastLevel;
    for (int32_t fy = 0; fy < kLevels; ++fy) {
        for (int32_t fx = 0; fx < kLevels; ++fx) {
            const double a = fx * kLevelSize;
            const double b = fy * kLevelSize;
            int16_t* w = g_bilinLUT[fy][fx];
            w[0] = static_cast<int16_t>(std::round((1.0 - b) * kOne * (1.0 - a)));
            w[1] = static_cast<int16_t>(std::round((1.0 - b) * kOne * a));
            w[2] = static_cast<int16_t>(std::round(b * kOne * (1.0 - a)));
            // Not rounded itself: the four must sum to 1.0, so that a constant image stays
            // constant.
            w[3] = static_cast<int16_t>(kOne - w[0] - w[1] - w[2]);
        }
    }
}

void ImageResizeBilin(const uint8_t* src, uint8_t* dst, int32_t srcHeight, int32_t srcWidth,
                      int32_t srcStride, int32_t dstHeight, int32_t dstWidth) {
    if (srcHeight < 1 || srcWidth < 1 || dstHeight < 1 || dstWidth < 1) {
        return;
    }
    const Axis columns = MakeAxis(srcWidth, dstWidth);
    const Axis rows = MakeAxis(srcHeight, dstHeight);
    const size_t width = static_cast<size_t>(dstWidth);
    uint8_t* const dstEnd = dst + width * static_cast<size_t>(dstHeight);
    const auto srcRow = [=](int32_t y) { return src + static_cast<ptrdiff_t>(y) * srcStride; };
    const auto dstRow = [=](int32_t y) { return dst + static_cast<size_t>(y) * width; };
    const auto spaceFrom = [=](const uint8_t* at) { return static_cast<size_t>(dstEnd - at); };

    if (rows.border > 0) {
        if (!ResizeBorderRow(srcRow(0), columns, dst)) {
            return;
        }
        for (int32_t y = 1; y < rows.border; ++y) {
            const int ret = memcpy_s(dstRow(y), spaceFrom(dstRow(y)), dst, width);
            if (ret != 0) {
                ORVO_ERR(kUnit, "memcpy_s scaledImage failed: %d\n", ret);
                return;
            }
        }
    }

    const MiddleRows middle{src, srcStride, rows, dst, dstWidth};
    ResizeMiddleEdges(middle, columns);
    ResizeMiddleColumns(middle, columns);

    const int32_t bottom = dstHeight - rows.border;
    if (rows.border > 0) {
        uint8_t* const first = dstRow(bottom);
        if (!ResizeBorderRow(srcRow(srcHeight - 1), columns, first)) {
            return;
        }
        for (int32_t y = bottom + 1; y < dstHeight; ++y) {
            const int ret = memcpy_s(dstRow(y), spaceFrom(dstRow(y)), first, width);
            if (ret != 0) {
                ORVO_ERR(kUnit, "memcpy_s failed: %d\n", ret);
                return;
            }
        }
    }
}
