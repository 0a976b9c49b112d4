// SPDX-License-Identifier: MIT
//
// What the routines of SSE4.1 and AVX2 share that multiply bytes: values without a sign, and the range in
// which they lie.
//
// pmaddubsw multiplies bytes without a sign by bytes with one and adds two products in 16 bits,
// where it saturates. So values x are taken as u = x - lowest, with `lowest` the least of them, and
// lowest times the sum of the weights joins the bias. Nothing saturates, and sums of such pairs stay
// exact in 16 bits, while neither the positive nor the negative weights that they have met, times
// highest - lowest, come to more than 16 bits have room for. What a sum passes through on the way may wrap.
#pragma once

#include "compute_a/simd/vectors_16.h"

namespace orvo {
namespace {

struct Range {
    int lowest = 0, highest = 0;

    int width() const { return highest - lowest; }
};

// All that a byte can be.
constexpr Range kAnyValue = {INT8_MIN, INT8_MAX};

inline int LeastByte(__m128i bytes) {
    const __m128i positive = _mm_xor_si128(bytes, _mm_set1_epi8(INT8_MIN));
    const __m128i words = _mm_min_epu8(positive, _mm_srli_epi16(positive, 8));
    return _mm_cvtsi128_si32(_mm_minpos_epu16(words)) % 256 - 128;
}

// The range of `count` values, at least a vector of them; zero belongs to it.
template <class V>
inline Range RangeOf(const int8_t* values, size_t count) {
    auto least = V::RepeatByte(0);
    auto most = least;
    auto least2 = least, most2 = least;
    size_t i = 0;
    for (; i + 2 * V::kBytes <= count; i += 2 * V::kBytes) {
        const auto bytes = V::Load(values + i);
        const auto next = V::Load(values + i + V::kBytes);
        least = V::Min(least, bytes);
        most = V::Max(most, bytes);
        least2 = V::Min(least2, next);
        most2 = V::Max(most2, next);
    }
    const auto take = [&](size_t at) {
        const auto bytes = V::Load(values + at);
        least = V::Min(least, bytes);
        most = V::Max(most, bytes);
    };
    if (i + V::kBytes <= count) {
        take(i);
    }
    take(count - V::kBytes);
    least = V::Min(least, least2);
    most = V::Max(most, most2);
    // ~x orders bytes the other way round.
    const auto inverted = V::Subtract(V::RepeatByte(-1), most);
    return {LeastByte(V::LeastOf16(least)), ~LeastByte(V::LeastOf16(inverted))};
}

} // namespace
} // namespace orvo
