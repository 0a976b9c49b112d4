// SPDX-License-Identifier: MIT
//
// The AVX-512 path's routines, of which the AMX path takes those that it has no better way for.
#pragma once

#include "compute_a/routines.h"

namespace orvo {
namespace avx512vnni {

void Multiply(const MatrixProduct& product);
// Of Multiply(): false, having done nothing, where there are not 36 pixels.
bool MultiplyOf36(const MatrixProduct& product);
bool ConvolvePlane(const PlaneConvolution& convolution);
void Depthwise(const DepthwisePlanes& planes);
int32_t Dot(const int8_t* a, const int8_t* b, size_t count);
void MaxPoolStride1(int8_t* src, const Planes& planes, int8_t* dst);
void MaxPoolStride2(const int8_t* src, const Planes& planes, int8_t* dst);
void Sample(const int8_t* src, const Planes& planes, int8_t* dst);
void Rectify(const int8_t* src, int8_t* dst, size_t count);
void FlipSigns(uint8_t* data, size_t count);
void Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count, const AddShifts& shifts);

} // namespace avx512vnni
} // namespace orvo
