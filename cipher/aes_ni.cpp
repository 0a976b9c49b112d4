// SPDX-License-Identifier: MIT
//
// AES-128 on x86-64's AES instructions. Deciphering CBC blocks do not depend on each other, so
// eight are on their way at a time, which hides the instructions' latency.
#include "cipher/aes_inverse_keys.h"
#include "cipher/aes_routines.h"

namespace orvo::instructions {
namespace {

constexpr size_t kLanes = 8;

template <size_t Lanes>
inline void Decrypt(const InverseKeys& keys, __m128i (&blocks)[Lanes]) {
    for (__m128i& block : blocks) {
        block = _mm_xor_si128(block, keys.key[0]);
    }
    for (size_t round = 1; round < kAesRounds; ++round) {
        for (__m128i& block : blocks) {
            block = _mm_aesdec_si128(block, keys.key[round]);
        }
    }
    for (__m128i& block : blocks) {
        block = _mm_aesdeclast_si128(block, keys.key[kAesRounds]);
    }
}

// `Lanes` blocks in place. Returns the last block of cipher text, the next chaining value.
template <size_t Lanes>
inline __m128i DecryptCbcBlocks(const InverseKeys& keys, __m128i chain, uint8_t* buffer) {
    __m128i cipherText[Lanes];
    __m128i blocks[Lanes];
    for (size_t i = 0; i < Lanes; ++i) {
        cipherText[i] = blocks[i] = Load(buffer + kBlockSize * i);
    }
    Decrypt(keys, blocks);
    for (size_t i = 0; i < Lanes; ++i) {
        Store(buffer + kBlockSize * i,
              _mm_xor_si128(blocks[i], i == 0 ? chain : cipherText[i - 1]));
    }
    return cipherText[Lanes - 1];
}

} // namespace

void EncryptBlock(const uint8_t* roundKeys, uint8_t* block) {
    __m128i state = _mm_xor_si128(Load(block), Load(roundKeys));
    for (size_t round = 1; round < kAesRounds; ++round) {
        state = _mm_aesenc_si128(state, Load(roundKeys + kBlockSize * round));
    }
    Store(block, _mm_aesenclast_si128(state, Load(roundKeys + kBlockSize * kAesRounds)));
}

void DecryptBlock(const uint8_t* roundKeys, uint8_t* block) {
    const InverseKeys keys(roundKeys);
    __m128i state[1] = {Load(block)};
    Decrypt(keys, state);
    Store(block, state[0]);
}

void DecryptCbc(const uint8_t* roundKeys, uint8_t* iv, uint8_t* buffer, size_t blocks) {
    const InverseKeys keys(roundKeys);
    __m128i chain = Load(iv);
    for (; blocks >= kLanes; blocks -= kLanes, buffer += kBlockSize * kLanes) {
        chain = DecryptCbcBlocks<kLanes>(keys, chain, buffer);
    }
    for (; blocks > 0; --blocks, buffer += kBlockSize) {
        chain = DecryptCbcBlocks<1>(keys, chain, buffer);
    }
    Store(iv, chain);
}

} // namespace orvo::instructions
