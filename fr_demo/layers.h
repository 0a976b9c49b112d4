// SPDX-License-Identifier: MIT
//
// The kernels as the two networks call them: planes are square, outputs are as large as inputs, and
// the network's workspace is every kernel's scratch. What is left to say is one short line a layer.
#pragma once

#include <cstdint>

#include "orvo/model_store.h"
#include "orvo/q7_kernels.h"

namespace orvo {

struct Layers {
    int8_t* workspace;
    const ModelArray* arrays; // of the next layer with weights and those after it
    const ModelArray* arraysEnd;

    // Convolutions: source, its channels and size, parameters, output channels, shift, destination.
    void conv(const int8_t* src, uint16_t channels, uint16_t size, const int8_t* weights,
              const int32_t* bias, uint16_t dstChannels, uint16_t shift, int8_t* dst) {
        fetchNextWeights();
        arma_convolve_chw_q7(src, size, size, channels, weights, dstChannels, 3, 1, 1, bias, shift,
                             dst, size, size, workspace);
    }
    void pw(const int8_t* src, uint16_t channels, uint16_t size, const int8_t* weights,
            const int32_t* bias, uint16_t dstChannels, uint16_t shift, int8_t* dst) {
        fetchNextWeights();
        ArmAConvolve1x1s1p0ChwQ7(src, size, size, channels, weights, dstChannels, 1, 0, 1, bias,
                                 shift, dst, size, size, workspace);
    }
    void dw(const int8_t* src, uint16_t channels, uint16_t size, const int8_t* weights,
            const int32_t* bias, uint16_t dstChannels, uint16_t shift, int8_t* dst) {
        fetchNextWeights();
        arma_convolvedw_3x3_s1_chw_q7(src, size, size, channels, weights, dstChannels, 3, 1, 1,
                                      bias, shift, dst, size, size, workspace);
    }
    void dwr(const int8_t* src, uint16_t channels, uint16_t size, const int8_t* weights,
             const int32_t* bias, uint16_t dstChannels, uint16_t shift, int8_t* dst) {
        fetchNextWeights();
        ArmAConvolvedwRelu3x3s1ChwQ7(src, size, size, channels, weights, dstChannels, 3, 1, 1, bias,
                                     shift, dst, size, size, workspace);
    }

    // 2 x 2 maximum: stride 2, and stride 1 (which overwrites its source).
    void mp2(const int8_t* src, uint16_t channels, uint32_t size, int8_t* dst) const {
        ArmAMaxPool2x2S2ChwQ7(src, dst, size, size, channels, 0, workspace);
    }
    void mp1(int8_t* src, uint32_t channels, uint32_t size, int8_t* dst) const {
        ArmAMaxpoolK2x2S1x1ChwQ7(src, size, size, channels, dst, workspace);
    }
    // Every second pixel.
    void ds(const int8_t* src, uint32_t channels, int32_t size, int8_t* dst) const {
        ArmADownsample(src, static_cast<uint32_t>(size), size, channels, dst, workspace);
    }
    // Rectifier, in place.
    void relu(int8_t* data, uint32_t count) const { ArmAReluChwQ7(data, data, count); }

    // Residual addition: the shifts of the first and second operand and of the result, then the
    // channels of the first operand (and the result) and of the second.
    void add(const int8_t* in1, const int8_t* in2, uint16_t in1Shift, uint16_t in2Shift,
             uint16_t outShift, uint16_t size, uint16_t channels, uint16_t in2Channels,
             int8_t* dst) const {
        ArmAZpadPlusChwQ7(in1, in2, dst, in1Shift, in2Shift, outShift, size, size, channels,
                          in2Channels, workspace);
    }

    // The heads.
    void gap(const int8_t* src, uint32_t channels, uint32_t size, uint16_t shift,
             int8_t* dst) const {
        ArmAGapQ7Chw(src, size, size, channels, shift, workspace, dst);
    }
    void global(const int8_t* src, uint32_t channels, uint32_t size, const int8_t* weights,
                const int32_t* bias, uint16_t shift, int8_t* dst) {
        fetchNextWeights();
        ArmAConvolveGlobalChwQ7(src, size, size, channels, weights, bias, shift, dst, workspace);
    }
    void fc(const int8_t* src, uint32_t inputs, const int8_t* weights, const int32_t* bias,
            uint32_t outputs, uint16_t shift, int8_t* dst) {
        fetchNextWeights();
        ArmAFcQ7(src, weights, inputs, outputs, shift, bias, dst, workspace);
    }

    // Weights that have gone from the caches come back while the layer before theirs is made. Not
    // inlined, which would make the networks' code two thirds larger.
    __attribute__((noinline)) void fetchNextWeights() {
        constexpr size_t kLine = 64;
        constexpr size_t kArrays = 2; // weights and biases
        arrays += kArrays;
        if (arrays >= arraysEnd) {
            return;
        }
        for (size_t i = 0; i < kArrays; ++i) {
            const auto* const bytes = static_cast<const int8_t*>(arrays[i].data);
            for (size_t at = 0; at < arrays[i].size; at += kLine) {
                __builtin_prefetch(bytes + at, 0, 2);
            }
        }
    }
};

} // namespace orvo
