// SPDX-License-Identifier: MIT
//
// Depthwise convolution with SSE4.1: two rows of outputs at a time, from pairs of rows.
//
//     rows        y-1 and y        | a0 b0 | a1 b1 | a2 b2 | ...     bytes, a column in each 16 bits
//     rows        y+1 and y+2      | c0 d0 | c1 d1 | c2 d2 | ...
//
//     output row y      (w0 w1) on a and b, (w2  0) on c and d      each at three columns
//     output row y + 1  ( 0 w0) on a and b, (w1 w2) on c and d
//
// w0 to w2 being the filter's rows. pmaddubsw does a pair of products for 8 columns, and the sums stay
// in 16 bits: see lanes.h for when that is exact. The filters of the networks that are shipped allow
// it for bytes of any value (six of ten), or for the values that their planes turn out to have (most
// of the others).
//
// Where it is not exact, a plane is widened to 16 bits and convolved in bands, as
// compute_a/simd/depthwise_band.h has them, by pmaddwd.
#include "compute_a/simd/depthwise_band.h"

#include "compute_a/simd/sse41/lanes.h"
#include "compute_a/simd/sse41/routines.h"

namespace orvo {
namespace {

inline __m128i RepeatPair(int first, int second) {
    return _mm_set1_epi32(static_cast<int>(static_cast<uint32_t>(first & 0xFFFF) |
                                           static_cast<uint32_t>(second) << 16));
}

// Bands of words. A vector is pairs of neighbouring columns. Even outputs x meet (x - 1, x) and
// (x + 1, x + 2), odd ones the same two vectors with their weights one column on. Where a pair
// would have a zero weight in two rows, one blend makes the two a pair.
struct BandLanes {
    static constexpr size_t kWidened = 8;
    static constexpr size_t kOutputs = 16;

    static void Widen(const int8_t* from, int16_t* to) {
        Store16(to, _mm_cvtepi8_epi16(Load8(from)));
    }
    static void Copy(const int8_t* from, int8_t* to) { Store8(to, Load8(from)); }

    struct Filter {
        __m128i even[3], odd[3];
        __m128i evenBlend, oddBlend, evenLast, oddLast;
        __m128i bias, shift, lowest;

        Filter(const int8_t* w, int32_t biasOfChannel, const DepthwisePlanes& p)
            : evenBlend(RepeatPair(w[2], w[5])),
              oddBlend(RepeatPair(w[3], w[0])),
              evenLast(RepeatPair(w[8], 0)),
              oddLast(RepeatPair(0, w[6])),
              bias(_mm_set1_epi32(biasOfChannel)),
              shift(_mm_cvtsi32_si128(static_cast<int>(p.shift))),
              lowest(_mm_set1_epi8(p.lowest)) {
            for (size_t row = 0; row < 3; ++row) {
                even[row] = RepeatPair(w[3 * row], w[3 * row + 1]);
                odd[row] = RepeatPair(w[3 * row + 1], w[3 * row + 2]);
            }
        }
    };

    // 8 outputs as words: even ones, then odd ones. Nine products of bytes fit 32 bits many times
    // over; with the bias they wrap.
    static __m128i Convolve8(const int16_t* at, size_t pitch, const Filter& f) {
        __m128i even = f.bias;
        __m128i odd = f.bias;
        const auto add = [](__m128i& sum, __m128i values, const __m128i& weights) {
            sum = _mm_add_epi32(sum, _mm_madd_epi16(values, weights));
        };
        const __m128i left0 = Load16(at);
        const __m128i right0 = Load16(at + 2);
        const __m128i middle1 = Load16(at + pitch + 1);
        add(even, left0, f.even[0]);
        add(odd, right0, f.odd[0]);
        add(even, _mm_blend_epi16(right0, middle1, 0xAA), f.evenBlend);
        add(odd, _mm_blend_epi16(middle1, left0, 0xAA), f.oddBlend);
        add(even, Load16(at + pitch), f.even[1]);
        add(odd, Load16(at + pitch + 2), f.odd[1]);
        const __m128i left2 = Load16(at + 2 * pitch);
        const __m128i right2 = Load16(at + 2 * pitch + 2);
        add(even, left2, f.even[2]);
        add(odd, right2, f.odd[2]);
        add(even, right2, f.evenLast);
        add(odd, left2, f.oddLast);
        return _mm_packs_epi32(_mm_sra_epi32(even, f.shift), _mm_sra_epi32(odd, f.shift));
    }

