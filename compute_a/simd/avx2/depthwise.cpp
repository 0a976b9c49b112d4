// SPDX-License-Identifier: MIT
//
// Depthwise filters with AVX2.
#include "compute_a/routines.h"
#include "compute_a/simd/avx2/lanes.h"
#include "compute_a/simd/avx2/routines.h"

namespace orvo {
namespace {

// A band of rows is widened to 16 bits, with a zero between the end of a row and the start of the
// next, which is the border of both. In this band a filter is the same everywhere, so that 32
// outputs are made at a time from one end to the other, whatever the width: planes of 12 x 12 fill
// the vectors as well as planes of 96 x 96. The results between the rows mean nothing; they are
// left out where the rows go to the output.
//
// A vector of the band is pairs of neighbouring columns, which vpmaddwd takes as they are. Even
// outputs x meet (x - 1, x) and (x + 1, x + 2), odd ones the same two vectors with their weights
// one column on. Where a pair would have a zero weight in two rows, one blend makes the two a pair.

constexpr size_t kStripOutputs = 128; // of an output row, if it is wider
constexpr size_t kBandValues = 1536;
constexpr size_t kBandReach = 64; // what the vectors of the last outputs reach beyond the band

// Columns of a plane, whose outputs are made together.
struct Strip {
    const int8_t* src; // the first output's column in row 0
    const int8_t* srcEnd;
    int8_t* dst;
    int8_t* dstEnd;
    size_t width, height; // of the plane
    size_t outputs;
    bool hasLeft, hasRight; // neighbours

    // Each row has a border on both sides; rows with nothing but zeros there share them.
    size_t pitch() const { return outputs + (hasLeft || hasRight ? 2 : 1); }
};

constexpr int8_t kZeroRow[kStripOutputs + 2 + 15] = {};

struct Band {
    alignas(32) int16_t values[kBandValues + kBandReach];
    alignas(32) int8_t results[kBandValues + kBandReach];
};

inline size_t RoundUp16(size_t count) { return (count + 15) / 16 * 16; }

inline __m256i Widen16(const int8_t* from) { return _mm256_cvtepi8_epi16(Load16(from)); }

// `count` values and a zero. More may be written behind it; what comes there is written later.
inline void WidenRow(const int8_t* from, size_t count, int16_t* to) {
    for (size_t x = 0; x < count; x += 16) {
        Store32(to + x, Widen16(from + x));
    }
    to[count] = 0;
}

// The same for a row after which there are not enough values for a whole vector.
void WidenLastRow(const int8_t* from, size_t count, int16_t* to) {
    alignas(16) int8_t row[kStripOutputs + 2 + 15];
    __builtin_memcpy(row, from, count);
    WidenRow(row, count, to);
}

// The rows that `rows` output rows from `y` on need, the one above them first.
void WidenBand(const Strip& strip, size_t y, size_t rows, Band& band) {
    const size_t pitch = strip.pitch();
    const size_t left = strip.hasLeft ? 1 : 0;
    const size_t count = left + strip.outputs + (strip.hasRight ? 1 : 0);
    const size_t rounded = RoundUp16(count);
    int16_t* to = band.values;
    for (size_t row = y - 1; row != y + rows + 1; ++row, to += pitch) {
        to[0] = 0;
        if (row >= strip.height) { // the row above the first has wrapped
            WidenRow(kZeroRow, pitch, to);
            continue;
        }
        const int8_t* from = strip.src + row * strip.width - left;
        if (static_cast<size_t>(strip.srcEnd - from) >= rounded) {
            WidenRow(from, count, to + 1 - left);
        } else {
            WidenLastRow(from, count, to + 1 - left);
        }
    }
}

struct DepthwiseFilter {
    // Weights of pairs of values of one row, by row; of the pairs of two rows; and of the last row
    // alone.
    __m256i even[3], odd[3];
    __m256i evenBlend, oddBlend, evenLast, oddLast;
    __m256i bias, shift, lowest;
};

inline __m256i WeightPair(int first, int second) {
    return _mm256_set1_epi32(static_cast<int>(static_cast<uint32_t>(first & 0xFFFF) |
                                              static_cast<uint32_t>(second) << 16));
}

DepthwiseFilter LoadFilter(const int8_t* w, int32_t bias, const DepthwisePlanes& p) {
    DepthwiseFilter f;
    for (size_t row = 0; row < 3; ++row) {
        f.even[row] = WeightPair(w[3 * row], w[3 * row + 1]);
        f.odd[row] = WeightPair(w[3 * row + 1], w[3 * row + 2]);
    }
    f.evenBlend = WeightPair(w[2], w[5]);
    f.oddBlend = WeightPair(w[3], w[0]);
    f.evenLast = WeightPair(w[8], 0);
    f.oddLast = WeightPair(0, w[6]);
    f.bias = _mm256_set1_epi32(bias);
    f.shift = _mm256_set1_epi32(static_cast<int>(p.shift));
    f.lowest = _mm256_set1_epi8(p.lowest);
    return f;
}

// GCC would load once for each use, and weights that it has no registers left for as well.
inline __m256i LoadOnce(const int16_t* from) {
    __m256i values = Load32(from);
    __asm__("" : "+x"(values));
    return values;
}

// 16 outputs as words: even ones, then odd ones, in each half. Nine products of bytes fit 32 bits
// many times over; with the bias they wrap. Register plan: 2 sums, 3 vectors of values, 1 product
// and as many of the 10 vectors of weights as GCC finds room for; the others are memory operands,
// which the loads can bear: 28 a turn of 32 outputs, of which the arithmetic takes 18 cycles.
inline __m256i Convolve16(const int16_t* at, size_t pitch, const DepthwiseFilter& f) {
    __m256i even = f.bias;
    __m256i odd = f.bias;
    const auto add = [](__m256i& sum, __m256i values, const __m256i& weights) {
        sum = _mm256_add_epi32(sum, _mm256_madd_epi16(values, weights));
    };
    const __m256i left0 = LoadOnce(at);
    const __m256i right0 = LoadOnce(at + 2);
    const __m256i middle1 = LoadOnce(at + pitch + 1);
    add(even, left0, f.even[0]);
    add(odd, right0, f.odd[0]);
    add(even, _mm256_blend_epi16(right0, middle1, 0xAA), f.evenBlend);
    add(odd, _mm256_blend_epi16(middle1, left0, 0xAA), f.oddBlend);
    add(even, Load32(at + pitch), f.even[1]);
    add(odd, Load32(at + pitch + 2), f.odd[1]);
    const __m256i left2 = LoadOnce(at + 2 * pitch);
    const __m256i right2 = LoadOnce(at + 2 * pitch + 2);
    add(even, left2, f.even[2]);
    add(odd, right2, f.odd[2]);
    add(even, right2, f.evenLast);
    add(odd, left2, f.oddLast);
    return _mm256_packs_epi32(_mm256_srav_epi32(even, f.shift), _mm256_srav_epi32(odd, f.shift));
}

void ConvolveBand(Band& band, size_t count, size_t pitch, const DepthwiseFilter& f) {
    const __m256i interleave = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15));
    for (size_t i = 0; i < count; i += 32) {
        const __m256i low = Convolve16(band.values + i, pitch, f);
        const __m256i high = Convolve16(band.values + i + 16, pitch, f);
        const __m256i bytes = _mm256_max_epi8(_mm256_packs_epi16(low, high), f.lowest);
        Store32(band.results + i,
                _mm256_permute4x64_epi64(_mm256_shuffle_epi8(bytes, interleave), 0xD8));
    }
}

