// SPDX-License-Identifier: MIT
//
// WebAssembly's 128-bit vectors.
//
// i32x4.dot_i16x8_s multiplies pairs of words and adds each two products. Values and weights are
// widened to words on their way into a buffer, side by side as the pairs want them; products of
// bytes cannot overflow there, whatever the weights are, so there is one way of working for all.
//
// The other routines are the plain ones, which compilers vectorise for the same instructions.
#pragma once

#include "compute_a/routines.h"

namespace orvo {
namespace wasm {

void Multiply(const MatrixProduct& product);
void Depthwise(const DepthwisePlanes& planes);

} // namespace wasm
} // namespace orvo
