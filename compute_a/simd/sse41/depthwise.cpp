// SPDX-License-Identifier: MIT
//
// Depthwise convolution with SSE4.1, by products of bytes as compute_a/simd/depthwise_bytes.h has them, and
// where these are not exact, in bands of words as compute_a/simd/depthwise_band.h has them.
#include "compute_a/simd/depthwise_bytes.h"

#include "compute_a/simd/sse41/lanes.h"
#include "compute_a/simd/sse41/routines.h"

namespace orvo {
namespace {

inline __m128i RepeatPair(int first, int second) {
    return _mm_set1_epi32(static_cast<int>(static_cast<uint32_t>(first & 0xFFFF) |
                                           static_cast<uint32_t>(second) << 16));
}

// Bands of words. A vector is pairs of neighbouring columns. Even outputs x meet (x - 1, x) and
// (x + 1, x + 2), odd ones the same two vectors with their weights one column on. Where a pair
// would have a zero weight in two rows, one blend makes the two a pair.
struct BandLanes {
    static constexpr size_t kWidened = 8;
    static constexpr size_t kOutputs = 16;

    static void Widen(const int8_t* from, int16_t* to) {
        Store16(to, _mm_cvtepi8_epi16(Load8(from)));
    }
    static void Copy(const int8_t* from, int8_t* to) { Store8(to, Load8(from)); }

    struct Filter {
        __m128i even[3], odd[3];
        __m128i evenBlend, oddBlend, evenLast, oddLast;
        __m128i bias, shift, lowest;

        Filter(const int8_t* w, int32_t biasOfChannel, const DepthwisePlanes& p)
            : evenBlend(RepeatPair(w[2], w[5])),
              oddBlend(RepeatPair(w[3], w[0])),
              evenLast(RepeatPair(w[8], 0)),
              oddLast(RepeatPair(0, w[6])),
              bias(_mm_set1_epi32(biasOfChannel)),
              shift(_mm_cvtsi32_si128(static_cast<int>(p.shift))),
              lowest(_mm_set1_epi8(p.lowest)) {
            for (size_t row = 0; row < 3; ++row) {
                even[row] = RepeatPair(w[3 * row], w[3 * row + 1]);
                odd[row] = RepeatPair(w[3 * row + 1], w[3 * row + 2]);
            }
        }
    };

    // 8 outputs as words: even ones, then odd ones. Nine products of bytes fit 32 bits many times
    // over; with the bias they wrap.
    static __m128i Convolve8(const int16_t* at, size_t pitch, const Filter& f) {
        __m128i even = f.bias;
        __m128i odd = f.bias;
        const auto add = [](__m128i& sum, __m128i values, const __m128i& weights) {
            sum = _mm_add_epi32(sum, _mm_madd_epi16(values, weights));
        };
        const __m128i left0 = Load16(at);
        const __m128i right0 = Load16(at + 2);
        const __m128i middle1 = Load16(at + pitch + 1);
        add(even, left0, f.even[0]);
        add(odd, right0, f.odd[0]);
        add(even, _mm_blend_epi16(right0, middle1, 0xAA), f.evenBlend);
        add(odd, _mm_blend_epi16(middle1, left0, 0xAA), f.oddBlend);
        add(even, Load16(at + pitch), f.even[1]);
        add(odd, Load16(at + pitch + 2), f.odd[1]);
        const __m128i left2 = Load16(at + 2 * pitch);
        const __m128i right2 = Load16(at + 2 * pitch + 2);
        add(even, left2, f.even[2]);
        add(odd, right2, f.odd[2]);
        add(even, right2, f.evenLast);
        add(odd, left2, f.oddLast);
        return _mm_packs_epi32(_mm_sra_epi32(even, f.shift), _mm_sra_epi32(odd, f.shift));
    }

    static void Convolve(const int16_t* values, size_t pitch, const Filter& f, int8_t* results) {
        const __m128i interleave =
            _mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15);
        const __m128i low = Convolve8(values, pitch, f);
        const __m128i high = Convolve8(values + 8, pitch, f);
        const __m128i bytes = _mm_max_epi8(_mm_packs_epi16(low, high), f.lowest);
        Store16(results, _mm_shuffle_epi8(bytes, interleave));
    }
};

} // namespace

void sse41::Depthwise(const DepthwisePlanes& p) { DepthwiseByBytes<ByteVectors, BandLanes>(p); }

} // namespace orvo
