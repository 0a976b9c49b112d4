// SPDX-License-Identifier: MIT
//
// What the dot-product routines do with vectors beside what compute_a/simd/neon/lanes.h has.
#pragma once

#include <arm_neon.h>

#include "compute_a/simd/neon/lanes.h"

namespace orvo {
namespace {

// Two vectors by one instruction. Copies of a constant are loaded sooner than moved.
struct TwoVectors {
    int32x4_t first, second;
};
inline TwoVectors LoadTwo(const int32_t from[8]) {
    TwoVectors loaded;
    __asm__("ldp %q0, %q1, %2"
            : "=w"(loaded.first), "=w"(loaded.second)
            : "Q"(*reinterpret_cast<const int32_t(*)[8]>(from)));
    return loaded;
}

// The top bytes of four vectors, in order.
inline int8x16_t TopBytes(const int32x4_t v[4]) {
    const int16x8_t low = vuzp2q_s16(vreinterpretq_s16_s32(v[0]), vreinterpretq_s16_s32(v[1]));
    const int16x8_t high = vuzp2q_s16(vreinterpretq_s16_s32(v[2]), vreinterpretq_s16_s32(v[3]));
    return vuzp2q_s8(vreinterpretq_s8_s16(low), vreinterpretq_s8_s16(high));
}

// The same, one of each vector in turn.
inline int8x16_t InterleaveTopBytes(const int32x4_t v[4]) {
    const int16x8_t even = vtrn2q_s16(vreinterpretq_s16_s32(v[0]), vreinterpretq_s16_s32(v[2]));
    const int16x8_t odd = vtrn2q_s16(vreinterpretq_s16_s32(v[1]), vreinterpretq_s16_s32(v[3]));
    return vtrn2q_s8(vreinterpretq_s8_s16(even), vreinterpretq_s8_s16(odd));
}

} // namespace
} // namespace orvo
