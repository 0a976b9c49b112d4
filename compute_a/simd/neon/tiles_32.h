// SPDX-License-Identifier: MIT
//
// The tiles of the matrix product on 32-bit ARM, where sixteen vectors must hold everything: from
// intrinsics, compilers keep some of it in memory and copy the rest about.
//
// A tile is 8 pixels of 4 planes. `group` points to what it reads in order: the planes' biases,
// eight times each, if the sums start from them; 32 bytes of weights a plane for each two steps;
// the shift count four times; the biases, if they come last. Register plans:
//
//     q0-q7    sums of 32 bits, or of 16 bits where these take all rows: two a plane
//     q8-q11   pixels of two steps: rows 0 and 1, rows 2 and 3 of each
//     q12-q13  weights of two steps of a plane (and q14-q15, of every other plane, where free)
//     q14-q15  products of a plane, until they are widened
//
// A finished sum is shifted left with saturation until its top byte is the output (see TopByteShift
// in lanes.h), and unzipping twice picks that byte. Instructions per 256 products and per tile
// beside them, from intrinsics and here: 57 and 60 to 56 and 28 where each step is widened, 51 and
// 59 to 48 and 28 where two are, 41 and 85 to 40 and 44 where all rows fit; 13 % of the product.
#pragma once

#include <arm_neon.h>

#include <cstddef>
#include <cstdint>

#include "compute_a/simd/neon/lanes.h"

