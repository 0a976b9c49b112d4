// SPDX-License-Identifier: MIT
//
// Deciphering CBC on processors whose AES instructions take vectors of four blocks: sixteen blocks
// are on their way at a time.
#include "cipher/aes_inverse_keys.h"
#include "cipher/aes_routines.h"

namespace orvo::wide_instructions {
namespace {

constexpr size_t kBlocks = 4; // of a vector

struct WideKeys {
    __m512i key[kAesRounds + 1];

    explicit WideKeys(const uint8_t* roundKeys) {
        const InverseKeys keys(roundKeys);
        for (size_t round = 0; round <= kAesRounds; ++round) {
            key[round] = _mm512_broadcast_i32x4(keys.key[round]);
        }
    }
    ~WideKeys() { Wipe(key, sizeof key); }
};

template <size_t Vectors>
inline void Decrypt(const WideKeys& keys, __m512i (&blocks)[Vectors]) {
    for (__m512i& block : blocks) {
        block = _mm512_xor_si512(block, keys.key[0]);
    }
    for (size_t round = 1; round < kAesRounds; ++round) {
        for (__m512i& block : blocks) {
            block = _mm512_aesdec_epi128(block, keys.key[round]);
        }
    }
    for (__m512i& block : blocks) {
        block = _mm512_aesdeclast_epi128(block, keys.key[kAesRounds]);
    }
}

// Whole vectors in place. The last block of `before` is the chaining value; returns the last vector
// of cipher text.
template <size_t Vectors>
inline __m512i DecryptCbcVectors(const WideKeys& keys, __m512i before, uint8_t* buffer) {
    constexpr size_t kBytes = sizeof(__m512i);
    __m512i cipherText[Vectors];
    __m512i blocks[Vectors];
    for (size_t i = 0; i < Vectors; ++i) {
        cipherText[i] = blocks[i] = _mm512_loadu_si512(buffer + kBytes * i);
    }
    Decrypt(keys, blocks);
    for (size_t i = 0; i < Vectors; ++i) {
        // The block before each: the last of the vector before and the first three of this one.
        constexpr int kWordsBefore = 6;
        const __m512i chain =
            _mm512_alignr_epi64(cipherText[i], i == 0 ? before : cipherText[i - 1], kWordsBefore);
        _mm512_storeu_si512(buffer + kBytes * i, _mm512_xor_si512(blocks[i], chain));
    }
    return cipherText[Vectors - 1];
}

} // namespace

void DecryptCbc(const uint8_t* roundKeys, uint8_t* iv, uint8_t* buffer, size_t blocks) {
    constexpr size_t kVectors = 4;
    if (blocks >= kBlocks) {
        const WideKeys keys(roundKeys);
        __m512i before = _mm512_broadcast_i32x4(Load(iv));
        for (; blocks >= kVectors * kBlocks; blocks -= kVectors * kBlocks) {
            before = DecryptCbcVectors<kVectors>(keys, before, buffer);
            buffer += kVectors * sizeof before;
        }
        for (; blocks >= kBlocks; blocks -= kBlocks, buffer += sizeof before) {
            before = DecryptCbcVectors<1>(keys, before, buffer);
        }
        Store(iv, _mm512_extracti32x4_epi32(before, 3));
    }
    instructions::DecryptCbc(roundKeys, iv, buffer, blocks);
}

} // namespace orvo::wide_instructions
