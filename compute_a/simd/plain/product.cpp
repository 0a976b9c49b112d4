// SPDX-License-Identifier: MIT
//
// The matrix product and the dot product by their definitions. Nothing is packed: a channel after
// the other takes its weights from where they are stored, and the rows as they are.
#include "compute_a/simd/plain/routines.h"

#include <algorithm>

#include "compute_a/requantise.h"
#include "compute_a/simd/plain/lanes.h"

namespace orvo {
namespace {

constexpr size_t kGroup = 4;

// sums += four rows, each times its weight. Four products stay far below 32 bits.
void AddRows(const int8_t* row, size_t pitch, const int8_t* weights, size_t weightStep,
             size_t count, uint32_t* sums) {
    const int32_t w0 = weights[0];
    const int32_t w1 = weights[weightStep];
    const int32_t w2 = weights[2 * weightStep];
    const int32_t w3 = weights[3 * weightStep];
    for (size_t i = 0; i < count; ++i) {
        sums[i] += static_cast<uint32_t>(row[i] * w0 + row[pitch + i] * w1 +
                                         row[2 * pitch + i] * w2 + row[3 * pitch + i] * w3);
    }
}

void AddRow(const int8_t* row, int8_t weight, size_t count, uint32_t* sums) {
    for (size_t i = 0; i < count; ++i) {
        sums[i] = AddProduct(sums[i], row[i], weight);
    }
}

// One output channel, whose weights stand `weightStep` bytes apart.
void MultiplyChannel(const MatrixProduct& p, const int8_t* weights, size_t weightStep, int32_t bias,
                     int8_t* dst) {
    for (size_t pixel = 0; pixel < p.pixels; pixel += kStrip) {
        const size_t count = std::min(kStrip, p.pixels - pixel);
        uint32_t sums[kStrip] = {};
        size_t k = 0;
        for (; k + 4 <= p.inner; k += 4) {
            AddRows(p.rows + k * p.rowPitch + pixel, p.rowPitch, weights + k * weightStep,
                    weightStep, count, sums);
        }
        for (; k < p.inner; ++k) {
            AddRow(p.rows + k * p.rowPitch + pixel, weights[k * weightStep], count, sums);
        }
        Requantise(sums, count, bias, p.shift, INT8_MIN, dst + pixel);
    }
}

} // namespace

void plain::Multiply(const MatrixProduct& p) {
    const size_t grouped = p.channels / kGroup * kGroup;
    for (size_t channel = 0; channel < p.channels; ++channel) {
        // The weights of a group stand interleaved; a leftover channel has a group's space to
        // itself.
        const bool isGrouped = channel < grouped;
        const size_t group = isGrouped ? channel / kGroup : grouped / kGroup + channel - grouped;
        const int8_t* weights =
            p.weights + group * p.groupBytes + (isGrouped ? channel % kGroup : 0);
        MultiplyChannel(p, weights, isGrouped ? kGroup : 1, p.bias[channel],
                        p.dst + channel * p.planePitch);
    }
}

int32_t plain::Dot(const int8_t* a, const int8_t* b, size_t count) {
    uint32_t sum = 0;
    for (size_t i = 0; i < count; ++i) {
        sum = AddProduct(sum, a[i], b[i]);
    }
    return static_cast<int32_t>(sum);
}

} // namespace orvo
