// SPDX-License-Identifier: MIT
//
// The four CHW convolution kernels take the same arguments: what is known of each, and data for it. Without
// GoogleTest, since not every program that wants this is a test of its.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "orvo/q7_kernels.h"
#include "reference/reference_conv.h"

namespace orvo_test {

using orvo_reference::ConvShape;
using ChwKernel = decltype(&arma_convolve_chw_q7);

// Tensors of one call; weights in natural order.
struct ConvData {
    std::vector<int8_t> src;
    std::vector<int8_t> weights;
    std::vector<int32_t> bias;
};

// A kernel with what the tests know about it.
struct ChwSubject {
    ChwKernel kernel;
    std::vector<int8_t> (*packedWeights)(const ConvShape&, const std::vector<int8_t>& natural);
    size_t (*scratchBytes)(const ConvShape&);
    std::vector<int8_t> (*reference)(const ConvShape&, const ConvData&);
    size_t (*weightCount)(const ConvShape&); // natural ones
};

extern const ChwSubject kGenericConv;
extern const ChwSubject kPointwiseConv;
extern const ChwSubject kDepthwiseConv;
extern const ChwSubject kDepthwiseReluConv;

// Random data whose outputs, under the shape's shift, mostly stay inside the saturation limits.
ConvData LivelyData(const ChwSubject& subject, const ConvShape& shape, uint64_t seed);
// Inputs and weights of -128 and 127 only, biases anywhere in 32 bits: saturates and wraps.
ConvData ExtremeData(const ChwSubject& subject, const ConvShape& shape, uint64_t seed);
// All inputs, all weights and all biases equal.
ConvData UniformData(const ChwSubject& subject, const ConvShape& shape, int8_t input, int8_t weight,
                     int32_t bias);
// The shift for which LivelyData() draws weights from the whole range.
uint32_t LivelyShift(size_t dotLength);

// Calls the kernel with the shape's sizes.
void Call(ChwKernel kernel, const ConvShape& shape, const int8_t* src, const int8_t* weights,
          const int32_t* bias, int8_t* dst, int8_t* scratch);

} // namespace orvo_test
