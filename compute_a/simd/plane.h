// SPDX-License-Identifier: MIT
//
// The convolution of one plane by filters of 16 bits with an instruction that multiplies words and adds
// the products in pairs, once for the instruction sets of x86.
//
// The plane is widened to 16 bits, with zeros around it. A tile is some columns of two rows of outputs,
// y and y + 1, of all channels. The two rows of input beside them meet both rows of outputs, so that
// their values are paired with one another, and nine weights become five pairs:
//
//     row y      (y, y+1) to the left, in the middle, to the right    (y-1) left and middle, right
//     row y+1    the same pairs, by other weights                     (y+2) left and middle, right
//
// Even columns are in one vector, odd ones in another. Neighbours in a row lie side by side already, from
// the column before an even one on or, for odd ones, from an even one on; and a pair of two rows is a
// vector of the one, into which every second word of the other is blended.
//
// Values and weights are scaled so that what is left of a sum after the layer's shift is its upper word.
// The words of even and odd columns, blended, are in order.
//
// Exact: nothing is done, and false returned, where scaled sums could leave 32 bits.
//
// What differs from one instruction set to another is a class with
//
//     Vector                       of kColumns / 2 sums, or kColumns words
//     kColumns
//     Load(from)                   words
//     BlendOdd(even, odd)          the even words of the one, the odd ones of the other
//     Widen(from, shift, to)       kColumns bytes to words, shifted left, stored
//     StoreZeros(to)               kColumns words
//     Broadcast(from)              a pair of words or a sum
//     AddPairs(sum, values, weights)
//     UpperWords(even, odd)        of the sums of even and of odd columns, as Store() takes them
//     Store(first, second, row0, row1, columns, isSecond)
//                                  words, saturated to bytes, in the order of columns: two rows,
//                                  or the first only
//     FetchToWrite(place)          a line
//     Fits(width)                  whether Store() can do it
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "compute_a/routines.h"

namespace orvo {
namespace {

// A channel's weights as the tiles take them, of output rows y and y + 1, and what the sums start from.
struct PlaneWeights {
    int16_t inner[2][4][2]; // three pairs
    int16_t outer[2][2][2]; // two
    int32_t start;
};

// The plane in words, with two zeros between rows: a tile reads up to two words before its first column,
// of which the first is not used, and as many behind its last one.
struct WidePlane {
    static constexpr size_t kBorder = 2;
    int16_t* values; // of the row above the first
    size_t pitch;
    size_t rows; // one above the plane and one or two below, for whole pairs of rows
};

// By how many bits values and weights are shifted to the left.
struct PlaneScale {
    uint32_t values, weights;
};

// False where sums with their biases could be too large. A weight is at most 128 times the planes.
inline bool ScaleOf(const PlaneConvolution& p, PlaneScale& scale) {
    constexpr uint32_t kMostForValues = 8;
    if (p.shift > 16) {
        return false;
    }
    const uint32_t all = 16 - p.shift;
    scale.values = all < kMostForValues ? all : kMostForValues;
    scale.weights = all - scale.values;
    // Where the products fit, so do the weights, of which a sum has nine, each met by 128 at most.
    const size_t products = 9 * 128 * (p.planes * 128);
    if (products > size_t{INT32_MAX} >> all) {
        return false;
    }
    const size_t room = (size_t{INT32_MAX} >> all) - products;
    for (size_t c = 0; c < p.channels; ++c) {
        const size_t magnitude = p.bias[c] < 0 ? 0u - static_cast<uint32_t>(p.bias[c])
                                               : static_cast<uint32_t>(p.bias[c]);
        if (magnitude > room) {
            return false;
        }
    }
    return true;
}

inline PlaneWeights PairWeights(const PlaneConvolution::Filter& filter, int32_t bias,
                                const PlaneScale& scale) {
    __m128i rows[3];
    for (size_t i = 0; i < 3; ++i) {
        rows[i] = _mm_sll_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(filter[i])),
                                _mm_cvtsi32_si128(static_cast<int>(scale.weights)));
    }
    PlaneWeights w;
    const auto put = [](void* to, __m128i words) {
        _mm_storeu_si128(static_cast<__m128i*>(to), words);
    };
    put(w.inner[0], _mm_unpacklo_epi16(rows[1], rows[2]));
    put(w.inner[1], _mm_unpacklo_epi16(rows[0], rows[1]));
    put(w.outer, _mm_unpacklo_epi64(rows[0], rows[2]));
    w.start = static_cast<int32_t>(static_cast<uint32_t>(bias) << (scale.values + scale.weights));
    return w;
}

// The zeros behind the row reach into the next one, which is written later.
template <typename Lanes>
inline void WidenRow(const int8_t* from, size_t width, uint32_t shift, int16_t* to) {
    constexpr size_t kColumns = Lanes::kColumns;
    if (width < kColumns) {
        int8_t row[kColumns] = {};
        std::memcpy(row, from, width);
        Lanes::Widen(row, shift, to);
    } else {
        for (size_t x = 0; x + kColumns < width; x += kColumns) {
            Lanes::Widen(from + x, shift, to + x);
        }
        Lanes::Widen(from + width - kColumns, shift, to + width - kColumns);
    }
    Lanes::StoreZeros(to + width);
}

