// SPDX-License-Identifier: MIT
//
// The tiles of the matrix product on 64-bit ARM without the dot product. A tile is 12 pixels of 4
// planes: 12 divides all planes of the networks, and its sums take just the registers there are:
//
//     v0-v11   sums of 16 bits, three vectors a plane
//     v12-v23  sums of 32 bits
//     v24-v26  pixels of a step: 0 to 3, 4 to 7, 8 to 11, rows 0 and 1 of each before rows 2 and 3
//     v27-v30  weights of a step, a vector a plane; the next step's first two are loaded early
//
// Steps are added up in 16 bits for as long as the group's weights allow, a run of steps; a byte a
// run says how many follow its first one, up to seven. From branches on its three bits come fewer
// instructions than from a loop. 256 products take 37 instructions, of which 32 multiply, and their
// share of the widening, a run's 18 of 48 outputs: about five with the networks' weights. A tile's
// beginning and end take 41.
#pragma once

#include <arm_neon.h>

#include <cstddef>
#include <cstdint>

namespace orvo {
namespace {

constexpr size_t kMostStepsOfRun = 8;

struct Tiles64 {
    const int8_t* values; // packed pixels, a tile after the other
    const int32_t* group; // biases, one a pixel for each plane; behind them the weights
    const uint8_t* runs;
    size_t runCount; // at least one
    size_t count;    // of tiles, at least one
    int32x4_t shiftCount;
    int8_t* dst[4]; // planes that are not there stand where the last one is, which is stored last
};

// clang-format off

// A plane's products of a step. With `first`, they replace what is in the sums.
#define ORVO_PLANE(first, s0, s1, s2, w)                     \
    first " " s0 ".8h, v24.8b, " w ".8b\n\t"                 \
    first " " s1 ".8h, v25.8b, " w ".8b\n\t"                 \
    first " " s2 ".8h, v26.8b, " w ".8b\n\t"                 \
    "smlal2 " s0 ".8h, v24.16b, " w ".16b\n\t"               \
    "smlal2 " s1 ".8h, v25.16b, " w ".16b\n\t"               \
    "smlal2 " s2 ".8h, v26.16b, " w ".16b\n\t"
#define ORVO_STEP_OF(first)                                  \
    "ldp q24, q25, [%[values]], #32\n\t"                     \
    "ldr q26, [%[values]], #16\n\t"                          \
    "ldp q29, q30, [%[from]], #32\n\t"                       \
    ORVO_PLANE(first, "v0", "v1", "v2", "v27")               \
    ORVO_PLANE(first, "v3", "v4", "v5", "v28")               \
    "ldp q27, q28, [%[from]], #32\n\t"                       \
    ORVO_PLANE(first, "v6", "v7", "v8", "v29")               \
    ORVO_PLANE(first, "v9", "v10", "v11", "v30")
#define ORVO_STEP ORVO_STEP_OF("smlal")
#define ORVO_WIDEN(wide, narrow) "sadalp " wide ".4s, " narrow ".8h\n\t"
#define ORVO_SHIFT(sums) "sqshl " sums ".4s, " sums ".4s, %[shiftCount].4s\n\t"

// clang-format on

inline void MultiplyTiles64(const Tiles64& t) {
    const int8_t* values = t.values;
    size_t count = t.count;
    int8_t *dst0 = t.dst[0], *dst1 = t.dst[1], *dst2 = t.dst[2], *dst3 = t.dst[3];
    const void* from;
    const uint8_t* run;
    size_t left;
    uint32_t more;
    // clang-format off
    __asm__ volatile(
        "1:\n\t"
        "mov %[from], %[group]\n\t"
        "ldp q12, q13, [%[from]], #32\n\t"
        "ldp q14, q15, [%[from]], #32\n\t"
        "ldp q16, q17, [%[from]], #32\n\t"
        "ldp q18, q19, [%[from]], #32\n\t"
        "ldp q20, q21, [%[from]], #32\n\t"
        "ldp q22, q23, [%[from]], #32\n\t"
        "ldp q27, q28, [%[from]], #32\n\t"
        "mov %[run], %[runs]\n\t"
        "mov %[left], %[runCount]\n\t"
        "2:\n\t"
        "ldrb %w[more], [%[run]], #1\n\t"
        ORVO_STEP_OF("smull")
        "tbz %w[more], #0, 3f\n\t"
        ORVO_STEP
        "3:\n\t"
        "tbz %w[more], #1, 4f\n\t"
        ORVO_STEP ORVO_STEP
        "4:\n\t"
        "tbz %w[more], #2, 5f\n\t"
        ORVO_STEP ORVO_STEP ORVO_STEP ORVO_STEP
        "5:\n\t"
        "subs %[left], %[left], #1\n\t"
        ORVO_WIDEN("v12", "v0") ORVO_WIDEN("v13", "v1") ORVO_WIDEN("v14", "v2")
        ORVO_WIDEN("v15", "v3") ORVO_WIDEN("v16", "v4") ORVO_WIDEN("v17", "v5")
        ORVO_WIDEN("v18", "v6") ORVO_WIDEN("v19", "v7") ORVO_WIDEN("v20", "v8")
        ORVO_WIDEN("v21", "v9") ORVO_WIDEN("v22", "v10") ORVO_WIDEN("v23", "v11")
        "b.ne 2b\n\t"
        // The top bytes: pixels 0 to 7 of planes 0 and 1 and of planes 2 and 3, pixels 8 to 11 of
        // all.
        ORVO_SHIFT("v12") ORVO_SHIFT("v13") ORVO_SHIFT("v14") ORVO_SHIFT("v15")
        ORVO_SHIFT("v16") ORVO_SHIFT("v17") ORVO_SHIFT("v18") ORVO_SHIFT("v19")
        ORVO_SHIFT("v20") ORVO_SHIFT("v21") ORVO_SHIFT("v22") ORVO_SHIFT("v23")
        "uzp2 v12.8h, v12.8h, v13.8h\n\t"
        "uzp2 v15.8h, v15.8h, v16.8h\n\t"
        "uzp2 v18.8h, v18.8h, v19.8h\n\t"
        "uzp2 v21.8h, v21.8h, v22.8h\n\t"
        "uzp2 v14.8h, v14.8h, v17.8h\n\t"
        "uzp2 v20.8h, v20.8h, v23.8h\n\t"
        "uzp2 v18.16b, v18.16b, v21.16b\n\t"
        "uzp2 v12.16b, v12.16b, v15.16b\n\t"
        "uzp2 v14.16b, v14.16b, v20.16b\n\t"
        "st1 {v18.d}[1], [%[dst3]], #8\n\t"
        "str d18, [%[dst2]], #8\n\t"
        "st1 {v12.d}[1], [%[dst1]], #8\n\t"
        "str d12, [%[dst0]], #8\n\t"
        "st1 {v14.s}[3], [%[dst3]], #4\n\t"
        "st1 {v14.s}[2], [%[dst2]], #4\n\t"
        "st1 {v14.s}[1], [%[dst1]], #4\n\t"
        "str s14, [%[dst0]], #4\n\t"
        "subs %[count], %[count], #1\n\t"
        "b.ne 1b\n\t"
        : [values] "+r"(values), [dst0] "+r"(dst0), [dst1] "+r"(dst1), [dst2] "+r"(dst2),
          [dst3] "+r"(dst3), [count] "+r"(count), [from] "=&r"(from), [run] "=&r"(run),
          [left] "=&r"(left), [more] "=&r"(more)
        : [group] "r"(t.group), [runs] "r"(t.runs), [runCount] "r"(t.runCount),
          [shiftCount] "w"(t.shiftCount)
        : "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v8", "v9", "v10", "v11", "v12", "v13",
          "v14", "v15", "v16", "v17", "v18", "v19", "v20", "v21", "v22", "v23", "v24", "v25",
          "v26", "v27", "v28", "v29", "v30", "cc", "memory");
    // clang-format on
}

#undef ORVO_PLANE
#undef ORVO_STEP_OF
#undef ORVO_STEP
#undef ORVO_WIDEN
#undef ORVO_SHIFT

} // namespace
} // namespace orvo
