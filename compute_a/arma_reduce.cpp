// SPDX-License-Identifier: MIT
//
// Kernels that turn a tensor into a vector at the end of a network, over one dot product.
#include <cstddef>

#include "compute_a/requantise.h"
#include "orvo/q7_kernels.h"

namespace {

// These two kernels take the shift as a byte.
uint32_t ShiftCount(uint16_t outShift) { return outShift & 0xFFu; }

} // namespace

int32_t MultAccumulate(const int8_t* vecA, const int8_t* vecB, uint32_t length) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < length; ++i) {
        sum = orvo::AddProduct(sum, vecA[i], vecB[i]);
    }
    return static_cast<int32_t>(sum);
}

void MultAccumulate4(const int8_t* vec0, const int8_t* vec1, const int8_t* vec2, const int8_t* vec3,
                     const int8_t* vecB, uint16_t length, int32_t result[4]) {
    uint32_t sums[4] = {};
    for (uint32_t k = 0; k < length; ++k) {
        sums[0] = orvo::AddProduct(sums[0], vec0[k], vecB[k]);
        sums[1] = orvo::AddProduct(sums[1], vec1[k], vecB[k]);
        sums[2] = orvo::AddProduct(sums[2], vec2[k], vecB[k]);
        sums[3] = orvo::AddProduct(sums[3], vec3[k], vecB[k]);
    }
    for (int i = 0; i < 4; ++i) {
        result[i] = static_cast<int32_t>(sums[i]);
    }
}

void ArmAConvolveGlobalChwQ7(const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
                             const int8_t* weights, const int32_t* bias, uint16_t outShift,
                             int8_t* dst, void* /*scratch*/) {
    const uint32_t plane = width * height;
    for (uint32_t c = 0; c < channels; ++c, src += plane, weights += plane) {
        const int32_t sum = MultAccumulate(src, weights, plane);
        dst[c] = orvo::RequantiseQ7(static_cast<uint32_t>(sum), bias[c], ShiftCount(outShift));
    }
}

void ArmAFcQ7(const int8_t* src, const int8_t* weights, uint32_t inCount, uint32_t outCount,
              uint16_t outShift, const int32_t* bias, int8_t* dst, void* /*scratch*/) {
    for (uint32_t j = 0; j < outCount; ++j, weights += inCount) {
        const int32_t sum = MultAccumulate(src, weights, inCount);
        dst[j] = orvo::RequantiseQ7(static_cast<uint32_t>(sum), bias[j], ShiftCount(outShift));
    }
}
