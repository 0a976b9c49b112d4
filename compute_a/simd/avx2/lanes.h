// SPDX-License-Identifier: MIT
//
// Loads, stores and the requantisation that the AVX2 routines share.
#pragma once

#include <immintrin.h>

#include "compute_a/simd/vectors_16.h"

namespace orvo {
namespace { // nothing that a file for another instruction set could share

inline __m256i Load32(const void* from) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}
inline void Store32(void* to, __m256i bytes) {
    _mm256_storeu_si256(static_cast<__m256i*>(to), bytes);
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
