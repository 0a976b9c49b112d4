// SPDX-License-Identifier: MIT
//
// 64-bit ARM with the dot-product instruction, which adds four products of signed bytes to each
// 32-bit lane, wrapping: exact as it is, whatever the bytes. The matrix product and the depthwise
// filters are made with it; the rest is compute_a/simd/neon/'s.
#pragma once

#include "compute_a/routines.h"

namespace orvo {
namespace neon_dot {

void Multiply(const MatrixProduct& product);
void Depthwise(const DepthwisePlanes& planes);

} // namespace neon_dot
} // namespace orvo