    static void Convolve(const int16_t* values, size_t pitch, const Filter& f, int8_t* results) {
        const __m128i interleave =
            _mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15);
        const __m128i low = Convolve8(values, pitch, f);
        const __m128i high = Convolve8(values + 8, pitch, f);
        const __m128i bytes = _mm_max_epi8(_mm_packs_epi16(low, high), f.lowest);
        Store16(results, _mm_shuffle_epi8(bytes, interleave));
    }
};

constexpr size_t kBlock = 8; // outputs of a row, made at a time

// A channel's weights, and more bytes than they are.
struct Weights {
    int8_t bytes[16] = {};

    explicit Weights(const int8_t* w) { std::memcpy(bytes, w, 9); }
};

// What can be said of a filter's sums for values of some range.
struct Sums {
    int64_t bias; // to start from, once the values are taken without a sign
    int positive, negative;

    Sums(const Weights& w, int32_t biasOfChannel, const Range& range) {
        // The sum of magnitudes, once 128 has been added to each byte.
        const auto sum = [](__m128i bytes) {
            const __m128i halves =
                _mm_sad_epu8(_mm_xor_si128(bytes, _mm_set1_epi8(INT8_MIN)), _mm_setzero_si128());
            return _mm_cvtsi128_si32(halves) + _mm_extract_epi16(halves, 4) - 16 * 128;
        };
        const __m128i bytes = Load16(w.bytes);
        positive = sum(_mm_max_epi8(bytes, _mm_setzero_si128()));
        negative = sum(_mm_min_epi8(bytes, _mm_setzero_si128()));
        bias = biasOfChannel + int64_t{range.lowest} * (positive + negative);
    }

