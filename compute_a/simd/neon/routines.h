// SPDX-License-Identifier: MIT
//
// NEON, for 32-bit ARM and for 64-bit ARM without the dot-product instruction, whose own path takes
// from here what it has no better way for. The matrix product is written for each of the two.
//
// The dot product and the flipping of signs are not here: what compilers make of the plain ones is
// as good.
#pragma once

#include "compute_a/routines.h"

namespace orvo {
namespace neon {

void Multiply(const MatrixProduct& product);
void Depthwise(const DepthwisePlanes& planes);
void MaxPoolStride1(int8_t* src, const Planes& planes, int8_t* dst);
void MaxPoolStride2(const int8_t* src, const Planes& planes, int8_t* dst);
void Sample(const int8_t* src, const Planes& planes, int8_t* dst);
void Rectify(const int8_t* src, int8_t* dst, size_t count);
void Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count, const AddShifts& shifts);
bool ConvolvePlane(const PlaneConvolution& convolution);

} // namespace neon
} // namespace orvo
