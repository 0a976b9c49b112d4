// SPDX-License-Identifier: MIT
//
// Vectors of 16 bytes, as the routines that stand once for all x86-64 take them.
#pragma once

#include "compute_a/simd/vectors_16.h"

namespace orvo {
namespace {

struct ByteVectors {
    using Vector = __m128i;
    static constexpr size_t kBytes = 16;

    static Vector Load(const int8_t* from) { return Load16(from); }
    static Vector LoadHalves(const int8_t* lower, const int8_t* upper) {
        return _mm_unpacklo_epi64(Load8(lower), Load8(upper));
    }
    static void Store(int8_t* to, Vector bytes) { Store16(to, bytes); }
    static void StoreLower(int8_t* to, Vector bytes) { Store8(to, bytes); }
    static void StoreUpper(int8_t* to, Vector bytes) {
        _mm_storeh_pi(reinterpret_cast<__m64*>(to), _mm_castsi128_ps(bytes));
    }
    static Vector Repeat4(const int8_t* from) { return _mm_set1_epi32(LoadWord<int32_t>(from)); }
    static Vector RepeatWord(int word) { return _mm_set1_epi16(static_cast<int16_t>(word)); }
    static Vector RepeatByte(int8_t byte) { return _mm_set1_epi8(byte); }
    static Vector And(Vector a, Vector b) { return _mm_and_si128(a, b); }
    static Vector Xor(Vector a, Vector b) { return _mm_xor_si128(a, b); }
    static Vector Subtract(Vector a, Vector b) { return _mm_sub_epi8(a, b); }
    static Vector Min(Vector a, Vector b) { return _mm_min_epi8(a, b); }
    static Vector Max(Vector a, Vector b) { return _mm_max_epi8(a, b); }
    static __m128i LeastOf16(Vector a) { return a; }
    static Vector MultiplyPairs(Vector values, Vector weights) {
        return _mm_maddubs_epi16(values, weights);
    }
    static Vector AddWords(Vector a, Vector b) { return _mm_add_epi16(a, b); }
    static Vector AddSaturated(Vector a, Vector b) { return _mm_adds_epi16(a, b); }
    static Vector Average(Vector a, Vector b) { return _mm_avg_epu16(a, b); }
    static Vector UpperWords(Vector a, Vector b) { return _mm_mulhi_epi16(a, b); }
    static Vector Narrow(Vector low, Vector high) { return _mm_packs_epi16(low, high); }
    static Vector InterleaveHalves(Vector bytes) {
        return _mm_shuffle_epi8(
            bytes, _mm_setr_epi8(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15));
    }
};

} // namespace
} // namespace orvo
