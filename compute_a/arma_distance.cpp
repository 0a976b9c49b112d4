// SPDX-License-Identifier: MIT
//
// The inner product of two float vectors. The order of the operations decides the last bits and is
// part of the contract; only the steps written as std::fma are fused.
#include <cmath>

#include "orvo/q7_kernels.h"

float ArmACalcDistanceFloat(const float* a, const float* b, int32_t n) {
    const int32_t blocks = n / 4;
    const int32_t rest = n % 4;
    float lanes[4] = {};
    for (int32_t i = 0; i < blocks; ++i, a += 4, b += 4) {
        for (int lane = 0; lane < 4; ++lane) {
            lanes[lane] += a[lane] * b[lane];
        }
    }
    float sum = (lanes[0] + lanes[1]) + (lanes[2] + lanes[3]);
    if (rest == 3) {
        sum += a[0] * b[0] + a[1] * b[1];
        return std::fma(a[2], b[2], sum);
    }
    for (int32_t i = 0; i < rest; ++i) {
        sum = std::fma(a[i], b[i], sum);
    }
    return sum;
}
