// SPDX-License-Identifier: MIT
//
// The two products of VNNI on vectors of 32 bytes, in one of their two encodings: that of AVX-VNNI, or
// that of AVX-512 VNNI with AVX-512VL, which processors have that were made before it. Each file of this
// folder is compiled for both; nothing else of AVX-512 is used.
//
// As assembly, since GCC 12 copies and spills the accumulators of a tile around the intrinsics, and would
// take them for a leave to use AVX-512 elsewhere.
#pragma once

#include <immintrin.h>

#ifdef ORVO_VNNI_OF_AVX512
#define ORVO_VNNI_PREFIX "%{evex%} "
#define ORVO_VNNI_PATH avxvnni_evex
#else
#define ORVO_VNNI_PREFIX "%{vex%} "
#define ORVO_VNNI_PATH avxvnni
#endif

namespace orvo {
namespace {

// sum += four products a lane, of unsigned by signed bytes.
inline __attribute__((always_inline)) void DotAccumulate(__m256i& sum, __m256i values,
                                                         __m256i weights) {
    __asm__(ORVO_VNNI_PREFIX "vpdpbusd %2, %1, %0" : "+x"(sum) : "x"(values), "x"(weights));
}

// sum += two products a lane, of words.
inline __attribute__((always_inline)) void DotAccumulateWords(__m256i& sum, __m256i values,
                                                              __m256i weights) {
    __asm__(ORVO_VNNI_PREFIX "vpdpwssd %2, %1, %0" : "+x"(sum) : "x"(values), "x"(weights));
}

inline __m256i FlipSign(__m256i bytes) { return _mm256_xor_si256(bytes, _mm256_set1_epi8(-128)); }

} // namespace
} // namespace orvo
