// SPDX-License-Identifier: MIT
//
// The AVX-512 path's routines, of which the AMX path takes those that it has no better way for.
#pragma once

#include "compute_a/routines.h"

namespace orvo {
namespace avx512vnni {

void Multiply(const MatrixProduct& product);
void Depthwise(const DepthwisePlanes& planes);
int32_t Dot(const int8_t* a, const int8_t* b, size_t count);
void MaxPoolStride1(int8_t* src, size_t width, size_t height, int8_t* dst);
void MaxPoolRows(const int8_t* upper, const int8_t* lower, size_t dstWidth, int8_t* dst);
void SampleRow(const int8_t* src, size_t dstWidth, int8_t* dst);
void Rectify(const int8_t* src, int8_t* dst, size_t count);
void FlipSigns(uint8_t* data, size_t count);
void Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count, const AddShifts& shifts);

} // namespace avx512vnni
} // namespace orvo
