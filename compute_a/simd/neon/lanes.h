// SPDX-License-Identifier: MIT
//
// What the ARM paths do with vectors that 32-bit and 64-bit ARM spell differently.
#pragma once

#include <arm_neon.h>

#include <cstddef>
#include <cstdint>

#include "compute_a/requantise.h"

namespace orvo {
namespace { // nothing that a file for another instruction set could share

// The largest total of |w| that a sum of 16 bits may take: with any int8 values its products come
// to 255 * 128 = 32640 at most.
constexpr uint32_t kMostWeight = 255;

// 32 bytes, as two vectors of 16 or four of 8: what 32-bit ARM loads and stores by one instruction,
// and 64-bit ARM by one for two registers. Loading and storing move the address past them.
#if defined(__aarch64__)

using Bytes32 = int8x16x2_t;

inline Bytes32 Load32(const int8_t*& from) {
    const Bytes32 loaded{{vld1q_s8(from), vld1q_s8(from + 16)}};
    from += 32;
    return loaded;
}

inline void Store32(const Bytes32& bytes, int8_t*& to) {
    vst1q_s8(to, bytes.val[0]);
    vst1q_s8(to + 16, bytes.val[1]);
    to += 32;
}

inline Bytes32 Max(const Bytes32& bytes, int8_t lowest) {
    const int8x16_t limit = vdupq_n_s8(lowest);
    return {{vmaxq_s8(bytes.val[0], limit), vmaxq_s8(bytes.val[1], limit)}};
}

#else

using Bytes32 = int8x8x4_t;

inline Bytes32 Load32(const int8_t*& from) {
    Bytes32 loaded;
#if defined(__clang__)
    loaded = vld1_s8_x4(from);
    from += 32;
#else
    // GCC has the instruction, but no intrinsic for it.
    __asm__("vld1.8 %h0, [%1]!"
            : "=w"(loaded), "+r"(from)
            : "m"(*reinterpret_cast<const int8_t(*)[32]>(from)));
#endif
    return loaded;
}

inline void Store32(const Bytes32& bytes, int8_t*& to) {
#if defined(__clang__)
    vst1_s8_x4(to, bytes);
    to += 32;
#else
    __asm__("vst1.8 %h2, [%1]!"
            : "=m"(*reinterpret_cast<int8_t(*)[32]>(to)), "+r"(to)
            : "w"(bytes));
#endif
}

inline Bytes32 Max(const Bytes32& bytes, int8_t lowest) {
    const int8x8_t limit = vdup_n_s8(lowest);
    return {{vmax_s8(bytes.val[0], limit), vmax_s8(bytes.val[1], limit),
             vmax_s8(bytes.val[2], limit), vmax_s8(bytes.val[3], limit)}};
}

#endif

// Saturates two vectors into the halves of one. GCC 12 would copy the second half to its place on
// 32-bit ARM, where the halves are registers of their own.
inline int8x16_t NarrowPair(int16x8_t low, int16x8_t high) {
#if defined(__aarch64__)
    return vqmovn_high_s16(vqmovn_s16(low), high);
#else
    int8x16_t narrow;
    __asm__("vqmovn.s16 %e0, %q1\n\tvqmovn.s16 %f0, %q2" : "=&w"(narrow) : "w"(low), "w"(high));
    return narrow;
#endif
}

// A finished sum is shifted left, with saturation, until its top byte is the output: the bits below
// that byte are those that the right shift by `shift` drops, and what the byte cannot hold
// saturates the whole.
inline int32x4_t TopByteShift(uint32_t shift) {
    return vdupq_n_s32(24 - static_cast<int32_t>(std::min<uint32_t>(shift, 31)));
}

// The upper halves of eight numbers.
inline int16x8_t TopWords(int32x4_t low, int32x4_t high) {
    const int16x8_t lowWords = vreinterpretq_s16_s32(low);
    const int16x8_t highWords = vreinterpretq_s16_s32(high);
#if defined(__aarch64__)
    return vuzp2q_s16(lowWords, highWords);
#else
    return vuzpq_s16(lowWords, highWords).val[1];
#endif
}

// Eight finished sums.
inline int8x8_t Requantise(int32x4_t low, int32x4_t high, int32x4_t shiftCount) {
    return vshrn_n_s16(TopWords(vqshlq_s32(low, shiftCount), vqshlq_s32(high, shiftCount)), 8);
}

// Whether no total is above kMostWeight.
inline bool AllWithin(uint16x8_t weightTotals) {
    static_assert(kMostWeight == 255);
    const uint8x8_t above = vshrn_n_u16(weightTotals, 8);
    return vget_lane_u64(vreinterpret_u64_u8(above), 0) == 0;
}

} // namespace
} // namespace orvo
