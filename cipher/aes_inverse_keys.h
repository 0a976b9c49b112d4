// SPDX-License-Identifier: MIT
//
// What both files on x86-64's AES instructions share. Each is compiled for instructions of its own,
// so nothing here may be shared by the linker.
#pragma once

#include <immintrin.h>

#include "cipher/blocks.h"
#include "cipher/wipe.h"

namespace orvo {
namespace {

inline __m128i Load(const uint8_t* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}
inline void Store(uint8_t* to, __m128i block) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), block);
}

// The keys of the equivalent inverse cipher, in the order that it uses them.
struct InverseKeys {
    __m128i key[kAesRounds + 1];

    explicit InverseKeys(const uint8_t* roundKeys) {
        key[0] = Load(roundKeys + kBlockSize * kAesRounds);
        for (size_t round = 1; round < kAesRounds; ++round) {
            key[round] = _mm_aesimc_si128(Load(roundKeys + kBlockSize * (kAesRounds - round)));
        }
        key[kAesRounds] = Load(roundKeys);
    }
    ~InverseKeys() { Wipe(key, sizeof key); }
};

} // namespace
} // namespace orvo
