// SPDX-License-Identifier: MIT
//
// What the WebAssembly routines share.
#pragma once

#include <wasm_simd128.h>

#include <cstddef>
#include <cstdint>

namespace orvo {
namespace { // nothing that a file for another instruction set could share

using Vector = v128_t;

// The shift instruction takes its count modulo 32.
inline uint32_t ShiftCount(uint32_t shift) { return shift < 31 ? shift : 31; }

// LLVM takes what makes the count a vector's out of loops, no longer knows there that all its lanes
// are equal, and shifts lane by lane in scalar code. So it is kept from seeing that the count stays
// the same.
inline Vector ShiftRight(Vector words, uint32_t count) {
    __asm__ volatile("" : "+r"(count));
    return wasm_i32x4_shr(words, count);
}
inline Vector ShiftRight16(Vector words, uint32_t count) {
    __asm__ volatile("" : "+r"(count));
    return wasm_i16x8_shr(words, count);
}

} // namespace
} // namespace orvo
