// SPDX-License-Identifier: MIT
//
// RISC-V's vectors (the extension V, version 1.0), whatever the length of the registers.
//
// There is no product of pairs; what there is instead is a product of a vector and a scalar, added to
// sums twice as wide. So one vector is a row of the input, weights stay scalars, and nothing has to be
// put side by side first. Products of bytes and words cannot overflow the sums, whatever they are.
#pragma once

#include "compute_a/routines.h"

namespace orvo {
namespace rvv {

void Multiply(const MatrixProduct& product);
int32_t Dot(const int8_t* a, const int8_t* b, size_t count);
bool ConvolvePlane(const PlaneConvolution& convolution);
void Depthwise(const DepthwisePlanes& planes);
void MaxPoolStride1(int8_t* src, const Planes& planes, int8_t* dst);
void MaxPoolStride2(const int8_t* src, const Planes& planes, int8_t* dst);
void Sample(const int8_t* src, const Planes& planes, int8_t* dst);
void Rectify(const int8_t* src, int8_t* dst, size_t count);
void FlipSign(uint8_t* data, size_t count);
void Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count, const AddShifts& shifts);

} // namespace rvv
} // namespace orvo