template <typename Lanes>
void WidenPlane(const PlaneConvolution& p, uint32_t shift, const WidePlane& wide) {
    int16_t* to = wide.values;
    std::memset(to, 0, (wide.pitch + WidePlane::kBorder) * sizeof *to);
    to += WidePlane::kBorder + wide.pitch;
    const int8_t* from = p.src;
    for (size_t row = 0; row < p.height; ++row, from += p.width, to += wide.pitch) {
        WidenRow<Lanes>(from, p.width, shift, to);
    }
    std::memset(to, 0, (wide.rows - 1 - p.height) * wide.pitch * sizeof *to);
}

// All channels of kColumns columns of two rows. `above`: the first output's place in the row above.
template <typename Lanes>
__attribute__((noinline)) void ConvolveTile(const PlaneConvolution& p, const PlaneWeights* weights,
                                            const int16_t* above, size_t pitch, int8_t* dst,
                                            size_t x, size_t columns, bool hasSecond) {
    using Vector = typename Lanes::Vector;
    const int16_t* const row0 = above + pitch;
    const int16_t* const row1 = row0 + pitch;
    const int16_t* const below = row1 + pitch;
    Vector inner[2][3]; // of even and odd columns
    Vector outer[2][2][2];
#pragma GCC unroll 2
    for (ptrdiff_t odd = 0; odd < 2; ++odd) {
#pragma GCC unroll 3
        for (ptrdiff_t i = 0; i < 3; ++i) {
            inner[odd][i] =
                Lanes::BlendOdd(Lanes::Load(row0 + odd + i - 1), Lanes::Load(row1 + odd + i - 2));
        }
#pragma GCC unroll 2
        for (ptrdiff_t i = 0; i < 2; ++i) {
            outer[0][odd][i] = Lanes::Load(above + odd + 2 * i - 1);
            outer[1][odd][i] = Lanes::Load(below + odd + 2 * i - 1);
        }
    }
    const size_t planePitch = p.width * p.height;
    const size_t ahead = 2 * p.width + x;
    for (size_t c = 0; c < p.channels; ++c, ++weights, dst += planePitch) {
        Vector words[2];
#pragma GCC unroll 2
        for (size_t row = 0; row < 2; ++row) {
            const Vector start = Lanes::Broadcast(&weights->start);
            Vector sums[2] = {start, start};
#pragma GCC unroll 5
            for (size_t i = 0; i < 5; ++i) {
                const Vector pair =
                    Lanes::Broadcast(i < 3 ? weights->inner[row][i] : weights->outer[row][i - 3]);
#pragma GCC unroll 2
                for (size_t odd = 0; odd < 2; ++odd) {
                    Lanes::AddPairs(sums[odd], i < 3 ? inner[odd][i] : outer[row][odd][i - 3],
                                    pair);
                }
            }
            words[row] = Lanes::UpperWords(sums[0], sums[1]);
        }
        Lanes::Store(words[0], words[1], dst, dst + p.width, columns, hasSecond);
        Lanes::FetchToWrite(dst + ahead);
    }
}

template <typename Lanes>
bool ConvolvePlaneByPairs(const PlaneConvolution& p) {
    PlaneScale scale;
    if (p.width == 0 || p.height == 0 || !Lanes::Fits(p.width) || !ScaleOf(p, scale)) {
        return false;
    }
    constexpr size_t kColumns = Lanes::kColumns;
    const size_t tiles = (p.width + kColumns - 1) / kColumns;
    const size_t pitch = p.width + WidePlane::kBorder;
    const size_t rows = (p.height + 1) / 2 * 2 + 2;
    const size_t toBoundary = (64 - reinterpret_cast<uintptr_t>(p.scratch) % 64) % 64;
    if (toBoundary + (rows * pitch + 2 * WidePlane::kBorder + kColumns) * sizeof(int16_t) >
        p.scratchBytes) {
        return false;
    }
    const WidePlane wide{reinterpret_cast<int16_t*>(p.scratch + toBoundary), pitch, rows};
    WidenPlane<Lanes>(p, scale.values, wide);
    PlaneWeights weights[PlaneConvolution::kMostChannels];
    for (size_t c = 0; c < p.channels; ++c) {
        weights[c] = PairWeights(p.filters[c], p.bias[c], scale);
    }
    for (size_t y = 0; y < p.height; y += 2) {
        for (size_t tile = 0; tile < tiles; ++tile) {
            // The last of several tiles begins early enough to end with the row.
            const size_t x = tile > 0 && p.width - tile * kColumns < kColumns ? p.width - kColumns
                                                                              : tile * kColumns;
            const size_t columns = p.width - x < kColumns ? p.width - x : kColumns;
            ConvolveTile<Lanes>(p, weights, wide.values + y * pitch + WidePlane::kBorder + x, pitch,
                                p.dst + y * p.width + x, x, columns, y + 1 < p.height);
        }
    }
    return true;
}

} // namespace
} // namespace orvo
