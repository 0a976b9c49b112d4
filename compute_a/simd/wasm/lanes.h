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

} // namespace
} // namespace orvo
