// SPDX-License-Identifier: MIT
#define ORVO_VNNI_OF_AVX512
#include "compute_a/simd/avxvnni/depthwise.cpp"
