// SPDX-License-Identifier: MIT
#define ORVO_VNNI_OF_AVX512
// The same source in the other encoding.
#include "compute_a/simd/avxvnni/depthwise.cpp" // NOLINT(bugprone-suspicious-include)
