// SPDX-License-Identifier: MIT
//
// Every step issues enough independent sums to hide the latency. The values in the registers do not
// matter. The plain path is held against SSE2, with which the compiler may vectorise it.
#include "bench/peak.h"

namespace orvo_bench {
namespace {

#define REPEAT(X) X(4) X(5) X(6) X(7) X(8) X(9)
#define SUMS "xmm4", "xmm5", "xmm6", "xmm7", "xmm8", "xmm9"

#if defined(__x86_64__)

#define VNNI(n) "vpdpbusd %%zmm0, %%zmm1, %%zmm" #n "\n\t"
void RunAvx512Vnni(size_t steps) {
    for (; steps > 0; --steps) {
        __asm__ volatile(REPEAT(VNNI) VNNI(10) VNNI(11) VNNI(12) VNNI(13) VNNI(14) VNNI(15)::
                             : SUMS, "xmm10", "xmm11", "xmm12", "xmm13", "xmm14", "xmm15");
    }
    __asm__ volatile("vzeroupper");
}

// The path's choice has asked the operating system for the tiles.
#define TILES(n) "tdpbssd %%tmm5, %%tmm4, %%tmm" #n "\n\t"
void RunAmx(size_t steps) {
    struct alignas(64) {
        uint8_t palette = 1, startRow = 0, reserved[14] = {};
        uint16_t rowBytes[16] = {64, 64, 64, 64, 64, 64};
        uint8_t rows[16] = {16, 16, 16, 16, 16, 16};
    } const shapes;
    __asm__ volatile("ldtilecfg %0" ::"m"(shapes));
    for (; steps > 0; --steps) {
        __asm__ volatile(TILES(0) TILES(1) TILES(2) TILES(3)::);
    }
    __asm__ volatile("tilerelease");
}

#define VNNI_32(n) "%{vex%} vpdpbusd %%ymm0, %%ymm1, %%ymm" #n "\n\t"
void RunAvxVnni(size_t steps) {
    for (; steps > 0; --steps) {
        __asm__ volatile(REPEAT(VNNI_32) VNNI_32(10) VNNI_32(11) VNNI_32(12) VNNI_32(13) VNNI_32(14)
                             VNNI_32(15)::
                                 : SUMS, "xmm10", "xmm11", "xmm12", "xmm13", "xmm14", "xmm15");
    }
    __asm__ volatile("vzeroupper");
}

#define VNNI_32_EVEX(n) "%{evex%} vpdpbusd %%ymm0, %%ymm1, %%ymm" #n "\n\t"
void RunAvxVnniEvex(size_t steps) {
    for (; steps > 0; --steps) {
        __asm__ volatile(REPEAT(VNNI_32_EVEX) VNNI_32_EVEX(10) VNNI_32_EVEX(11) VNNI_32_EVEX(12)
                             VNNI_32_EVEX(13) VNNI_32_EVEX(14) VNNI_32_EVEX(15)::
                                 : SUMS, "xmm10", "xmm11", "xmm12", "xmm13", "xmm14", "xmm15");
    }
    __asm__ volatile("vzeroupper");
}

#define AVX2(n) "vpmaddwd %%ymm0, %%ymm1, %%ymm2\n\tvpaddd %%ymm2, %%ymm" #n ", %%ymm" #n "\n\t"
void RunAvx2(size_t steps) {
    for (; steps > 0; --steps) {
        __asm__ volatile(REPEAT(AVX2)::: "xmm2", SUMS);
    }
    __asm__ volatile("vzeroupper");
}

#define SSE41(n) \
    "movdqa %%xmm0, %%xmm2\n\tpmaddubsw %%xmm1, %%xmm2\n\tpaddw %%xmm2, %%xmm" #n "\n\t"
void RunSse41(size_t steps) {
    for (; steps > 0; --steps) {
        __asm__ volatile(REPEAT(SSE41)::: "xmm2", SUMS);
    }
}

#define SSE2(n) "movdqa %%xmm0, %%xmm2\n\tpmaddwd %%xmm1, %%xmm2\n\tpaddd %%xmm2, %%xmm" #n "\n\t"
void RunSse2(size_t steps) {
    for (; steps > 0; --steps) {
        __asm__ volatile(REPEAT(SSE2)::: "xmm2", SUMS);
    }
}

constexpr Peak kPeaks[] = {
    {"amx", "tdpbssd", RunAmx, 4 * 16 * 16 * 64},
    {"avx512vnni", "vpdpbusd zmm", RunAvx512Vnni, 12 * 64},
    {"avxvnni", "vpdpbusd ymm", RunAvxVnni, 12 * 32},
    {"avxvnni_evex", "vpdpbusd ymm", RunAvxVnniEvex, 12 * 32},
    {"avx2", "vpmaddwd + vpaddd ymm", RunAvx2, 6 * 16},
    {"sse41", "pmaddubsw + paddw", RunSse41, 6 * 16},
    {"plain", "SSE2 pmaddwd + paddd", RunSse2, 6 * 8},
};

#elif defined(__aarch64__)

#define NEON_SUMS "v2", "v4", "v5", "v6", "v7", "v8", "v9"
#define NEON(n) \
    "smull v2.8h, v0.8b, v1.8b\n\tsmlal2 v2.8h, v0.16b, v1.16b\n\tsadalp v" #n ".4s, v2.8h\n\t"
void RunNeon(size_t steps) {
    for (; steps > 0; --steps) {
        __asm__ volatile(REPEAT(NEON)::: NEON_SUMS);
    }
}

#define DOT(n) "sdot v" #n ".4s, v0.16b, v1.16b\n\t"
void RunNeonDot(size_t steps) {
    for (; steps > 0; --steps) {
        __asm__ volatile(".arch armv8.2-a+dotprod\n\t" REPEAT(DOT)::: NEON_SUMS);
    }
}

constexpr Peak kPeaks[] = {
    {"neon_dot", "sdot", RunNeonDot, 6 * 16},
    {"neon", "smull + smlal2 + sadalp", RunNeon, 6 * 16},
};

#elif defined(__ARM_NEON)

#define NEON(n) "vmull.s8 q2, d0, d2\n\tvmlal.s8 q2, d1, d3\n\tvpadal.s16 q" #n ", q2\n\t"
void RunNeon(size_t steps) {
    for (; steps > 0; --steps) {
        __asm__ volatile(NEON(3) NEON(8) NEON(9) NEON(10) NEON(11) NEON(12)::
                             : "q2", "q3", "q8", "q9", "q10", "q11", "q12");
    }
}

constexpr Peak kPeaks[] = {{"neon", "vmull.s8 + vmlal.s8 + vpadal.s16", RunNeon, 6 * 16}};

#else

void RunNothing(size_t) {}
constexpr Peak kPeaks[] = {{"", "", RunNothing, 0}};

#endif

} // namespace

const Peak* PeakOf(std::string_view path) {
    for (const Peak& peak : kPeaks) {
        if (peak.path == path) {
            return &peak;
        }
    }
    return nullptr;
}

} // namespace orvo_bench
