// SPDX-License-Identifier: MIT
//
// How planes are convolved depthwise by products of bytes, once for SSE4.1 and AVX2.
//
// A strip goes down the plane. A row is loaded twice, one column to the left and one to the right, straight
// from the plane, and taken for pairs of neighbouring columns:
//
//     left    | x-1  x   | x+1 x+2 | ...      even outputs x, x+2, ...      (w0 w1) on left, (w2  0) on right
//     right   | x+1  x+2 | x+3 x+4 | ...      odd outputs x+1, x+3, ...     ( 0 w0) on left, (w1 w2) on right
//
// w0 to w2 being a row of the filter. So four products a row make as many outputs as a vector has bytes.
// Their sums stay in 16 bits where unsigned_bytes.h says that this is exact: in one sum for eight outputs of
// ten in the networks that are shipped, in two for most of the others, one for the outer rows and one for the
// middle row. For the rest a path has another way.
//
// A vector of outputs takes 12 products, 12 additions, 4 instructions that make a row ready, 2 products that
// shift, and 3 that narrow, interleave and rectify; two sums take four more.
//
// What differs from one instruction set to another is a class of vectors: ByteVectors in their lanes.h.
#pragma once

#include "compute_a/simd/depthwise_band.h"
#include "compute_a/simd/unsigned_bytes.h"

namespace orvo {
namespace {

// A channel's weights, and other bytes behind them. They are loaded whole: what is put together from
// smaller stores could not be loaded until everything before it is done.
inline __m128i LoadWeights(const DepthwisePlanes& p, size_t channel) {
    const int8_t* const weights = p.weights + 9 * channel;
    if (channel + 1 < p.channels) {
        return Load16(weights);
    }
    if (channel > 0) {
        return _mm_srli_si128(Load16(weights - 7), 7);
    }
    int8_t bytes[16] = {};
    std::memcpy(bytes, weights, 9);
    return Load16(bytes);
}

// What a filter's weights add up to, those above zero and those below it: of its outer rows and of the one
// between them.
struct FilterTotals {
    int outerAbove, outerBelow, middleAbove, middleBelow;

    explicit FilterTotals(__m128i weights) {
        const __m128i zero = _mm_setzero_si128();
        const __m128i ordered = _mm_shuffle_epi8(
            weights, _mm_setr_epi8(0, 1, 2, 6, 7, 8, -1, -1, 3, 4, 5, -1, -1, -1, -1, -1));
        const __m128i above = _mm_sad_epu8(_mm_max_epi8(ordered, zero), zero);
        const __m128i below = _mm_sad_epu8(_mm_sub_epi8(zero, _mm_min_epi8(ordered, zero)), zero);
        outerAbove = _mm_cvtsi128_si32(above);
        outerBelow = _mm_cvtsi128_si32(below);
        middleAbove = _mm_extract_epi16(above, 4);
        middleBelow = _mm_extract_epi16(below, 4);
    }

