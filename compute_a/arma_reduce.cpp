// SPDX-License-Identifier: MIT
//
// Kernels that turn a tensor into a vector at the end of a network, over one dot product.
#include <cstddef>

#include "compute_a/requantise.h"
#include "compute_a/routines.h"
#include "orvo/q7_kernels.h"

namespace {

// These two kernels take the shift as a byte.
uint32_t ShiftCount(uint16_t outShift) { return outShift & 0xFFu; }

} // namespace

int32_t MultAccumulate(const int8_t* vecA, const int8_t* vecB, uint32_t length) {
    return orvo::ChosenRoutines().dot(vecA, vecB, length);
}

void MultAccumulate4(const int8_t* vec0, const int8_t* vec1, const int8_t* vec2, const int8_t* vec3,
                     const int8_t* vecB, uint16_t length, int32_t result[4]) {
    const int8_t* const vectors[4] = {vec0, vec1, vec2, vec3};
    for (int i = 0; i < 4; ++i) {
        result[i] = orvo::ChosenRoutines().dot(vectors[i], vecB, length);
    }
}

void ArmAConvolveGlobalChwQ7(const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
                             const int8_t* weights, const int32_t* bias, uint16_t outShift,
                             int8_t* dst, void* /*scratch*/) {
    const auto dot = orvo::ChosenRoutines().dot;
    const uint32_t plane = width * height;
    for (uint32_t c = 0; c < channels; ++c, src += plane, weights += plane) {
        const int32_t sum = dot(src, weights, plane);
        dst[c] = orvo::RequantiseQ7(static_cast<uint32_t>(sum), bias[c], ShiftCount(outShift));
    }
}

void ArmAFcQ7(const int8_t* src, const int8_t* weights, uint32_t inCount, uint32_t outCount,
              uint16_t outShift, const int32_t* bias, int8_t* dst, void* /*scratch*/) {
    const auto dot = orvo::ChosenRoutines().dot;
    for (uint32_t j = 0; j < outCount; ++j, weights += inCount) {
        const int32_t sum = dot(src, weights, inCount);
        dst[j] = orvo::RequantiseQ7(static_cast<uint32_t>(sum), bias[j], ShiftCount(outShift));
    }
}
