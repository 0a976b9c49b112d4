// SPDX-License-Identifier: MIT
//
// The convolution of one plane with SSE4.1; compute_a/simd/plane.h has the way.
#include "compute_a/simd/plane.h"

#include "compute_a/simd/sse41/routines.h"
#include "compute_a/simd/vectors_16.h"

namespace orvo {
namespace {

struct Lanes {
    using Vector = __m128i;
    static constexpr size_t kColumns = 8;

    static bool Fits(size_t width) { return width >= kColumns; }
    static Vector Load(const int16_t* from) { return Load16(from); }
    static Vector BlendOdd(Vector even, Vector odd) { return _mm_blend_epi16(even, odd, 0xAA); }
    static void Widen(const int8_t* from, uint32_t shift, int16_t* to) {
        Store16(to, _mm_sll_epi16(_mm_cvtepi8_epi16(Load8(from)),
                                  _mm_cvtsi32_si128(static_cast<int>(shift))));
    }
    static void StoreZeros(int16_t* to) { Store16(to, _mm_setzero_si128()); }
    static void FetchToWrite(const int8_t* place) { _mm_prefetch(place, _MM_HINT_T0); }
    template <typename Pair>
    static Vector Broadcast(const Pair* from) {
        int32_t pair;
        __builtin_memcpy(&pair, from, sizeof pair);
        return _mm_set1_epi32(pair);
    }
    static void AddPairs(Vector& sum, Vector values, Vector weights) {
        sum = _mm_add_epi32(sum, _mm_madd_epi16(values, weights));
    }
    static Vector UpperWords(Vector even, Vector odd) {
        return BlendOdd(_mm_srli_epi32(even, 16), odd);
    }
    static void Store(Vector first, Vector second, int8_t* row0, int8_t* row1, size_t,
                      bool hasSecond) {
        const __m128i bytes = _mm_packs_epi16(first, second);
        Store8(row0, bytes);
        if (hasSecond) {
            Store8(row1, _mm_srli_si128(bytes, 8));
        }
    }
};

} // namespace

bool sse41::ConvolvePlane(const PlaneConvolution& p) { return ConvolvePlaneByPairs<Lanes>(p); }

} // namespace orvo
