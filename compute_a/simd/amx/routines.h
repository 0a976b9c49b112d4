// SPDX-License-Identifier: MIT
//
// x86-64 with AMX: tiles of 16 rows of 64 bytes and their product, beside AVX-512. Depthwise layers
// stay with the vectors: their tiles would be stored as often for a tenth of the work.
//
// The operating system gives a process the tiles when it asks for them; see compute_a/routines.cpp.
#pragma once

#include "compute_a/routines.h"

namespace orvo {
namespace amx {

void Multiply(const MatrixProduct& product);
bool Convolve3x3(const Convolution3x3& convolution);

} // namespace amx
} // namespace orvo
