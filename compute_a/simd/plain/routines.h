// SPDX-License-Identifier: MIT
//
// The plain path: every routine's definition, in loops that any compiler turns into correct and
// decent code. The other paths fall back on it where their way of working does not fit.
#pragma once

#include "compute_a/routines.h"

namespace orvo {
namespace plain {

void Multiply(const MatrixProduct& product);
bool ConvolvePlane(const PlaneConvolution& convolution);
void Depthwise(const DepthwisePlanes& planes);
int32_t Dot(const int8_t* a, const int8_t* b, size_t count);
void MaxPoolStride1(int8_t* src, const Planes& planes, int8_t* dst);
void MaxPoolStride2(const int8_t* src, const Planes& planes, int8_t* dst);
void Sample(const int8_t* src, const Planes& planes, int8_t* dst);
void Rectify(const int8_t* src, int8_t* dst, size_t count);
void FlipSign(uint8_t* data, size_t count);
void Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count, const AddShifts& shifts);

// One plane, two rows, a row: what is too narrow for another path's vectors.
void MaxPoolStride1(int8_t* src, size_t width, size_t height, int8_t* dst);
void MaxPoolRows(const int8_t* upper, const int8_t* lower, size_t dstWidth, int8_t* dst);
void SampleRow(const int8_t* src, size_t dstWidth, int8_t* dst);

} // namespace plain
} // namespace orvo