    int above() const { return outerAbove + middleAbove; }
    int below() const { return outerBelow + middleBelow; }
};

// How many sums of 16 bits an output needs.
enum class Needed { kOneSum, kTwoSums, kMore };

inline bool IsWord(int64_t sum) { return sum >= INT16_MIN && sum <= INT16_MAX; }

// What to start from, once the values are taken without a sign.
inline int64_t StartOf(const FilterTotals& totals, const Range& range, int32_t bias) {
    return bias + int64_t{range.lowest} * (totals.above() - totals.below());
}

// One sum: the start is added with saturation. Where that comes into effect it shows in no result, if a
// saturated sum gives a saturated result: shifts up to 8. Two sums: the start is in that of the middle row.
inline Needed SumsFor(const FilterTotals& totals, const Range& range, int32_t bias,
                      uint32_t shift) {
    const auto fit = [&](int above, int below) {
        return range.width() * above <= INT16_MAX && range.width() * below <= INT16_MAX;
    };
    const int64_t start = StartOf(totals, range, bias);
    if (fit(totals.above(), totals.below()) && IsWord(start) &&
        (shift <= 8 || (IsWord(start + range.width() * totals.above()) &&
                        IsWord(start - range.width() * totals.below())))) {
        return Needed::kOneSum;
    }
    const bool isTwo = shift >= 3 && fit(totals.outerAbove, totals.outerBelow) &&
                       fit(totals.middleAbove, totals.middleBelow) &&
                       IsWord(start + range.width() * totals.middleAbove) &&
                       IsWord(start - range.width() * totals.middleBelow - 1);
    return isTwo ? Needed::kTwoSums : Needed::kMore;
}

// A filter whose sums fit 16 bits, ready to be repeated in vectors.
struct ByteFilter {
    // For each row those of even outputs on the left, odd ones there, then both on the right; each twice.
    alignas(16) int8_t pairs[3][4][4];
    int start, scale;
    int8_t lowest;
    int8_t least; // of the plane's values
};

inline ByteFilter MakeByteFilter(__m128i weights, const DepthwisePlanes& p, int start, int least,
                                 bool isTwo) {
    ByteFilter filter;
    for (int row = 0; row < 3; ++row) {
        constexpr int8_t kNone = -128; // no weight, but zero
        const __m128i places = _mm_add_epi8(
            _mm_set1_epi8(static_cast<int8_t>(3 * row)),
            _mm_setr_epi8(0, 1, 0, 1, kNone, 0, kNone, 0, 2, kNone, 2, kNone, 1, 2, 1, 2));
        Store16(filter.pairs[row], _mm_shuffle_epi8(weights, places));
    }
    const uint32_t shift = p.shift < 16 ? p.shift : 16;
    filter.start = isTwo ? start + INT16_MAX : start;
    filter.scale = 1 << (16 - shift + isTwo);
    filter.lowest = p.lowest;
    filter.least = static_cast<int8_t>(least);
    return filter;
}

// Makes the filter of a channel, if its sums fit 16 bits. The plane is looked at only where it matters. A
// sum is shifted by a signed product, whose factor a shift of 0 or 1 would not fit.
template <class V>
inline Needed PrepareBytes(const DepthwisePlanes& p, size_t channel, ByteFilter& filter) {
    if (p.shift < 2) {
        return Needed::kMore;
    }
    const __m128i weights = LoadWeights(p, channel);
    const FilterTotals totals(weights);
    const int32_t bias = p.bias[channel];
    const size_t plane = p.width * p.height;
    Range range = kAnyValue;
    Needed needed = SumsFor(totals, range, bias, p.shift);
    if (needed != Needed::kOneSum && plane >= V::kBytes) {
        range = RangeOf<V>(p.src + channel * plane, plane);
        needed = SumsFor(totals, range, bias, p.shift);
    }
    if (needed != Needed::kMore) {
        filter = MakeByteFilter(weights, p, static_cast<int>(StartOf(totals, range, bias)),
                                range.lowest, needed == Needed::kTwoSums);
    }
    return needed;
}

// Rows of bytes from a plane's column on. Before the first row of all planes and behind the last one
// nothing may be read: where those are concerned, `first` and `last` are copies.
struct PlaneRows {
    const int8_t *first, *src, *last;
    size_t width, height;

    const int8_t* at(size_t row) const {
        return row == 0 ? first : row + 1 == height ? last : src + row * width;
    }
};

// Where outputs go. Whole vectors are stored where what they overwrite is stored later; the others are kept
// until the end.
struct OutputRows {
    int8_t* dst;
    size_t width, height;
    size_t columns; // of the row that are made
    bool isLast;    // plane
};

template <size_t kSize>
inline void CopyEnds(const int8_t* from, size_t count, int8_t* to) {
    std::memcpy(to, from, kSize);
    std::memcpy(to + count - kSize, from + count - kSize, kSize);
}

// 4 to 32 bytes.
inline void CopyFew(const int8_t* from, size_t count, int8_t* to) {
    if (count >= 16) {
        CopyEnds<16>(from, count, to);
    } else if (count >= 8) {
        CopyEnds<8>(from, count, to);
    } else {
        CopyEnds<4>(from, count, to);
    }
}

// Smaller planes are left to the other way.
constexpr size_t kMinWidth = 4;
constexpr size_t kMinHeight = 4;

// A strip as wide as a vector. Outputs that may not be stored as a vector are late.
template <class V>
struct WholeStrip {
    using Vector = typename V::Vector;
    static constexpr size_t kColumns = V::kBytes;
    using Late = int8_t[1][V::kBytes];

