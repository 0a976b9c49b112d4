// SPDX-License-Identifier: MIT
//
// WebAssembly's 128-bit vectors.
//
// i32x4.dot_i16x8_s multiplies pairs of words and adds each two products. In matrix products values and
// weights are widened to words on their way into a buffer, side by side as the pairs want them; products
// of bytes cannot overflow there, whatever the weights are. Depthwise sums have 16 bits where a filter
// is small enough for them.
//
// Relaxed SIMD has a product of bytes, but what it gives for a second factor of more than 7 bits depends
// on the processor, and some browsers do not have it at all.
//
// What is left to the plain routines, compilers vectorise for the same instructions.
#pragma once

#include "compute_a/routines.h"

namespace orvo {
namespace wasm {

void Multiply(const MatrixProduct& product);
bool ConvolvePlane(const PlaneConvolution& convolution);
void Depthwise(const DepthwisePlanes& planes);
void MaxPoolStride1(int8_t* src, const Planes& planes, int8_t* dst);
void MaxPoolStride2(const int8_t* src, const Planes& planes, int8_t* dst);
void Sample(const int8_t* src, const Planes& planes, int8_t* dst);
void Rectify(const int8_t* src, int8_t* dst, size_t count);
void Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count, const AddShifts& shifts);

} // namespace wasm
} // namespace orvo
