// SPDX-License-Identifier: MIT
//
// What the convolution of a plane does with vectors of 32 bytes; see compute_a/simd/plane.h.
#pragma once

#include "compute_a/simd/avx2/lanes.h"
#include "compute_a/simd/plane.h"

namespace orvo {
namespace {

// All but the product.
struct PlaneLanes {
    using Vector = __m256i;
    static constexpr size_t kColumns = 16;

    static bool Fits(size_t width) { return width >= kColumns; }
    static Vector Load(const int16_t* from) { return Load32(from); }
    static Vector BlendOdd(Vector even, Vector odd) { return _mm256_blend_epi16(even, odd, 0xAA); }
    static void Widen(const int8_t* from, uint32_t shift, int16_t* to) {
        Store32(to, _mm256_sll_epi16(_mm256_cvtepi8_epi16(Load16(from)),
                                     _mm_cvtsi32_si128(static_cast<int>(shift))));
    }
    static void StoreZeros(int16_t* to) { Store32(to, _mm256_setzero_si256()); }
    static void FetchToWrite(const int8_t* place) { _mm_prefetch(place, _MM_HINT_T0); }
    template <typename Pair>
    static Vector Broadcast(const Pair* from) {
        int32_t pair;
        __builtin_memcpy(&pair, from, sizeof pair);
        return _mm256_set1_epi32(pair);
    }
    static Vector UpperWords(Vector even, Vector odd) {
        return BlendOdd(_mm256_srli_epi32(even, 16), odd);
    }
    static void Store(Vector first, Vector second, int8_t* row0, int8_t* row1, size_t,
                      bool hasSecond) {
        const __m256i bytes =
            _mm256_permute4x64_epi64(_mm256_packs_epi16(first, second), 0b11011000);
        Store16(row0, _mm256_castsi256_si128(bytes));
        if (hasSecond) {
            Store16(row1, _mm256_extracti128_si256(bytes, 1));
        }
    }
};

} // namespace
} // namespace orvo