    PlaneRows rows;
    OutputRows outputs;
    const int8_t *keepLeft, *keepRight;

    size_t steps() const { return rows.height; }
    size_t plain() const { return rows.height - (outputs.isLast ? 1 : 0); }
    static Vector Mask(const int8_t* mask) { return V::Load(mask); }
    Vector Above(ptrdiff_t) const { return V::RepeatByte(0); }
    Vector Below(ptrdiff_t) const { return V::RepeatByte(0); }
    Vector Load(size_t row, ptrdiff_t shift) const { return V::Load(rows.at(row) + shift); }
    void Store(size_t row, Vector bytes) const {
        V::Store(outputs.dst + row * outputs.width, bytes);
    }
    void StoreLate(size_t row, const int8_t* bytes) const {
        CopyFew(bytes, outputs.columns, outputs.dst + row * outputs.width);
    }
};

// A strip as wide as half a vector: in the lower half the upper rows of the plane, in the upper half the
// lower ones. Of an odd number of rows both have the one in the middle.
template <class V>
struct HalfStrip {
    using Vector = typename V::Vector;
    static constexpr size_t kColumns = V::kBytes / 2;
    using Late = int8_t[kColumns / kMinWidth + 1][V::kBytes];

    PlaneRows rows;
    OutputRows outputs;
    const int8_t *keepLeft, *keepRight;

    size_t steps() const { return (rows.height + 1) / 2; }
    size_t plain() const {
        size_t late = 1;
        while (late * outputs.width < kColumns) {
            ++late;
        }
        return second() < late ? 0 : second() - late + 1;
    }
    size_t second() const { return rows.height / 2; } // the lower rows' first
    static Vector Mask(const int8_t* mask) { return V::LoadHalves(mask, mask); }
    Vector Above(ptrdiff_t shift) const {
        return V::LoadHalves(kZeros, rows.at(second() - 1) + shift);
    }
    Vector Below(ptrdiff_t shift) const { return V::LoadHalves(rows.at(steps()) + shift, kZeros); }
    Vector Load(size_t row, ptrdiff_t shift) const {
        return V::LoadHalves(rows.at(row) + shift, rows.at(row + second()) + shift);
    }
    void Store(size_t row, Vector bytes) const {
        int8_t* const upper = outputs.dst + row * outputs.width;
        V::StoreLower(upper, bytes);
        V::StoreUpper(upper + second() * outputs.width, bytes);
    }
    void StoreLate(size_t row, const int8_t* bytes) const {
        int8_t* const upper = outputs.dst + row * outputs.width;
        if (row < second()) {
            CopyFew(bytes, outputs.columns, upper);
        }
        CopyFew(bytes + kColumns, outputs.columns, upper + second() * outputs.width);
    }

    static constexpr int8_t kZeros[kColumns] = {};
};

// Masks for a row: where the plane ends, its neighbour is taken out of it.
struct Keep {
    static constexpr size_t kMost = 32;
    int8_t bytes[3 * kMost];

