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

// Vectors of 32 bytes, as the routines that stand once for all x86-64 take them.
struct ByteVectors {
    using Vector = __m256i;
    static constexpr size_t kBytes = 32;

    static Vector Load(const int8_t* from) { return Load32(from); }
    static void Store(int8_t* to, Vector bytes) { Store32(to, bytes); }
    static Vector LoadHalves(const int8_t* lower, const int8_t* upper) {
        return _mm256_inserti128_si256(_mm256_castsi128_si256(Load16(lower)), Load16(upper), 1);
    }
    static void StoreLower(int8_t* to, Vector bytes) { Store16(to, _mm256_castsi256_si128(bytes)); }
    static void StoreUpper(int8_t* to, Vector bytes) {
        Store16(to, _mm256_extracti128_si256(bytes, 1));
    }
    static Vector Repeat4(const int8_t* from) { return _mm256_set1_epi32(LoadWord<int32_t>(from)); }
    static Vector RepeatWord(int word) { return _mm256_set1_epi16(static_cast<int16_t>(word)); }
    static Vector RepeatByte(int8_t byte) { return _mm256_set1_epi8(byte); }
    static Vector And(Vector a, Vector b) { return _mm256_and_si256(a, b); }
    static Vector Subtract(Vector a, Vector b) { return _mm256_sub_epi8(a, b); }
    static Vector Min(Vector a, Vector b) { return _mm256_min_epi8(a, b); }
    static Vector Max(Vector a, Vector b) { return _mm256_max_epi8(a, b); }
    static __m128i LeastOf16(Vector a) {
        return _mm_min_epi8(_mm256_castsi256_si128(a), _mm256_extracti128_si256(a, 1));
    }
    static Vector MultiplyPairs(Vector values, Vector weights) {
        return _mm256_maddubs_epi16(values, weights);
    }
    static Vector AddWords(Vector a, Vector b) { return _mm256_add_epi16(a, b); }
    static Vector AddSaturated(Vector a, Vector b) { return _mm256_adds_epi16(a, b); }
    static Vector UpperWords(Vector a, Vector b) { return _mm256_mulhi_epi16(a, b); }
    static Vector Xor(Vector a, Vector b) { return _mm256_xor_si256(a, b); }
    static Vector Average(Vector a, Vector b) { return _mm256_avg_epu16(a, b); }
    static Vector Narrow(Vector low, Vector high) { return _mm256_packs_epi16(low, high); }
    static Vector InterleaveHalves(Vector bytes) {
        return _mm256_shuffle_epi8(
            bytes, _mm256_broadcastsi128_si256(
                       _mm_setr_epi8(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15)));
    }
};

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