namespace orvo {
namespace {

// When sums of 16 bits that a group of channels adds its products in are widened.
enum class Widen {
    kStep,    // after each step of four rows
    kPair,    // after two steps
    kEnd,     // after the last: they take all rows
    kProduct, // after each product: they cannot take even one step
};

struct Tiles32 {
    const int8_t* values; // packed pixels, a tile after the other
    const void* group;
    size_t steps; // at least two
    size_t count; // of tiles, at least one
    int8_t* dst;
    size_t pitch; // from plane to plane
};

// Steps of 16 pixels for two tiles: four rows each, interleaved by two. The pointers move past
// them. Ten instructions a step, 28 from intrinsics.
inline void PackTiles32(const int8_t*& at, size_t pitch, size_t steps, int8_t*& first,
                        int8_t*& second) {
    __asm__ volatile(
        "1:\n\t"
        "vld1.8 {d0-d1}, [%[at]], %[pitch]\n\t"
        "vld1.8 {d4-d5}, [%[at]], %[pitch]\n\t"
        "vld1.8 {d2-d3}, [%[at]], %[pitch]\n\t"
        "vld1.8 {d6-d7}, [%[at]], %[pitch]\n\t"
        "vzip.8 q0, q2\n\t"
        "vzip.8 q1, q3\n\t"
        "subs %[steps], %[steps], #1\n\t"
        "vst1.8 {d0-d3}, [%[first]]!\n\t"
        "vst1.8 {d4-d7}, [%[second]]!\n\t"
        "bne 1b\n\t"
        : [at] "+r"(at), [steps] "+r"(steps), [first] "+r"(first), [second] "+r"(second)
        : [pitch] "r"(pitch)
        : "q0", "q1", "q2", "q3", "cc", "memory");
}

// clang-format off
#define ORVO_VALUES_OF_TWO_STEPS         \
    "vld1.8 {d16-d19}, [%[values]]!\n\t" \
    "vld1.8 {d20-d23}, [%[values]]!\n\t"
#define ORVO_VALUES_OF_ONE_STEP "vld1.8 {d16-d19}, [%[values]]!\n\t"

// The pixels' products with a step's weights, one for rows 0 and 1 and one for rows 2 and 3. With
// `first`, they replace what is in the sums.
#define ORVO_STEP(first, low, high, p0, p1, p2, p3, w01, w23) \
    first " " low ", " p0 ", " w01 "\n\t"                     \
    first " " high ", " p1 ", " w01 "\n\t"                    \
    "vmlal.s8 " low ", " p2 ", " w23 "\n\t"                   \
    "vmlal.s8 " high ", " p3 ", " w23 "\n\t"
#define ORVO_STEP_ONE(first, low, high, w01, w23) \
    ORVO_STEP(first, low, high, "d16", "d17", "d18", "d19", w01, w23)
#define ORVO_STEP_TWO(first, low, high, w01, w23) \
    ORVO_STEP(first, low, high, "d20", "d21", "d22", "d23", w01, w23)
#define ORVO_WIDEN(low, high)         \
    "vpadal.s16 " low ", q14\n\t"     \
    "vpadal.s16 " high ", q15\n\t"

// A plane's two steps, widened each, and both at once; its last step; both, not widened.
#define ORVO_PLANE_BY_STEP(low, high)                            \
    "vld1.8 {d24-d27}, [%[from]]!\n\t"                           \
    ORVO_STEP_ONE("vmull.s8", "q14", "q15", "d24", "d25")        \
    ORVO_WIDEN(low, high)                                        \
    ORVO_STEP_TWO("vmull.s8", "q14", "q15", "d26", "d27")        \
    ORVO_WIDEN(low, high)
#define ORVO_PLANE_BY_PAIR(low, high)                            \
    "vld1.8 {d24-d27}, [%[from]]!\n\t"                           \
    ORVO_STEP_ONE("vmull.s8", "q14", "q15", "d24", "d25")        \
    ORVO_STEP_TWO("vmlal.s8", "q14", "q15", "d26", "d27")        \
    ORVO_WIDEN(low, high)
#define ORVO_PLANE_LAST_STEP(low, high)                          \
    "vld1.8 {d24-d27}, [%[from]]!\n\t"                           \
    ORVO_STEP_ONE("vmull.s8", "q14", "q15", "d24", "d25")        \
    ORVO_WIDEN(low, high)
#define ORVO_PLANE_NARROW(low, high, w0, w1, w2, w3)             \
    "vld1.8 {" w0 "-" w3 "}, [%[from]]!\n\t"                     \
    ORVO_STEP_ONE("vmlal.s8", low, high, w0, w1)                 \
    ORVO_STEP_TWO("vmlal.s8", low, high, w2, w3)
#define ORVO_PLANE_NARROW_LAST_STEP(low, high, w0, w1, w2, w3)   \
    "vld1.8 {" w0 "-" w3 "}, [%[from]]!\n\t"                     \
    ORVO_STEP_ONE("vmlal.s8", low, high, w0, w1)

#define ORVO_ALL_PLANES(plane) plane("q0", "q1") plane("q2", "q3") plane("q4", "q5") plane("q6", "q7")
#define ORVO_ALL_PLANES_NARROW(plane)           \
    plane("q0", "q1", "d24", "d25", "d26", "d27") \
    plane("q2", "q3", "d28", "d29", "d30", "d31") \
    plane("q4", "q5", "d24", "d25", "d26", "d27") \
    plane("q6", "q7", "d28", "d29", "d30", "d31")

// The sums of two planes, four a vector, become `out`: 8 bytes of each plane.
#define ORVO_TOP_BYTES(low0, high0, low1, out)       \
    "vqshl.s32 " low0 ", " low0 ", q12\n\t"          \
    "vqshl.s32 " high0 ", " high0 ", q12\n\t"        \
    "vqshl.s32 " low1 ", " low1 ", q12\n\t"          \
    "vqshl.s32 " out ", " out ", q12\n\t"            \
    "vuzp.16 " low0 ", " high0 "\n\t"                \
    "vuzp.16 " low1 ", " out "\n\t"                  \
    "vuzp.8 " high0 ", " out "\n\t"
#define ORVO_STORE_TWO_PLANES(d0, d1)                \
    "vst1.8 {" d0 "}, [%[dst]], %[pitch]\n\t"        \
    "vst1.8 {" d1 "}, [%[dst]], %[pitch]\n\t"

#define ORVO_WIDE_TILES(planesOfTwoSteps, lastStep) \
    "1:\n\t"                                        \
    "mov %[from], %[group]\n\t"                     \
    "mov %[left], %[pairs]\n\t"                     \
    "vld1.32 {d0-d3}, [%[from]]!\n\t"               \
    "vld1.32 {d4-d7}, [%[from]]!\n\t"               \
    "vld1.32 {d8-d11}, [%[from]]!\n\t"              \
    "vld1.32 {d12-d15}, [%[from]]!\n\t"             \
    "2:\n\t"                                        \
    ORVO_VALUES_OF_TWO_STEPS                        \
    planesOfTwoSteps                                \
    "subs %[left], %[left], #1\n\t"                 \
    "bne 2b\n\t"                                    \
    lastStep                                        \
    "vld1.32 {d24-d25}, [%[from]]\n\t"              \
    ORVO_TOP_BYTES("q0", "q1", "q2", "q3")          \
    ORVO_TOP_BYTES("q4", "q5", "q6", "q7")          \
    ORVO_STORE_TWO_PLANES("d6", "d7")               \
    ORVO_STORE_TWO_PLANES("d14", "d15")             \
    "add %[dst], %[dst], %[back]\n\t"               \
    "subs %[count], %[count], #1\n\t"               \
    "bne 1b\n\t"

#define ORVO_NARROW_TILES(lastStep)                 \
    "1:\n\t"                                        \
    "mov %[from], %[group]\n\t"                     \
    "mov %[left], %[pairs]\n\t"                     \
    "vmov.i32 q0, #0\n\t"                           \
    "vmov.i32 q1, #0\n\t"                           \
    "vmov.i32 q2, #0\n\t"                           \
    "vmov.i32 q3, #0\n\t"                           \
    "vmov.i32 q4, #0\n\t"                           \
    "vmov.i32 q5, #0\n\t"                           \
    "vmov.i32 q6, #0\n\t"                           \
    "vmov.i32 q7, #0\n\t"                           \
    "2:\n\t"                                        \
    ORVO_VALUES_OF_TWO_STEPS                        \
    ORVO_ALL_PLANES_NARROW(ORVO_PLANE_NARROW)       \
    "subs %[left], %[left], #1\n\t"                 \
    "bne 2b\n\t"                                    \
    lastStep                                        \
    "vld1.32 {d24-d25}, [%[from]]!\n\t"             \
    "vld1.32 {d16-d19}, [%[from]]!\n\t"             \
    "vld1.32 {d20-d23}, [%[from]]!\n\t"             \
    "vpadal.s16 q8, q0\n\t"                         \
    "vpadal.s16 q9, q1\n\t"                         \
    "vpadal.s16 q10, q2\n\t"                        \
    "vpadal.s16 q11, q3\n\t"                        \
    "vld1.32 {d0-d3}, [%[from]]!\n\t"               \
    "vld1.32 {d4-d7}, [%[from]]!\n\t"               \
    "vpadal.s16 q0, q4\n\t"                         \
    "vpadal.s16 q1, q5\n\t"                         \
    "vpadal.s16 q2, q6\n\t"                         \
    "vpadal.s16 q3, q7\n\t"                         \
    ORVO_TOP_BYTES("q8", "q9", "q10", "q11")        \
    ORVO_TOP_BYTES("q0", "q1", "q2", "q3")          \
    ORVO_STORE_TWO_PLANES("d22", "d23")             \
    ORVO_STORE_TWO_PLANES("d6", "d7")               \
    "add %[dst], %[dst], %[back]\n\t"               \
    "subs %[count], %[count], #1\n\t"               \
    "bne 1b\n\t"

#define ORVO_RUN_TILES(text)                                                                      \
    __asm__ volatile(text                                                                         \
                     : [values] "+r"(values), [dst] "+r"(dst), [count] "+r"(count),               \
                       [from] "=&r"(from), [left] "=&r"(left)                                     \
                     : [group] "r"(t.group), [pairs] "r"(t.steps / 2), [pitch] "r"(t.pitch),      \
                       [back] "r"(8 - 4 * t.pitch)                                                \
                     : "q0", "q1", "q2", "q3", "q4", "q5", "q6", "q7", "q8", "q9", "q10", "q11",  \
                       "q12", "q13", "q14", "q15", "cc", "memory")

// clang-format on

template <Widen kWiden>
static void MultiplyTiles32(const Tiles32& t) {
    const int8_t* values = t.values;
    int8_t* dst = t.dst;
    size_t count = t.count;
    const void* from;
    size_t left;
    const bool odd = t.steps % 2 != 0;
    if constexpr (kWiden == Widen::kEnd) {
        if (odd) {
            ORVO_RUN_TILES(ORVO_NARROW_TILES(
                ORVO_VALUES_OF_ONE_STEP ORVO_ALL_PLANES_NARROW(ORVO_PLANE_NARROW_LAST_STEP)));
        } else {
            ORVO_RUN_TILES(ORVO_NARROW_TILES(""));
        }
    } else if constexpr (kWiden == Widen::kPair) {
        if (odd) {
            ORVO_RUN_TILES(
                ORVO_WIDE_TILES(ORVO_ALL_PLANES(ORVO_PLANE_BY_PAIR),
                                ORVO_VALUES_OF_ONE_STEP ORVO_ALL_PLANES(ORVO_PLANE_LAST_STEP)));
        } else {
            ORVO_RUN_TILES(ORVO_WIDE_TILES(ORVO_ALL_PLANES(ORVO_PLANE_BY_PAIR), ""));
        }
    } else {
        if (odd) {
            ORVO_RUN_TILES(
                ORVO_WIDE_TILES(ORVO_ALL_PLANES(ORVO_PLANE_BY_STEP),
                                ORVO_VALUES_OF_ONE_STEP ORVO_ALL_PLANES(ORVO_PLANE_LAST_STEP)));
        } else {
            ORVO_RUN_TILES(ORVO_WIDE_TILES(ORVO_ALL_PLANES(ORVO_PLANE_BY_STEP), ""));
        }
    }
}

} // namespace
} // namespace orvo
