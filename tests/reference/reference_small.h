// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

// Plain definitions of everything in the library that is not a convolution with a packed weight
// order: one value after the other, the shortest code that says what the result is. They are what
// the kernels are measured against, so they share nothing with them.
namespace orvo_reference {

int8_t SaturateToQ7(int64_t value);

// ---- From a tensor to a vector. Only the low 8 bits of outShift count.
void GlobalConvolution(const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
                       const int8_t* weights, const int32_t* bias, uint16_t outShift, int8_t* dst);
void FullyConnected(const int8_t* src, const int8_t* weights, uint32_t inCount, uint32_t outCount,
                    uint16_t outShift, const int32_t* bias, int8_t* dst);

// ---- Pooling and sampling
void MaxPool2x2Stride2(const int8_t* src, int8_t* dst, uint32_t width, uint32_t height,
                       uint32_t channels, uint32_t pad);
void MaxPool2x2Stride1(const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
                       int8_t* dst);
// What the stride-1 pooling leaves in its source: the maximum of each value and its right
// neighbour; a row's last value stays.
void RightNeighbourMaxima(int8_t* data, uint32_t width, uint32_t rows);
void Downsample(const int8_t* src, uint32_t width, uint32_t height, uint32_t channels, int8_t* dst);
void GlobalAverage(const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
                   uint16_t shift, int8_t* dst);

// ---- Element-wise
void GreyToQ7(uint8_t* data, uint32_t count);
void Rectify(const int8_t* src, int8_t* dst, uint32_t count);
void ZeroPadPlus(const int8_t* in1, const int8_t* in2, int8_t* dst, uint32_t in1Shift,
                 uint32_t in2Shift, uint32_t outShift, uint32_t height, uint32_t width,
                 uint32_t outChannels, uint32_t in2Channels);
void UnitLength(const int8_t* src, int32_t count, float* dst);
void Rescale(int8_t* data, int32_t count, int32_t shift);
float InnerProduct(const float* a, const float* b, int32_t n);

// ---- Bilinear resize
// Weights of the top-left, top-right, bottom-left and bottom-right pixel for one of 32 x 32
// positions inside a pixel square, in 14-bit fixed point.
std::array<int16_t, 4> BilinearWeights(int verticalFraction, int horizontalFraction);
void ResizeBilinear(const uint8_t* src, uint8_t* dst, int32_t srcHeight, int32_t srcWidth,
                    int32_t srcStride, int32_t dstHeight, int32_t dstWidth);

} // namespace orvo_reference