    const int8_t* all() const { return bytes; }
    const int8_t* allBut(size_t byte) const { return bytes + 2 * kMost - byte; }
};

constexpr Keep kKeep = [] {
    Keep keep = {};
    for (size_t i = 0; i < sizeof keep.bytes; ++i) {
        keep.bytes[i] = i == 2 * Keep::kMost ? 0 : -1;
    }
    return keep;
}();

// Outputs from the top of the plane to its bottom. Each input row is the bottom row of the output above it,
// which is finished then, the middle row of its own output and the top row of the one below. The weights are
// repeated here and not by the caller: vectors that go through memory would wait for one another.
template <class V, class Strip, bool kTwoSums>
__attribute__((noinline)) void WalkBytes(const Strip& __restrict strip,
                                         const ByteFilter& __restrict f) {
    using Vector = typename V::Vector;
    struct Row {
        Vector left, right;
    };
    struct RowWeights {
        Vector evenLeft, oddLeft, evenRight, oddRight;
    };
    struct WordSums {
        Vector even, odd;
    };
    const auto repeat = [&](size_t row) {
        const auto& pairs = f.pairs[row];
        return RowWeights{V::Repeat4(pairs[0]), V::Repeat4(pairs[1]), V::Repeat4(pairs[2]),
                          V::Repeat4(pairs[3])};
    };
    const RowWeights top = repeat(0), centre = repeat(1), bottom = repeat(2);
    const Vector start = V::RepeatWord(f.start);
    const Vector scale = V::RepeatWord(f.scale);
    const Vector lowest = V::RepeatByte(f.lowest);
    const Vector least = V::RepeatByte(f.least);
    const Vector keepLeft = Strip::Mask(strip.keepLeft);
    const Vector keepRight = Strip::Mask(strip.keepRight);
    const auto ready = [&](Vector left, Vector right) {
        return Row{V::Subtract(V::And(left, keepLeft), least),
                   V::Subtract(V::And(right, keepRight), least)};
    };
    const auto products = [&](const Row& row, const RowWeights& w) {
        return WordSums{V::AddWords(V::MultiplyPairs(row.left, w.evenLeft),
                                    V::MultiplyPairs(row.right, w.evenRight)),
                        V::AddWords(V::MultiplyPairs(row.left, w.oddLeft),
                                    V::MultiplyPairs(row.right, w.oddRight))};
    };
    const auto add = [&](const WordSums& a, const WordSums& b) {
        return WordSums{V::AddWords(a.even, b.even), V::AddWords(a.odd, b.odd)};
    };
    typename Strip::Late late;
    const size_t plain = strip.plain();
    const auto store = [&](size_t row, Vector even, Vector odd) {
        even = V::UpperWords(even, scale);
        odd = V::UpperWords(odd, scale);
        const Vector bytes = V::Max(V::InterleaveHalves(V::Narrow(even, odd)), lowest);
        if (row < plain) {
            strip.Store(row, bytes);
        } else {
            V::Store(late[row - plain], bytes);
        }
    };
    const Vector sign = V::RepeatWord(INT16_MIN);
    // The outer rows' sums and the middle row's.
    const auto finish = [&](size_t row, const WordSums& outer, const WordSums& middle) {
        if constexpr (kTwoSums) {
            // (a + b) / 2, rounded down: the average of a + 2^15 and b + 2^15 - 1, without signs, is rounded up.
            const auto half = [&](Vector a, Vector b) {
                return V::Xor(V::Average(V::Xor(a, sign), V::AddWords(b, start)), sign);
            };
            store(row, half(outer.even, middle.even), half(outer.odd, middle.odd));
        } else {
            const WordSums all = add(outer, middle);
            store(row, V::AddSaturated(all.even, start), V::AddSaturated(all.odd, start));
        }
    };
    Row row = ready(strip.Above(-1), strip.Above(1));
    WordSums above = products(row, top);
    row = ready(strip.Load(0, -1), strip.Load(0, 1));
    WordSums middle = products(row, centre);
    WordSums here = products(row, top);
    const size_t steps = strip.steps();
    for (size_t y = 1; y < steps; ++y) {
        row = ready(strip.Load(y, -1), strip.Load(y, 1));
        finish(y - 1, add(above, products(row, bottom)), middle);
        middle = products(row, centre);
        above = here;
        here = products(row, top);
    }
    row = ready(strip.Below(-1), strip.Below(1));
    finish(steps - 1, add(above, products(row, bottom)), middle);
    for (size_t y = plain; y < steps; ++y) {
        strip.StoreLate(y, late[y - plain]);
    }
}

template <class V, class Strip>
inline void WalkBytes(const Strip& strip, const ByteFilter& filter, bool isTwo) {
    isTwo ? WalkBytes<V, Strip, true>(strip, filter) : WalkBytes<V, Strip, false>(strip, filter);
}

// A row of a strip, between a value before it and one behind it that count for nothing.
template <class V>
struct RowCopy {
    int8_t before;
    int8_t values[V::kBytes];
    int8_t behind;
};

// A plane in strips; the last overlaps the one before where columns are left over.
template <class V>
void ConvolveBytes(const DepthwisePlanes& p, size_t channel, const ByteFilter& filter, bool isTwo) {
    constexpr size_t kWhole = WholeStrip<V>::kColumns;
    constexpr size_t kHalf = HalfStrip<V>::kColumns;
    const size_t plane = p.width * p.height;
    const int8_t* const src = p.src + channel * plane;
    int8_t* const dst = p.dst + channel * plane;
    const bool isLast = channel + 1 == p.channels;
    RowCopy<V> first, last;
    const auto inputs = [&](size_t column, size_t columns) {
        PlaneRows rows = {src + column, src + column, src + (p.height - 1) * p.width + column,
                          p.width, p.height};
        if (channel == 0 && column == 0) {
            std::memcpy(first.values, rows.first, columns + (columns < p.width));
            rows.first = first.values;
        }
        if (isLast && column + columns == p.width) {
            std::memcpy(&last, rows.last - 1, 1 + columns);
            rows.last = last.values;
        }
        return rows;
    };
    const auto outputs = [&](size_t column, size_t columns) {
        return OutputRows{dst + column, p.width, p.height, columns, isLast};
    };
    const int8_t* const all = kKeep.all();
    if (p.width <= kHalf) {
        const HalfStrip<V> strip = {inputs(0, p.width), outputs(0, p.width), kKeep.allBut(0),
                                    kKeep.allBut(p.width - 1)};
        return WalkBytes<V>(strip, filter, isTwo);
    }
    size_t column = 0;
    for (; column + kWhole < p.width; column += kWhole) {
        const WholeStrip<V> strip = {inputs(column, kWhole), outputs(column, kWhole),
                                     column == 0 ? kKeep.allBut(0) : all, all};
        WalkBytes<V>(strip, filter, isTwo);
    }
    if (column > 0 && p.width - column <= kHalf) {
        column = p.width - kHalf;
        const HalfStrip<V> strip = {inputs(column, kHalf), outputs(column, kHalf), all,
                                    kKeep.allBut(kHalf - 1)};
        return WalkBytes<V>(strip, filter, isTwo);
    }
    const size_t columns = p.width < kWhole ? p.width : kWhole;
    column = p.width - columns;
    const WholeStrip<V> strip = {inputs(column, columns), outputs(column, columns),
                                 column == 0 ? kKeep.allBut(0) : all, kKeep.allBut(columns - 1)};
    WalkBytes<V>(strip, filter, isTwo);
}

// Narrower ones of the last plane would be read beyond their end from more than their last row.
template <class V>
bool CanWalk(const DepthwisePlanes& p, size_t channel) {
    constexpr size_t kHalf = HalfStrip<V>::kColumns;
    return p.width >= kMinWidth && p.height >= kMinHeight &&
           (channel + 1 < p.channels || 2 * p.width > kHalf);
}

template <class V, class Lanes>
void DepthwiseByBytes(const DepthwisePlanes& p) {
    for (size_t c = 0; c < p.channels; ++c) {
        ByteFilter filter;
        const Needed needed = CanWalk<V>(p, c) ? PrepareBytes<V>(p, c, filter) : Needed::kMore;
        if (needed == Needed::kMore) {
            ConvolveInBands<Lanes>(p, c);
        } else {
            ConvolveBytes<V>(p, c, filter, needed == Needed::kTwoSums);
        }
    }
}

} // namespace
} // namespace orvo
