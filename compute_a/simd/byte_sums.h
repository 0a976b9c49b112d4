// SPDX-License-Identifier: MIT
//
// What the matrix products of SSE4.1 and AVX2 share: weights in steps of four rows, and how far the sums of
// their products with values without a sign can go in 16 bits; see unsigned_bytes.h.
#pragma once

#include "compute_a/simd/product.h"
#include "compute_a/simd/vectors_16.h"

namespace orvo {
namespace {

constexpr size_t kGroup = 4;
constexpr size_t kStepRows = 4;

// Four rows from `row` on, four weights each, of fewer than four rows or channels, or of no row at all.
inline __m128i LoadFewWeights(const MatrixProduct& p, const ChannelGroup& group, size_t row) {
    alignas(16) int8_t weights[kStepRows][kGroup] = {};
    for (size_t k = 0; k < kStepRows && row + k < p.inner; ++k) {
        for (size_t c = 0; c < group.channels; ++c) {
            weights[k][c] = group.channels == kGroup ? group.weights[kGroup * (row + k) + c]
                                                     : group.weights[c * p.groupBytes + row + k];
        }
    }
    return Load16(weights);
}

// Where a step's weights come from, so that the four of a channel stand side by side.
inline __m128i ByChannel() {
    return _mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
}

// About half of each weight. A pair of halves is at most 64 + 64, and so is one of what is left: whatever the
// values are, their products fit.
inline __m128i HalfOf(__m128i weights) {
    const __m128i more = _mm_srli_epi16(_mm_sub_epi8(weights, _mm_set1_epi8(INT8_MIN)), 1);
    return _mm_sub_epi8(_mm_and_si128(more, _mm_set1_epi8(INT8_MAX)), _mm_set1_epi8(64));
}

// The most and the least that the halves of the four channels' lanes can come to, saturated.
struct Extent {
    __m128i most, least;

    static Extent Of(__m128i weights, __m128i widths) {
        const __m128i zero = _mm_setzero_si128();
        return {_mm_maddubs_epi16(widths, _mm_max_epi8(weights, zero)),
                _mm_maddubs_epi16(widths, _mm_min_epi8(weights, zero))};
    }

    Extent operator+(const Extent& other) const {
        return {_mm_adds_epi16(most, other.most), _mm_adds_epi16(least, other.least)};
    }

    // What is saturated looks like the very limit, which is not used therefore.
    bool fits() const {
        const __m128i over = _mm_cmpeq_epi16(most, _mm_set1_epi16(INT16_MAX));
        const __m128i under = _mm_cmpeq_epi16(least, _mm_set1_epi16(INT16_MIN));
        return _mm_movemask_epi8(_mm_or_si128(over, under)) == 0;
    }
};

} // namespace
} // namespace orvo
