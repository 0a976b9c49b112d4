// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "cipher/blocks.h"

// The walk through a white-box table of 10 rounds x 16 sub-tables x 256 words, shared by the
// library's decryption and the stand-in of the sibling encryption, which differ in the row shift.
namespace orvo {

// Where row k of an output column comes from: the k-th column to the left (decryption) or to the
// right (encryption), modulo 4.
constexpr unsigned kColumnsToTheLeft = 3;
constexpr unsigned kColumnsToTheRight = 1;

template <unsigned kStep>
inline uint32_t TableColumn(const uint32_t* round, const uint32_t w[4], unsigned j) {
    const uint32_t* tables = round + 4 * 256 * j;
    return tables[w[j] & 0xff] ^ tables[256 + ((w[(j + kStep) % 4] >> 8) & 0xff)] ^
           tables[2 * 256 + ((w[(j + 2 * kStep) % 4] >> 16) & 0xff)] ^
           tables[3 * 256 + (w[(j + 3 * kStep) % 4] >> 24)];
}

template <unsigned kStep>
inline void RunTableCipher(const uint32_t* table, const uint8_t in[16], uint8_t out[16]) {
    uint32_t w[4];
    for (unsigned j = 0; j < 4; ++j) {
        w[j] = LoadWord(in + 4 * j);
    }
#pragma GCC unroll 10
    for (unsigned r = 0; r < 10; ++r) {
        const uint32_t* round = table + 16 * 256 * r;
        const uint32_t x[4] = {TableColumn<kStep>(round, w, 0), TableColumn<kStep>(round, w, 1),
                               TableColumn<kStep>(round, w, 2), TableColumn<kStep>(round, w, 3)};
        w[0] = x[0];
        w[1] = x[1];
        w[2] = x[2];
        w[3] = x[3];
    }
    for (unsigned j = 0; j < 4; ++j) {
        StoreWord(out + 4 * j, w[j]);
    }
}

} // namespace orvo
