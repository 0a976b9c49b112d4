// SPDX-License-Identifier: MIT
//
// What the SSE4.1 routines share: values without a sign, and the range in which they lie.
//
// pmaddubsw multiplies bytes without a sign by bytes with one and adds two products in 16 bits,
// where it saturates. So values x are taken as u = x - lowest, with `lowest` the least of them, and
// lowest times the sum of the weights joins the bias. Nothing saturates, and sums of such pairs stay
// exact in 16 bits, while neither the positive nor the negative weights that they have met add up to
// more than SumLimit(): u is at most highest - lowest. What a sum passes through on the way may wrap.
#pragma once

#include "compute_a/simd/vectors_16.h"

namespace orvo {
namespace {

struct Range {
    int lowest = 0, highest = 0;

    int width() const { return highest - lowest; }
};

// All that a byte can be, and what a rectifier leaves.
constexpr Range kAnyValue = {INT8_MIN, INT8_MAX};

inline int SumLimit(const Range& range) {
    return range.width() == 0 ? INT16_MAX : INT16_MAX / range.width();
}

inline int LeastByte(__m128i bytes) {
    const __m128i positive = _mm_xor_si128(bytes, _mm_set1_epi8(INT8_MIN));
    const __m128i words = _mm_min_epu8(positive, _mm_srli_epi16(positive, 8));
    return _mm_cvtsi128_si32(_mm_minpos_epu16(words)) % 256 - 128;
}

// The range of values that is found so far; zero belongs to it.
class RangeFinder {
  public:
    // `count` of 16 at least.
    void Take(const int8_t* values, size_t count) {
        size_t i = 0;
        for (; i + 32 <= count; i += 32) {
            Take16(values + i);
            Take16(values + i + 16);
        }
        for (; i + 16 <= count; i += 16) {
            Take16(values + i);
        }
        if (i < count) {
            Take16(values + count - 16);
        }
    }

    Range Found() const { return {LeastByte(least_), ~LeastByte(_mm_xor_si128(most_, Ones()))}; }

  private:
    static __m128i Ones() { return _mm_set1_epi8(-1); }

    void Take16(const int8_t* values) {
        const __m128i bytes = Load16(values);
        least_ = _mm_min_epi8(least_, bytes);
        most_ = _mm_max_epi8(most_, bytes);
    }

    __m128i least_ = _mm_setzero_si128();
    __m128i most_ = _mm_setzero_si128();
};

} // namespace
} // namespace orvo