// Rows are stored in whole vectors where what they overwrite is stored later.
void StoreBand(const Strip& strip, size_t y, size_t rows, const Band& band) {
    const bool isWhole = !strip.hasLeft && !strip.hasRight;
    const size_t pitch = strip.pitch();
    const size_t rounded = RoundUp16(strip.outputs);
    const int8_t* from = band.results;
    int8_t* to = strip.dst + y * strip.width;
    for (size_t row = 0; row < rows; ++row, from += pitch, to += strip.width) {
        if (isWhole && static_cast<size_t>(strip.dstEnd - to) >= rounded) {
            for (size_t x = 0; x < rounded; x += 16) {
                Store16(to + x, Load16(from + x));
            }
        } else {
            __builtin_memcpy(to, from, strip.outputs);
        }
    }
}

void DepthwiseStrip(const Strip& strip, const DepthwiseFilter& f) {
    Band band;
    const size_t pitch = strip.pitch();
    const size_t most = kBandValues / pitch - 2;
    for (size_t y = 0; y < strip.height;) {
        const size_t left = strip.height - y;
        const size_t rows = left < most ? left : most;
        WidenBand(strip, y, rows, band);
        ConvolveBand(band, rows * pitch, pitch, f);
        StoreBand(strip, y, rows, band);
        y += rows;
    }
}

} // namespace

void avx2::Depthwise(const DepthwisePlanes& p) {
    const size_t plane = p.width * p.height;
    const int8_t* const srcEnd = p.src + p.channels * plane;
    int8_t* const dstEnd = p.dst + p.channels * plane;
    for (size_t c = 0; c < p.channels; ++c) {
        const DepthwiseFilter filter = LoadFilter(p.weights + 9 * c, p.bias[c], p);
        for (size_t x = 0; x < p.width; x += kStripOutputs) {
            const size_t left = p.width - x;
            const size_t outputs = left < kStripOutputs ? left : kStripOutputs;
            DepthwiseStrip({p.src + c * plane + x, srcEnd, p.dst + c * plane + x, dstEnd, p.width,
                            p.height, outputs, x > 0, left > outputs},
                           filter);
        }
    }
}

} // namespace orvo
