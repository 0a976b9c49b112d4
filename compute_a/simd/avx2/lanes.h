// SPDX-License-Identifier: MIT
//
// Loads, stores and the requantisation that the AVX2 routines share.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace orvo {
namespace { // nothing that a file for another instruction set could share

inline __m128i Load16(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}
inline void Store16(void* to, __m128i bytes) { _mm_storeu_si128(static_cast<__m128i*>(to), bytes); }
inline __m256i Load32(const void* from) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}
inline void Store32(void* to, __m256i bytes) {
    _mm256_storeu_si256(static_cast<__m256i*>(to), bytes);
}

template <typename Word>
inline Word LoadWord(const int8_t* from) {
    Word word;
    __builtin_memcpy(&word, from, sizeof word);
    return word;
}

inline __m128i Load8(const int8_t* from) { return _mm_cvtsi64_si128(LoadWord<int64_t>(from)); }
inline void Store8(int8_t* to, __m128i bytes) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), bytes);
}
inline __m128i Load4(const int8_t* from) { return _mm_cvtsi32_si128(LoadWord<int32_t>(from)); }
inline void Store4(int8_t* to, __m128i bytes) {
    const int32_t word = _mm_cvtsi128_si32(bytes);
    __builtin_memcpy(to, &word, sizeof word);
}

// The sums of two planes, shifted (a count of 32 and more leaves the sign) and saturated: in each
// half of the vector the 8 or 16 bytes of one plane.
template <size_t Vectors>
inline __m256i Requantise(const __m256i first[Vectors], const __m256i second[Vectors],
                          __m256i shift) {
    const auto words = [shift](const __m256i sums[Vectors]) {
        const __m256i low = _mm256_srav_epi32(sums[0], shift);
        const __m256i high = Vectors == 2 ? _mm256_srav_epi32(sums[Vectors - 1], shift) : low;
        return _mm256_packs_epi32(low, high);
    };
    const __m256i bytes = _mm256_packs_epi16(words(first), words(second));
    // Words 0 and 4 hold the first four pixels and the second four, 1 and 5 the ones after these.
    return _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

} // namespace
} // namespace orvo
