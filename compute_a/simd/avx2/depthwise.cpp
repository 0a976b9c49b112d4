// SPDX-License-Identifier: MIT
//
// Depthwise convolution with AVX2, by products of bytes as compute_a/simd/depthwise_bytes.h has them, and
// where these are not exact, in bands of words as compute_a/simd/depthwise_band.h has them.
//
// A vector of the band is pairs of neighbouring columns, which vpmaddwd takes as they are. Even
// outputs x meet (x - 1, x) and (x + 1, x + 2), odd ones the same two vectors with their weights
// one column on. Where a pair would have a zero weight in two rows, one blend makes the two a pair.
#include "compute_a/simd/depthwise_bytes.h"

#include "compute_a/simd/avx2/lanes.h"
#include "compute_a/simd/avx2/routines.h"

namespace orvo {
namespace {

struct DepthwiseFilter {
    // Weights of pairs of values of one row, by row; of the pairs of two rows; and of the last row
    // alone.
    __m256i even[3], odd[3];
    __m256i evenBlend, oddBlend, evenLast, oddLast;
    __m256i bias, shift, lowest;

    DepthwiseFilter(const int8_t* w, int32_t biasOfChannel, const DepthwisePlanes& p)
        : bias(_mm256_set1_epi32(biasOfChannel)),
          shift(_mm256_set1_epi32(static_cast<int>(p.shift))),
          lowest(_mm256_set1_epi8(p.lowest)) {
        // The last row's from a byte before on, so that nothing is read behind it.
        const __m128i words[3] = {_mm_cvtepi8_epi16(Load4(w)), _mm_cvtepi8_epi16(Load4(w + 3)),
                                  _mm_cvtepi8_epi16(_mm_srli_epi32(Load4(w + 5), 8))};
        for (size_t row = 0; row < 3; ++row) {
            even[row] = _mm256_broadcastd_epi32(words[row]);
            odd[row] = _mm256_broadcastd_epi32(_mm_srli_si128(words[row], 2));
        }
        evenBlend =
            _mm256_broadcastd_epi32(_mm_srli_si128(_mm_unpacklo_epi16(words[0], words[1]), 8));
        oddBlend = _mm256_broadcastd_epi32(_mm_unpacklo_epi16(words[1], words[0]));
        evenLast = _mm256_broadcastd_epi32(_mm_srli_si128(words[2], 4));
        oddLast = _mm256_broadcastd_epi32(_mm_slli_epi32(words[2], 16));
    }
};

// GCC would load once for each use, and weights that it has no registers left for as well.
inline __m256i LoadOnce(const int16_t* from) {
    __m256i values = Load32(from);
    __asm__("" : "+x"(values));
    return values;
}

// 16 outputs as words: even ones, then odd ones, in each half. Nine products of bytes fit 32 bits
// many times over; with the bias they wrap. Register plan: 2 sums, 3 vectors of values, 1 product
// and as many of the 10 vectors of weights as GCC finds room for; the others are memory operands,
// which the loads can bear: 28 a turn of 32 outputs, of which the arithmetic takes 18 cycles.
inline __m256i Convolve16(const int16_t* at, size_t pitch, const DepthwiseFilter& f) {
    __m256i even = f.bias;
    __m256i odd = f.bias;
    const auto add = [](__m256i& sum, __m256i values, const __m256i& weights) {
        sum = _mm256_add_epi32(sum, _mm256_madd_epi16(values, weights));
    };
    const __m256i left0 = LoadOnce(at);
    const __m256i right0 = LoadOnce(at + 2);
    const __m256i middle1 = LoadOnce(at + pitch + 1);
    add(even, left0, f.even[0]);
    add(odd, right0, f.odd[0]);
    add(even, _mm256_blend_epi16(right0, middle1, 0xAA), f.evenBlend);
    add(odd, _mm256_blend_epi16(middle1, left0, 0xAA), f.oddBlend);
    add(even, Load32(at + pitch), f.even[1]);
    add(odd, Load32(at + pitch + 2), f.odd[1]);
    const __m256i left2 = LoadOnce(at + 2 * pitch);
    const __m256i right2 = LoadOnce(at + 2 * pitch + 2);
    add(even, left2, f.even[2]);
    add(odd, right2, f.odd[2]);
    add(even, right2, f.evenLast);
    add(odd, left2, f.oddLast);
    return _mm256_packs_epi32(_mm256_srav_epi32(even, f.shift), _mm256_srav_epi32(odd, f.shift));
}

struct BandLanes {
    static constexpr size_t kWidened = 16;
    static constexpr size_t kOutputs = 32;
    using Filter = DepthwiseFilter;

    static void Widen(const int8_t* from, int16_t* to) {
        Store32(to, _mm256_cvtepi8_epi16(Load16(from)));
    }
    static void Copy(const int8_t* from, int8_t* to) { Store16(to, Load16(from)); }

    static void Convolve(const int16_t* values, size_t pitch, const Filter& f, int8_t* results) {
        const __m256i interleave = _mm256_broadcastsi128_si256(
            _mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15));
        const __m256i low = Convolve16(values, pitch, f);
        const __m256i high = Convolve16(values + 16, pitch, f);
        const __m256i bytes = _mm256_max_epi8(_mm256_packs_epi16(low, high), f.lowest);
        Store32(results, _mm256_permute4x64_epi64(_mm256_shuffle_epi8(bytes, interleave), 0xD8));
    }
};

} // namespace

void avx2::Depthwise(const DepthwisePlanes& p) { DepthwiseByBytes<ByteVectors, BandLanes>(p); }

} // namespace orvo
