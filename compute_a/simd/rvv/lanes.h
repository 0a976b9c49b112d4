// SPDX-License-Identifier: MIT
//
// What the RISC-V routines share.
//
// Vectors have as many values as a processor's registers hold, 128 bits or more. Groups of registers
// work as one: bytes in two, their products in four, sums of 32 bits in eight. An instruction for a
// group does the work of as many for single registers, and one fetch of instructions and weights
// serves all.
#pragma once

#include <riscv_vector.h>

#include <cstddef>
#include <cstdint>

namespace orvo {
namespace { // nothing that a file for another instruction set could share

// The shift instructions take their count modulo 32.
inline size_t ShiftCount(uint32_t shift) { return shift < 31 ? shift : 31; }

// Shifts to the right, rounding down, and saturates.
inline vint8m2_t Requantise(vint32m8_t sums, size_t shift, size_t count) {
    const vint16m4_t words = __riscv_vnclip_wx_i16m4(sums, shift, __RISCV_VXRM_RDN, count);
    return __riscv_vnclip_wx_i8m2(words, 0, __RISCV_VXRM_RDN, count);
}

} // namespace
} // namespace orvo
