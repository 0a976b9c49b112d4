// SPDX-License-Identifier: MIT
//
// What the ciphers share: blocks of 16 bytes, and words of which the first byte is the lowest.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace orvo {

constexpr size_t kBlockSize = 16;
constexpr int kAesRounds = 10;

inline uint32_t LoadWord(const uint8_t* bytes) {
    return bytes[0] | static_cast<uint32_t>(bytes[1]) << 8 | static_cast<uint32_t>(bytes[2]) << 16 |
           static_cast<uint32_t>(bytes[3]) << 24;
}

// Compilers do not join the bytes of a store once they have gone through vectors.
inline void StoreWord(uint8_t* bytes, uint32_t word) {
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(bytes, &word, sizeof word);
    } else {
        for (int i = 0; i < 4; ++i) {
            bytes[i] = static_cast<uint8_t>(word >> (8 * i));
        }
    }
}

// block := block XOR the first `count` bytes of other.
inline void XorBytes(uint8_t* block, const uint8_t* other, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        block[i] = static_cast<uint8_t>(block[i] ^ other[i]);
    }
}

inline void XorBlock(uint8_t* block, const uint8_t* other) { XorBytes(block, other, kBlockSize); }

} // namespace orvo
