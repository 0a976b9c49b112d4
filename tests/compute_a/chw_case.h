// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "compute_a/network_layers.h"
#include "orvo/q7_kernels.h"
#include "reference/reference_conv.h"
#include "support/guarded_buffer.h"

// What the tests of the four CHW convolution kernels share: they take the same arguments, so one
// harness calls them all, with every buffer of exactly its stated size between unmapped pages.
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

// Fewer than half of the values at the limits, and many different ones.
bool IsLively(const std::vector<int8_t>& values);

struct Placement {
    GuardedBuffer::Place place = GuardedBuffer::kAtEnd;
    // Bytes by which each int8 array is moved off the start of its memory.
    size_t srcOffset = 0;
    size_t weightsOffset = 0;
    size_t dstOffset = 0;
    size_t scratchOffset = 0;
};

// Runs the kernel on read-only inputs and exactly sized buffers; a single byte read or written
// outside them, or written to an input, ends the test process.
std::vector<int8_t> RunGuarded(const ChwSubject& subject, const ConvShape& shape,
                               const ConvData& data, const Placement& placement);

// Runs with every buffer against the page after it, then against the page before it.
::testing::AssertionResult MatchesReference(const ChwSubject& subject, const ConvShape& shape,
                                            const ConvData& data);

// Every layer that runs on `kernel`, with lively and with extreme data.
void CheckLayers(const ChwSubject& subject, LayerKernel kernel, std::span<const Layer> layers);

// The properties that every kernel must have alike.
void CheckEveryShift(const ChwSubject& subject, ConvShape shape);
void CheckUniformExtremes(const ChwSubject& subject, ConvShape shape);
void CheckBiasWraps(const ChwSubject& subject, ConvShape shape);
void CheckOddAddresses(const ChwSubject& subject, const ConvShape& shape);

// Calls the kernel with the shape's sizes, for the tests that lay out their own bytes.
void Call(ChwKernel kernel, const ConvShape& shape, const int8_t* src, const int8_t* weights,
          const int32_t* bias, int8_t* dst, int8_t* scratch);

} // namespace orvo_test
