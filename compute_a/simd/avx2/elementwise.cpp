// SPDX-License-Identifier: MIT
//
// Rectifier and addition with AVX2. Ends of fewer than 32 values are left to the plain routines.
#include "compute_a/routines.h"
#include "compute_a/simd/avx2/lanes.h"
#include "compute_a/simd/avx2/routines.h"
#include "compute_a/simd/plain/routines.h"

namespace orvo {

void avx2::Rectify(const int8_t* src, int8_t* dst, size_t count) {
    size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        Store32(dst + i, _mm256_max_epi8(Load32(src + i), _mm256_setzero_si256()));
    }
    plain::Rectify(src + i, dst + i, count - i);
}

// The shortcut's and the other input's bytes, interleaved, meet the powers of two that stand for
// the shifts: vpmaddubsw shifts and adds at once, at most 2 * 64 * 128 = 16384, which leaves room
// for half of the output's unit.
void avx2::Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count,
               const AddShifts& s) {
    const __m256i factors = _mm256_set1_epi16(static_cast<int16_t>(1 << s.in1 | 1 << s.in2 << 8));
    const __m128i shift = _mm_cvtsi32_si128(static_cast<int>(s.out));
    const __m256i half = _mm256_set1_epi16(static_cast<int16_t>(s.out == 0 ? 0 : 1 << (s.out - 1)));
    const auto sum = [&](__m256i pairs) {
        const __m256i words = _mm256_add_epi16(_mm256_maddubs_epi16(factors, pairs), half);
        return _mm256_sra_epi16(words, shift);
    };
    size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m256i a = Load32(in1 + i);
        const __m256i b = in2 == nullptr ? _mm256_setzero_si256() : Load32(in2 + i);
        const __m256i low = sum(_mm256_unpacklo_epi8(a, b));
        const __m256i high = sum(_mm256_unpackhi_epi8(a, b));
        Store32(dst + i, _mm256_packs_epi16(low, high));
    }
    plain::Add(in1 + i, in2 == nullptr ? nullptr : in2 + i, dst + i, count - i, s);
}

} // namespace orvo
