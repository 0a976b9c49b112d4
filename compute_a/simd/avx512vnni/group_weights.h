// SPDX-License-Identifier: MIT
//
// The weights of four channels of a matrix product as the AVX-512 tiles read them.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "compute_a/routines.h"
#include "compute_a/simd/avx512vnni/lanes.h"

namespace orvo {
namespace {

constexpr size_t kGroup = 4; // channels

// The sums of the four 128-bit parts, lane by lane, wrapping.
inline __m128i AddParts(__m512i lanes) {
    const __m256i halves =
        _mm256_add_epi32(_mm512_castsi512_si256(lanes), _mm512_extracti64x4_epi64(lanes, 1));
    return _mm_add_epi32(_mm256_castsi256_si128(halves), _mm256_extracti128_si256(halves, 1));
}

// A step's four weights are a word. What the sums start from is the bias, less what the flipped signs
// of the activations add; it stands right before the words. Channels that are not there have weights
// of zero. Words are written in whole lines, from a line's start on.
class GroupWeights {
  public:
    GroupWeights() = default;
    explicit GroupWeights(int32_t* at) : words_(at + kWordsPerLine) {}

    // How many words of four bytes a group takes.
    static constexpr size_t Room(size_t steps) {
        return kWordsPerLine + (steps + 3) / 4 * kWordsPerLine;
    }
    const int32_t* words() const { return words_; }

    // Those from `channel` on, a multiple of four. Not inlined, which would make the products' code
    // much larger.
    __attribute__((noinline)) void Load(const MatrixProduct& p, size_t channel) const {
        const int8_t* const weights = p.weights + channel / kGroup * p.groupBytes;
        if (channel + kGroup <= p.channels) {
            LoadGroup(p, weights, channel);
        } else {
            LoadLeftover(p, weights, channel);
        }
    }

  private:
    // 16 bytes hold four rows of four channels; transposed they are four words, one a channel.
    void LoadGroup(const MatrixProduct& p, const int8_t* weights, size_t channel) const {
        const __m512i transpose = _mm512_broadcast_i32x4(TransposeFourByFour());
        const __m512i signs = _mm512_set1_epi8(-128); // 128, read without a sign
        // Two sums, since the tiles wait for them.
        __m512i added[2] = {_mm512_setzero_si512(), _mm512_setzero_si512()};
        const auto load = [&](size_t k, __mmask64 inside, __m512i& sum) {
            const __m512i steps =
                _mm512_shuffle_epi8(LoadBytes(inside, weights + 4 * k), transpose);
            _mm512_store_si512(words_ + k, steps);
            DotAccumulate(sum, signs, steps);
        };
        size_t k = 0;
        for (; k + 32 <= p.inner; k += 32) {
            load(k, ~__mmask64{0}, added[0]);
            load(k + 16, ~__mmask64{0}, added[1]);
        }
        for (; k < p.inner; k += 16) {
            load(k, FirstBytes(4 * (p.inner - k)), added[0]);
        }
        added[0] = _mm512_add_epi32(added[0], added[1]);
        const __m128i bias = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p.bias + channel));
        _mm_store_si128(reinterpret_cast<__m128i*>(words_ - kGroup),
                        _mm_sub_epi32(bias, AddParts(added[0])));
    }

    // Leftover channels' weights stand one after the other, each in row order.
    void LoadLeftover(const MatrixProduct& p, const int8_t* weights, size_t channel) const {
        const size_t whole = p.inner / 4 * 4;
        int32_t* const starts = words_ - kGroup;
        __builtin_memset(starts, 0, (kGroup + (p.inner + 3) / 4 * 4) * sizeof *words_);
        for (size_t c = 0; channel + c < p.channels; ++c, weights += p.groupBytes) {
            for (size_t k = 0; k < whole; k += 4) {
                __builtin_memcpy(words_ + k + c, weights + k, 4);
            }
            for (size_t k = whole; k < p.inner; ++k) {
                const uint32_t weight = static_cast<uint8_t>(weights[k]);
                words_[whole + c] |= static_cast<int32_t>(weight << (k % 4 * 8));
            }
            starts[c] = static_cast<int32_t>(static_cast<uint32_t>(p.bias[channel + c]) -
                                             128u * SumOf(weights, p.inner));
        }
    }

    static uint32_t SumOf(const int8_t* weights, size_t count) {
        __m512i sum = _mm512_setzero_si512();
        for (size_t k = 0; k < count; k += 64) {
            DotAccumulate(sum, _mm512_set1_epi8(1),
                          _mm512_maskz_loadu_epi8(FirstBytes(count - k), weights + k));
        }
        return static_cast<uint32_t>(_mm512_reduce_add_epi32(sum));
    }

    static constexpr size_t kWordsPerLine = 16;
    int32_t* words_ = nullptr; // where a line begins
};

} // namespace
} // namespace orvo
