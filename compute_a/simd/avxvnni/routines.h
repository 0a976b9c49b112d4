// SPDX-License-Identifier: MIT
//
// x86-64 with VNNI on vectors of 32 bytes, in either encoding; see instructions.h. What has no products is
// taken from the AVX2 path.
#pragma once

#include "compute_a/routines.h"

namespace orvo {

#define ORVO_VNNI_ROUTINES                                   \
    void Multiply(const MatrixProduct& product);             \
    bool ConvolvePlane(const PlaneConvolution& convolution); \
    void Depthwise(const DepthwisePlanes& planes);           \
    int32_t Dot(const int8_t* a, const int8_t* b, size_t count);

namespace avxvnni {
ORVO_VNNI_ROUTINES
}
namespace avxvnni_evex {
ORVO_VNNI_ROUTINES
}
#undef ORVO_VNNI_ROUTINES

} // namespace orvo
