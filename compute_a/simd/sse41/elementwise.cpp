// SPDX-License-Identifier: MIT
//
// Rectifier and addition with SSE4.1. Ends of fewer than 16 values are left to the plain routines.
#include "compute_a/routines.h"
#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/sse41/routines.h"
#include "compute_a/simd/vectors_16.h"

namespace orvo {

void sse41::Rectify(const int8_t* src, int8_t* dst, size_t count) {
    size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        Store16(dst + i, _mm_max_epi8(Load16(src + i), _mm_setzero_si128()));
    }
    plain::Rectify(src + i, dst + i, count - i);
}

// The shortcut's and the other input's bytes, interleaved, meet the powers of two that stand for
// the shifts: pmaddubsw shifts and adds at once, at most 2 * 64 * 128 = 16384, which leaves room
// for half of the output's unit.
void sse41::Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count,
                const AddShifts& s) {
    const __m128i factors = _mm_set1_epi16(static_cast<int16_t>(1 << s.in1 | 1 << s.in2 << 8));
    const __m128i shift = _mm_cvtsi32_si128(static_cast<int>(s.out));
    const __m128i half = _mm_set1_epi16(static_cast<int16_t>(s.out == 0 ? 0 : 1 << (s.out - 1)));
    const auto sum = [&](__m128i pairs) {
        return _mm_sra_epi16(_mm_add_epi16(_mm_maddubs_epi16(factors, pairs), half), shift);
    };
    size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m128i a = Load16(in1 + i);
        const __m128i b = in2 == nullptr ? _mm_setzero_si128() : Load16(in2 + i);
        const __m128i low = sum(_mm_unpacklo_epi8(a, b));
        const __m128i high = sum(_mm_unpackhi_epi8(a, b));
        Store16(dst + i, _mm_packs_epi16(low, high));
    }
    plain::Add(in1 + i, in2 == nullptr ? nullptr : in2 + i, dst + i, count - i, s);
}

} // namespace orvo
