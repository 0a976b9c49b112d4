// SPDX-License-Identifier: MIT
//
// The walk of a depthwise strip of 16 columns on 32-bit ARM, whose sixteen vectors hold it only if
// each is placed by hand. It goes as strips.h says, with the sums of 16 bits that depthwise.cpp
// explains: one an output, or two. Register plan:
//
//     d0-d8    weights, each in all lanes
//     q5-q6    sums that are the output's above, and then those of the output below
//     q7-q8    one sum: those of the row's own output; two: the middle rows' of either
//     q9-q10   two sums: the outer rows' of the row's own output
//              one sum: q9 has zeros, or bytes that are set where a narrow plane has columns;
//              q10 has zeros
//     q11-q13  columns to the left, the columns themselves, to the right
//     q14-q15  shift, lowest output
//
// A row takes 28 instructions with one sum and 30 with two, of which 18 multiply; at the sides
// of a plane up to three more. Eight columns by intrinsics take 21 and 23.
#pragma once

#include <arm_neon.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "compute_a/simd/strips.h"

namespace orvo {
namespace {

constexpr size_t kColumns32 = 16;

struct Strip32 {
    int16_t bias[kColumns32];
    int8_t edge[kColumns32]; // see q9
    int16_t shiftCount;
    int8_t lowest;
    int8_t weights[9];
};

// clang-format off

// A row and its neighbours, at the sides with what is to be vector `edge` there.
#define ORVO_LOAD_INSIDE                      \
    "vld1.8 {q11}, [%[left]], %[width]\n\t"   \
    "vld1.8 {q12}, [%[at]], %[width]\n\t"     \
    "vld1.8 {q13}, [%[right]], %[width]\n\t"
#define ORVO_LOAD_LEFT(edge)                  \
    "vld1.8 {q12}, [%[at]], %[width]\n\t"     \
    "vld1.8 {q13}, [%[right]], %[width]\n\t"  \
    "vext.8 q11, " edge ", q12, #15\n\t"
#define ORVO_LOAD_RIGHT(edge)                 \
    "vld1.8 {q12}, [%[at]], %[width]\n\t"     \
    "vld1.8 {q11}, [%[left]], %[width]\n\t"   \
    "vext.8 q13, q12, " edge ", #1\n\t"
#define ORVO_LOAD_BOTH(address, mask, zero, makeZero) \
    "vld1.8 {q12}, " address "\n\t"           \
    "vand q12, q12, " mask "\n\t" makeZero    \
    "vext.8 q11, " zero ", q12, #15\n\t"      \
    "vext.8 q13, q12, " zero ", #1\n\t"
#define ORVO_LOAD_BOTH_ONE(address) ORVO_LOAD_BOTH(address, "q9", "q10", "")
#define ORVO_LOAD_BOTH_TWO(address)           \
    "vld1.8 {q13}, [%[edge]]\n\t"             \
    ORVO_LOAD_BOTH(address, "q13", "q13", "vmov.i8 q13, #0\n\t")

#define ORVO_MULTIPLY(first, s0, s1, w0, w1, w2)                  \
    first " " s0 ", d22, " w0 "\n\t" first " " s1 ", d23, " w0 "\n\t"  \
    "vmlal.s8 " s0 ", d24, " w1 "\n\tvmlal.s8 " s1 ", d25, " w1 "\n\t" \
    "vmlal.s8 " s0 ", d26, " w2 "\n\tvmlal.s8 " s1 ", d27, " w2 "\n\t"
#define ORVO_ADD_TOP(s0, s1) ORVO_MULTIPLY("vmlal.s8", s0, s1, "d0", "d1", "d2")
#define ORVO_ADD_MIDDLE(s0, s1) ORVO_MULTIPLY("vmlal.s8", s0, s1, "d3", "d4", "d5")
#define ORVO_ADD_BOTTOM(s0, s1) ORVO_MULTIPLY("vmlal.s8", s0, s1, "d6", "d7", "d8")
#define ORVO_START(s0, s1) "vld1.16 {" s0 ", " s1 "}, [%[bias]]\n\t"
#define ORVO_MIDDLE ORVO_MULTIPLY("vmull.s8", "q7", "q8", "d3", "d4", "d5")
#define ORVO_HALVE(s0, s1) "vhadd.s16 " s0 ", " s0 ", q7\n\tvhadd.s16 " s1 ", " s1 ", q8\n\t"
#define ORVO_OUTPUT(s0, s1)             \
    "vqshl.s16 " s0 ", " s0 ", q14\n\t" \
    "vqshl.s16 " s1 ", " s1 ", q14\n\t" \
    "vuzp.8 " s0 ", " s1 "\n\t"         \
    "vmax.s8 " s1 ", " s1 ", q15\n\t"
#define ORVO_STORE(s1, address) "vst1.8 {" s1 "}, " address "\n\t"

// The first row; a row that finishes the output above it; the end of the last output. `a` are the
// sums of the output above, `b` those of the row's own.
#define ORVO_FIRST_OF_ONE(a0, a1, b0, b1) \
    ORVO_START(a0, a1) ORVO_START(b0, b1) ORVO_ADD_MIDDLE(a0, a1) ORVO_ADD_TOP(b0, b1)
#define ORVO_ROW_OF_ONE(a0, a1, b0, b1)                                    \
    ORVO_ADD_BOTTOM(a0, a1) ORVO_ADD_MIDDLE(b0, b1) ORVO_OUTPUT(a0, a1)    \
    ORVO_STORE(a1, "[%[dst]], %[width]") ORVO_START(a0, a1) ORVO_ADD_TOP(a0, a1)
#define ORVO_END_OF_ONE(a0, a1, address) ORVO_OUTPUT(a0, a1) ORVO_STORE(a1, address)
#define ORVO_FIRST_OF_TWO(a0, a1, b0, b1) \
    ORVO_START(a0, a1) ORVO_START(b0, b1) ORVO_MIDDLE ORVO_ADD_TOP(b0, b1)
#define ORVO_ROW_OF_TWO(a0, a1, b0, b1)                                    \
    ORVO_ADD_BOTTOM(a0, a1) ORVO_HALVE(a0, a1) ORVO_MIDDLE ORVO_OUTPUT(a0, a1) \
    ORVO_STORE(a1, "[%[dst]], %[width]") ORVO_START(a0, a1) ORVO_ADD_TOP(a0, a1)
#define ORVO_END_OF_TWO(a0, a1, address) \
    ORVO_HALVE(a0, a1) ORVO_OUTPUT(a0, a1) ORVO_STORE(a1, address)

// Row by row the sums `a` and `b` change places. So that the last output's are in `a`, an odd number
// of rows begins with the second of two.
#define ORVO_WALK(load, first, row, a0, a1, b0, b1, end)      \
    "vmov.i8 q10, #0\n\t"                                     \
    "vld1.8 {q9}, [%[edge]]\n\t"                              \
    "vld1.16 {d28[], d29[]}, [%[constants]]!\n\t"             \
    "vld1.8 {d30[], d31[]}, [%[constants]]!\n\t"              \
    "vld1.8 {d0[]}, [%[constants]]!\n\t"                      \
    "vld1.8 {d1[]}, [%[constants]]!\n\t"                      \
    "vld1.8 {d2[]}, [%[constants]]!\n\t"                      \
    "vld1.8 {d3[]}, [%[constants]]!\n\t"                      \
    "vld1.8 {d4[]}, [%[constants]]!\n\t"                      \
    "vld1.8 {d5[]}, [%[constants]]!\n\t"                      \
    "vld1.8 {d6[]}, [%[constants]]!\n\t"                      \
    "vld1.8 {d7[]}, [%[constants]]!\n\t"                      \
    "vld1.8 {d8[]}, [%[constants]]!\n\t"                      \
    load                                                      \
    "tst %[rows], #1\n\t"                                     \
    "bne 3f\n\t"                                              \
    first(a0, a1, b0, b1)                                     \
    "cmp %[rows], #0\n\t"                                     \
    "beq 4f\n\t"                                              \
    "1:\n\t"                                                  \
    load row(a0, a1, b0, b1)                                  \
    "2:\n\t"                                                  \
    load row(b0, b1, a0, a1)                                  \
    "subs %[rows], %[rows], #2\n\t"                           \
    "bgt 1b\n\t"                                              \
    "b 4f\n\t"                                                \
    "3:\n\t"                                                  \
    first(b0, b1, a0, a1)                                     \
    "b 2b\n\t"                                                \
    "4:\n\t"                                                  \
    end
#define ORVO_WALK_ONE(load, end) \
    ORVO_WALK(load, ORVO_FIRST_OF_ONE, ORVO_ROW_OF_ONE, "q5", "q6", "q7", "q8", end)
#define ORVO_WALK_TWO(load, end) \
    ORVO_WALK(load, ORVO_FIRST_OF_TWO, ORVO_ROW_OF_TWO, "q5", "q6", "q9", "q10", end)

#define ORVO_RUN_WALK(text)                                                                       \
    __asm__ volatile(text                                                                         \
                     : [left] "+r"(left), [at] "+r"(at), [right] "+r"(right), [dst] "+r"(dst),    \
                       [rows] "+r"(rows), [constants] "+r"(constants)                             \
                     : [width] "r"(p.width), [bias] "r"(s.bias), [edge] "r"(s.edge)               \
                     : "q0", "q1", "q2", "q3", "q4", "q5", "q6", "q7", "q8", "q9", "q10", "q11",  \
                       "q12", "q13", "q14", "q15", "cc", "memory")

// clang-format on

#define ORVO_END_IN_PLANE(end) end("q5", "q6", "[%[dst]]")

template <Sides kSides, bool kTwo>
void WalkStrip32(const StripPlane& p, const Strip32& s) {
    const int8_t* at = p.src;
    const int8_t* left = at - 1;
    const int8_t* right = at + 1;
    int8_t* dst = p.dst;
    const void* constants = &s.shiftCount;
    size_t rows = p.height - 1; // which finish an output
    if constexpr (kSides == Sides::kNone && !kTwo) {
        ORVO_RUN_WALK(ORVO_WALK_ONE(ORVO_LOAD_INSIDE, ORVO_END_IN_PLANE(ORVO_END_OF_ONE)));
    } else if constexpr (kSides == Sides::kNone) {
        ORVO_RUN_WALK(ORVO_WALK_TWO(ORVO_LOAD_INSIDE, ORVO_END_IN_PLANE(ORVO_END_OF_TWO)));
    } else if constexpr (kSides == Sides::kLeft && !kTwo) {
        ORVO_RUN_WALK(ORVO_WALK_ONE(ORVO_LOAD_LEFT("q9"), ORVO_END_IN_PLANE(ORVO_END_OF_ONE)));
    } else if constexpr (kSides == Sides::kLeft) {
        ORVO_RUN_WALK(ORVO_WALK_TWO("vmov.i8 q11, #0\n\t" ORVO_LOAD_LEFT("q11"),
                                    ORVO_END_IN_PLANE(ORVO_END_OF_TWO)));
    } else if constexpr (kSides == Sides::kRight && !kTwo) {
        ORVO_RUN_WALK(ORVO_WALK_ONE(ORVO_LOAD_RIGHT("q9"), ORVO_END_IN_PLANE(ORVO_END_OF_ONE)));
    } else if constexpr (kSides == Sides::kRight) {
        ORVO_RUN_WALK(ORVO_WALK_TWO("vmov.i8 q13, #0\n\t" ORVO_LOAD_RIGHT("q13"),
                                    ORVO_END_IN_PLANE(ORVO_END_OF_TWO)));
    } else {
        // The copy of the last row, and room for its outputs, in the place of neighbours' addresses.
        int8_t outputs[kColumns32];
        left = p.last;
        right = outputs;
        rows -= 1;
        if constexpr (!kTwo) {
            ORVO_RUN_WALK(ORVO_WALK_ONE(ORVO_LOAD_BOTH_ONE("[%[at]], %[width]"),
                                        ORVO_LOAD_BOTH_ONE("[%[left]]")
                                            ORVO_ROW_OF_ONE("q5", "q6", "q7", "q8")
                                                ORVO_END_OF_ONE("q7", "q8", "[%[right]]")));
        } else {
            ORVO_RUN_WALK(ORVO_WALK_TWO(ORVO_LOAD_BOTH_TWO("[%[at]], %[width]"),
                                        ORVO_LOAD_BOTH_TWO("[%[left]]")
                                            ORVO_ROW_OF_TWO("q5", "q6", "q9", "q10")
                                                ORVO_END_OF_TWO("q9", "q10", "[%[right]]")));
        }
        std::memcpy(dst, outputs, p.width);
    }
}

#undef ORVO_LOAD_INSIDE
#undef ORVO_LOAD_LEFT
#undef ORVO_LOAD_RIGHT
#undef ORVO_LOAD_BOTH
#undef ORVO_LOAD_BOTH_ONE
#undef ORVO_LOAD_BOTH_TWO
#undef ORVO_MULTIPLY
#undef ORVO_ADD_TOP
#undef ORVO_ADD_MIDDLE
#undef ORVO_ADD_BOTTOM
#undef ORVO_START
#undef ORVO_MIDDLE
#undef ORVO_HALVE
#undef ORVO_OUTPUT
#undef ORVO_STORE
#undef ORVO_FIRST_OF_ONE
#undef ORVO_ROW_OF_ONE
#undef ORVO_END_OF_ONE
#undef ORVO_FIRST_OF_TWO
#undef ORVO_ROW_OF_TWO
#undef ORVO_END_OF_TWO
#undef ORVO_WALK
#undef ORVO_WALK_ONE
#undef ORVO_WALK_TWO
#undef ORVO_RUN_WALK
#undef ORVO_END_IN_PLANE

} // namespace
} // namespace orvo
