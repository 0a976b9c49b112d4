// SPDX-License-Identifier: MIT
#include "cipher/traces.h"

#include <cstddef>
#include <cstdint>

namespace orvo {
namespace {

// Opening a model takes less than 1 KB by itself. The dynamic linker, called in its deepest
// function to resolve a name, adds its own frames and on x86-64 all vector registers, 2.7 KB with
// AVX-512. Measured together: 3.6 KB on x86-64, 2.4 KB on 64-bit and 1.2 KB on 32-bit ARM.
#if defined(__x86_64__)
constexpr size_t kStackDepth = 8192;
#else
constexpr size_t kStackDepth = 4096;
#endif

#if defined(__x86_64__)
void WipeVectors() {
    __asm__ __volatile__(
        "pxor %%xmm0, %%xmm0\n\tpxor %%xmm1, %%xmm1\n\tpxor %%xmm2, %%xmm2\n\t"
        "pxor %%xmm3, %%xmm3\n\tpxor %%xmm4, %%xmm4\n\tpxor %%xmm5, %%xmm5\n\t"
        "pxor %%xmm6, %%xmm6\n\tpxor %%xmm7, %%xmm7\n\tpxor %%xmm8, %%xmm8\n\t"
        "pxor %%xmm9, %%xmm9\n\tpxor %%xmm10, %%xmm10\n\tpxor %%xmm11, %%xmm11\n\t"
        "pxor %%xmm12, %%xmm12\n\tpxor %%xmm13, %%xmm13\n\tpxor %%xmm14, %%xmm14\n\t"
        "pxor %%xmm15, %%xmm15" ::
            : "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "xmm8", "xmm9",
              "xmm10", "xmm11", "xmm12", "xmm13", "xmm14", "xmm15");
    // The wider halves and the upper registers: the C library copies with them where they are.
    // This file is compiled for the base line, which knows none of them, so none need be named as
    // changed.
    if (__builtin_cpu_supports("avx")) {
        __asm__ __volatile__("vzeroall");
    }
    if (__builtin_cpu_supports("avx512f")) {
        __asm__ __volatile__(
            "vpxord %%zmm16, %%zmm16, %%zmm16\n\tvpxord %%zmm17, %%zmm17, %%zmm17\n\t"
            "vpxord %%zmm18, %%zmm18, %%zmm18\n\tvpxord %%zmm19, %%zmm19, %%zmm19\n\t"
            "vpxord %%zmm20, %%zmm20, %%zmm20\n\tvpxord %%zmm21, %%zmm21, %%zmm21\n\t"
            "vpxord %%zmm22, %%zmm22, %%zmm22\n\tvpxord %%zmm23, %%zmm23, %%zmm23\n\t"
            "vpxord %%zmm24, %%zmm24, %%zmm24\n\tvpxord %%zmm25, %%zmm25, %%zmm25\n\t"
            "vpxord %%zmm26, %%zmm26, %%zmm26\n\tvpxord %%zmm27, %%zmm27, %%zmm27\n\t"
            "vpxord %%zmm28, %%zmm28, %%zmm28\n\tvpxord %%zmm29, %%zmm29, %%zmm29\n\t"
            "vpxord %%zmm30, %%zmm30, %%zmm30\n\tvpxord %%zmm31, %%zmm31, %%zmm31" ::);
    }
}
#elif defined(__aarch64__)
void WipeVectors() {
    // Of v8 to v15 the low halves belong to the caller.
    __asm__ __volatile__(
        "movi v0.2d, #0\n\tmovi v1.2d, #0\n\tmovi v2.2d, #0\n\tmovi v3.2d, #0\n\t"
        "movi v4.2d, #0\n\tmovi v5.2d, #0\n\tmovi v6.2d, #0\n\tmovi v7.2d, #0\n\t"
        "mov v8.d[1], xzr\n\tmov v9.d[1], xzr\n\tmov v10.d[1], xzr\n\tmov v11.d[1], xzr\n\t"
        "mov v12.d[1], xzr\n\tmov v13.d[1], xzr\n\tmov v14.d[1], xzr\n\tmov v15.d[1], xzr\n\t"
        "movi v16.2d, #0\n\tmovi v17.2d, #0\n\tmovi v18.2d, #0\n\tmovi v19.2d, #0\n\t"
        "movi v20.2d, #0\n\tmovi v21.2d, #0\n\tmovi v22.2d, #0\n\tmovi v23.2d, #0\n\t"
        "movi v24.2d, #0\n\tmovi v25.2d, #0\n\tmovi v26.2d, #0\n\tmovi v27.2d, #0\n\t"
        "movi v28.2d, #0\n\tmovi v29.2d, #0\n\tmovi v30.2d, #0\n\tmovi v31.2d, #0" ::
            : "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v16", "v17", "v18", "v19", "v20",
              "v21", "v22", "v23", "v24", "v25", "v26", "v27", "v28", "v29", "v30", "v31");
}
#elif defined(__ARM_NEON)
void WipeVectors() {
    // q4 to q7 belong to the caller.
    __asm__ __volatile__(
        "vmov.i32 q0, #0\n\tvmov.i32 q1, #0\n\tvmov.i32 q2, #0\n\tvmov.i32 q3, #0\n\t"
        "vmov.i32 q8, #0\n\tvmov.i32 q9, #0\n\tvmov.i32 q10, #0\n\tvmov.i32 q11, #0\n\t"
        "vmov.i32 q12, #0\n\tvmov.i32 q13, #0\n\tvmov.i32 q14, #0\n\tvmov.i32 q15, #0" ::
            : "q0", "q1", "q2", "q3", "q8", "q9", "q10", "q11", "q12", "q13", "q14", "q15");
}
#else
void WipeVectors() {}
#endif

// From the top down, as a stack grows, so that a guard page is met and not jumped over. No function
// is called: on the way to one the dynamic linker might save registers below what is wiped.
__attribute__((noinline)) void WipeStack() {
    constexpr size_t kWords = kStackDepth / sizeof(uint32_t);
    uint32_t words[kWords];
    volatile uint32_t* const kept = words;
    for (size_t i = kWords; i-- > 0;) {
        kept[i] = 0;
    }
}

} // namespace

// The vectors first: wiping the stack is done by the general registers, which hold nothing but its
// addresses afterwards.
__attribute__((noinline)) void WipeTraces() {
    WipeVectors();
    WipeStack();
}

} // namespace orvo