    // The bias is added with saturation. Where that comes into effect it shows in no result, if a
    // saturated sum gives a saturated result: shifts up to 8.
    bool fit(const Range& range, uint32_t shift) const {
        const int limit = SumLimit(range);
        const auto isWord = [](int64_t sum) { return sum >= INT16_MIN && sum <= INT16_MAX; };
        return positive <= limit && -negative <= limit && isWord(bias) &&
               (shift <= 8 || (isWord(bias + int64_t{positive} * range.width()) &&
                               isWord(bias + int64_t{negative} * range.width())));
    }
};

// A filter whose sums fit 16 bits.
struct NarrowFilter {
    __m128i evenUpper[3],
        evenLower[3]; // by column: weights of the upper pair of rows, of the lower
    __m128i oddUpper[3], oddLower[3];
    __m128i bias, shift, lowest;
    int8_t leastValue; // of the plane
};

void MakeNarrow(const Weights& w, const Sums& sums, const Range& range, const DepthwisePlanes& p,
                NarrowFilter& filter) {
    constexpr int kZero = 15; // the place of a byte that is no weight
    const __m128i weights = Load16(w.bytes);
    const auto repeat = [&](int first, int second) {
        return _mm_shuffle_epi8(weights, _mm_set1_epi16(static_cast<int16_t>(first | second << 8)));
    };
#pragma GCC unroll 3
    for (int column = 0; column < 3; ++column) {
        filter.evenUpper[column] = repeat(column, column + 3);
        filter.evenLower[column] = repeat(column + 6, kZero);
        filter.oddUpper[column] = repeat(kZero, column);
        filter.oddLower[column] = repeat(column + 3, column + 6);
    }
    filter.bias = _mm_set1_epi16(static_cast<int16_t>(sums.bias));
    filter.shift = _mm_cvtsi32_si128(static_cast<int>(p.shift));
    filter.lowest = _mm_set1_epi8(p.lowest);
    filter.leastValue = static_cast<int8_t>(range.lowest);
}

// Whether the sums of a channel fit 16 bits; if so, its filter. The plane is looked at only where it
// matters.
bool IsNarrow(const DepthwisePlanes& p, const int8_t* plane, const int8_t* weights, int32_t bias,
              NarrowFilter& filter) {
    const Weights w(weights);
    const Sums ofAny(w, bias, kAnyValue);
    if (ofAny.fit(kAnyValue, p.shift)) {
        MakeNarrow(w, ofAny, kAnyValue, p, filter);
        return true;
    }
    if (p.width * p.height < 16) {
        return false;
    }
    RangeFinder finder;
    finder.Take(plane, p.width * p.height);
    const Range range = finder.Found();
    const Sums sums(w, bias, range);
    if (!sums.fit(range, p.shift)) {
        return false;
    }
    MakeNarrow(w, sums, range, p, filter);
    return true;
}

// Pairs of rows of a strip, with a neighbour or a zero at either end. Rows narrower than a block have
// more room, in which anything may stand.
using Pair = int8_t[2];

struct RowPairs {
    static constexpr size_t kColumns = 3072;
    alignas(16) Pair values[kColumns];
};

// A row outside the plane, from a neighbour on.
constexpr int8_t kZeros[1 + kStripOutputs + 1] = {};

// `count` columns of two rows, at least a block.
inline void PairColumns(const int8_t* upper, const int8_t* lower, size_t count, __m128i least,
                        Pair* to) {
    const auto pair8 = [&](size_t x) {
        Store16(to + x, _mm_sub_epi8(_mm_unpacklo_epi8(Load8(upper + x), Load8(lower + x)), least));
    };
    size_t x = 0;
    for (; x + 16 <= count; x += 16) {
        const __m128i a = Load16(upper + x);
        const __m128i b = Load16(lower + x);
        Store16(to + x, _mm_sub_epi8(_mm_unpacklo_epi8(a, b), least));
        Store16(to + x + 8, _mm_sub_epi8(_mm_unpackhi_epi8(a, b), least));
    }
    if (x + 8 < count) {
        pair8(x);
    }
    if (x < count) {
        pair8(count - kBlock);
    }
}

// Rows of fewer columns than a block, where there are not enough values behind them either.
void PairFewColumns(const int8_t* upper, const int8_t* lower, size_t count, __m128i least,
                    Pair* to) {
    int8_t rows[2][kBlock] = {};
    std::memcpy(rows[0], upper, count);
    std::memcpy(rows[1], lower, count);
    PairColumns(rows[0], rows[1], kBlock, least, to);
}

inline void PutPair(int upper, int lower, Pair* to) {
    const uint16_t pair = static_cast<uint16_t>((upper & 0xFF) | (lower & 0xFF) << 8);
    __builtin_memcpy(to, &pair, sizeof pair);
}

// Rows y - 1 and y.
inline void PairRows(const Strip& strip, size_t y, int least, Pair* to) {
    const auto row = [&](size_t at) {
        return at < strip.height ? strip.src + at * strip.width : kZeros + 1;
    };
    const int8_t* const upper = row(y - 1); // the row above the first has wrapped
    const int8_t* const lower = row(y);
    const size_t count = strip.outputs;
    const __m128i leasts = _mm_set1_epi8(static_cast<int8_t>(least));
    if (count >= kBlock) {
        PairColumns(upper, lower, count, leasts, to + 1);
    } else if (strip.srcEnd - strip.src >= static_cast<ptrdiff_t>((y + 1) * strip.width + kBlock)) {
        PairColumns(upper, lower, kBlock, leasts, to + 1);
    } else {
        PairFewColumns(upper, lower, count, leasts, to + 1);
    }
    strip.hasLeft ? PutPair(upper[-1] - least, lower[-1] - least, to) : PutPair(-least, -least, to);
    strip.hasRight ? PutPair(upper[count] - least, lower[count] - least, to + 1 + count)
                   : PutPair(-least, -least, to + 1 + count);
}

// 8 outputs of a row, and 8 of the row below. Register plan: 2 sums, 6 vectors of values, 2 products,
// bias, shift and lowest; the weights are memory operands.
inline __m128i ConvolveBlock(const Pair* upper, size_t pitch, const NarrowFilter& f) {
    const Pair* const lower = upper + pitch;
    __m128i even = _mm_setzero_si128();
    __m128i odd = even;
#pragma GCC unroll 3
    for (size_t column = 0; column < 3; ++column) {
        const __m128i ab = Load16(upper + column);
        const __m128i cd = Load16(lower + column);
        even = _mm_add_epi16(even, _mm_maddubs_epi16(ab, f.evenUpper[column]));
        odd = _mm_add_epi16(odd, _mm_maddubs_epi16(ab, f.oddUpper[column]));
        even = _mm_add_epi16(even, _mm_maddubs_epi16(cd, f.evenLower[column]));
        odd = _mm_add_epi16(odd, _mm_maddubs_epi16(cd, f.oddLower[column]));
    }
    even = _mm_sra_epi16(_mm_adds_epi16(even, f.bias), f.shift);
    odd = _mm_sra_epi16(_mm_adds_epi16(odd, f.bias), f.shift);
    return _mm_max_epi8(_mm_packs_epi16(even, odd), f.lowest);
}

inline void StoreBlock(__m128i block, int8_t* even, int8_t* odd) {
    _mm_storeh_pi(reinterpret_cast<__m64*>(odd), _mm_castsi128_ps(block));
    Store8(even, block);
}

// Output row y and, where it is there, the row below.
inline void ConvolveRows(const Strip& strip, const Pair* upper, size_t pitch, size_t y,
                         const NarrowFilter& filter) {
    const size_t count = strip.outputs;
    int8_t* const even = strip.dst + y * strip.width;
    // Where there is no row below, its outputs go where those of row y overwrite them.
    int8_t* const odd = y + 1 < strip.height ? even + strip.width : even;
    if (count >= kBlock) {
        for (size_t x = 0; x + kBlock < count; x += kBlock) {
            StoreBlock(ConvolveBlock(upper + x, pitch, filter), even + x, odd + x);
        }
        const size_t x = count - kBlock;
        StoreBlock(ConvolveBlock(upper + x, pitch, filter), even + x, odd + x);
        return;
    }
    int8_t block[2][kBlock];
    Store16(block, ConvolveBlock(upper, pitch, filter));
    for (size_t x = 0; x < count; ++x) {
        odd[x] = block[1][x];
        even[x] = block[0][x];
    }
}

void ConvolveNarrow(const Strip& strip, const NarrowFilter& filter) {
    RowPairs band;
    const size_t pitch = (strip.outputs < kBlock ? kBlock : strip.outputs) + 2;
    const size_t most = RowPairs::kColumns / pitch - 1; // pairs of output rows at a time
    const size_t pairs = (strip.height + 1) / 2;
    for (size_t first = 0; first < pairs; first += most) {
        const size_t count = pairs - first < most ? pairs - first : most;
        for (size_t i = 0; i <= count; ++i) {
            PairRows(strip, 2 * (first + i), filter.leastValue, band.values + i * pitch);
        }
        for (size_t i = 0; i < count; ++i) {
            ConvolveRows(strip, band.values + i * pitch, pitch, 2 * (first + i), filter);
        }
    }
}

} // namespace

void sse41::Depthwise(const DepthwisePlanes& p) {
    const size_t plane = p.width * p.height;
    const int8_t* const srcEnd = p.src + p.channels * plane;
    int8_t* const dstEnd = p.dst + p.channels * plane;
    for (size_t c = 0; c < p.channels; ++c) {
        const int8_t* const weights = p.weights + 9 * c;
        NarrowFilter narrow;
        const bool isNarrow = IsNarrow(p, p.src + c * plane, weights, p.bias[c], narrow);
        for (size_t x = 0; x < p.width; x += kStripOutputs) {
            const size_t left = p.width - x;
            const size_t outputs = left < kStripOutputs ? left : kStripOutputs;
            const Strip strip = {p.src + c * plane + x,
                                 srcEnd,
                                 p.dst + c * plane + x,
                                 dstEnd,
                                 p.width,
                                 p.height,
                                 outputs,
                                 x > 0,
                                 left > outputs};
            if (isNarrow) {
                ConvolveNarrow(strip, narrow);
            } else {
                ConvolveStrip<BandLanes>(strip, BandLanes::Filter(weights, p.bias[c], p));
            }
        }
    }
}

} // namespace orvo
