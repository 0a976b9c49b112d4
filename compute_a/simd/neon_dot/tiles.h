// SPDX-License-Identifier: MIT
//
// The tiles of the matrix product with the dot product: 16 pixels of 4 planes. Register plan:
//
//     v0-v15   sums, four vectors a plane
//     v16-v23  pixels of two steps, four vectors each
//     v24-v27  weights of four steps, a plane in each lane
//
// Four steps, 1024 products, take 72 instructions, of which 64 multiply, and from intrinsics 82; a
// tile's beginning and end take 47.
#pragma once

#include <arm_neon.h>

#include <cstddef>
#include <cstdint>

namespace orvo {
namespace {

struct DotTiles {
    const int8_t* values; // packed pixels, a tile after the other
    const int8_t* weights;
    const int32_t (*bias)[8]; // of each plane, as often as two vectors have lanes
    size_t steps;
    size_t count; // of tiles, at least one
    int32x4_t shiftCount;
    int8_t* dst[4]; // planes that are not there stand where the last one is, which is stored last
};

// clang-format off

#define ORVO_PIXELS_OF_ONE_STEP "ld1 {v16.16b-v19.16b}, [%[values]], #64\n\t"
#define ORVO_PIXELS_OF_NEXT_STEP "ld1 {v20.16b-v23.16b}, [%[values]], #64\n\t"
#define ORVO_PLANE(s0, s1, s2, s3, p0, p1, p2, p3, w)  \
    "sdot " s0 ".4s, " p0 ".16b, " w "\n\t"            \
    "sdot " s1 ".4s, " p1 ".16b, " w "\n\t"            \
    "sdot " s2 ".4s, " p2 ".16b, " w "\n\t"            \
    "sdot " s3 ".4s, " p3 ".16b, " w "\n\t"
#define ORVO_PRODUCTS(p0, p1, p2, p3, w)                                     \
    ORVO_PLANE("v0", "v1", "v2", "v3", p0, p1, p2, p3, w ".4b[0]")           \
    ORVO_PLANE("v4", "v5", "v6", "v7", p0, p1, p2, p3, w ".4b[1]")           \
    ORVO_PLANE("v8", "v9", "v10", "v11", p0, p1, p2, p3, w ".4b[2]")         \
    ORVO_PLANE("v12", "v13", "v14", "v15", p0, p1, p2, p3, w ".4b[3]")
#define ORVO_ONE_STEP(w) ORVO_PIXELS_OF_ONE_STEP ORVO_PRODUCTS("v16", "v17", "v18", "v19", w)
#define ORVO_NEXT_STEP(w) ORVO_PIXELS_OF_NEXT_STEP ORVO_PRODUCTS("v20", "v21", "v22", "v23", w)
#define ORVO_START(s0, s1, s2, s3, offset)                                   \
    "ldp " s0 ", " s1 ", [%[bias], #" offset "]\n\t"                         \
    "ldp " s2 ", " s3 ", [%[bias], #" offset "]\n\t"
#define ORVO_SHIFT(s) "sqshl " s ".4s, " s ".4s, %[shiftCount].4s\n\t"
// The top bytes of a plane's sums.
#define ORVO_FINISH(s0, s1, s2, s3, q, dst)                                  \
    ORVO_SHIFT(s0) ORVO_SHIFT(s1) ORVO_SHIFT(s2) ORVO_SHIFT(s3)              \
    "uzp2 " s0 ".8h, " s0 ".8h, " s1 ".8h\n\t"                               \
    "uzp2 " s2 ".8h, " s2 ".8h, " s3 ".8h\n\t"                               \
    "uzp2 " s0 ".16b, " s0 ".16b, " s2 ".16b\n\t"                            \
    "str " q ", [%[" dst "]], #16\n\t"

// clang-format on

inline void MultiplyDotTiles(const DotTiles& t) {
    const int8_t* values = t.values;
    size_t count = t.count;
    int8_t *dst0 = t.dst[0], *dst1 = t.dst[1], *dst2 = t.dst[2], *dst3 = t.dst[3];
    const int8_t* from;
    size_t left;
    // clang-format off
    __asm__ volatile(
        "1:\n\t"
        "mov %[from], %[weights]\n\t"
        ORVO_START("q0", "q1", "q2", "q3", "0")
        ORVO_START("q4", "q5", "q6", "q7", "32")
        ORVO_START("q8", "q9", "q10", "q11", "64")
        ORVO_START("q12", "q13", "q14", "q15", "96")
        "lsr %[left], %[steps], #2\n\t"
        "cbz %[left], 3f\n\t"
        "2:\n\t"
        "ldp q24, q25, [%[from]], #32\n\t"
        "ldp q26, q27, [%[from]], #32\n\t"
        ORVO_ONE_STEP("v24") ORVO_NEXT_STEP("v25")
        ORVO_ONE_STEP("v26") ORVO_NEXT_STEP("v27")
        "subs %[left], %[left], #1\n\t"
        "b.ne 2b\n\t"
        "3:\n\t"
        "tbz %[steps], #1, 4f\n\t"
        "ldp q24, q25, [%[from]], #32\n\t"
        ORVO_ONE_STEP("v24") ORVO_NEXT_STEP("v25")
        "4:\n\t"
        "tbz %[steps], #0, 5f\n\t"
        "ldr q24, [%[from]]\n\t"
        ORVO_ONE_STEP("v24")
        "5:\n\t"
        "subs %[count], %[count], #1\n\t"
        ORVO_FINISH("v12", "v13", "v14", "v15", "q12", "dst3")
        ORVO_FINISH("v8", "v9", "v10", "v11", "q8", "dst2")
        ORVO_FINISH("v4", "v5", "v6", "v7", "q4", "dst1")
        ORVO_FINISH("v0", "v1", "v2", "v3", "q0", "dst0")
        "b.ne 1b\n\t"
        : [values] "+r"(values), [dst0] "+r"(dst0), [dst1] "+r"(dst1), [dst2] "+r"(dst2),
          [dst3] "+r"(dst3), [count] "+r"(count), [from] "=&r"(from), [left] "=&r"(left)
        : [weights] "r"(t.weights), [bias] "r"(t.bias), [steps] "r"(t.steps),
          [shiftCount] "w"(t.shiftCount)
        : "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v8", "v9", "v10", "v11", "v12", "v13",
          "v14", "v15", "v16", "v17", "v18", "v19", "v20", "v21", "v22", "v23", "v24", "v25",
          "v26", "v27", "cc", "memory");
    // clang-format on
}

#undef ORVO_PIXELS_OF_ONE_STEP
#undef ORVO_PIXELS_OF_NEXT_STEP
#undef ORVO_PLANE
#undef ORVO_PRODUCTS
#undef ORVO_ONE_STEP
#undef ORVO_NEXT_STEP
#undef ORVO_START
#undef ORVO_SHIFT
#undef ORVO_FINISH

} // namespace
} // namespace orvo
