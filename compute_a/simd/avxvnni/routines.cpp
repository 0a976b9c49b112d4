// SPDX-License-Identifier: MIT
#include "compute_a/simd/avxvnni/routines.h"

#include "compute_a/simd/avx2/routines.h"
#include "compute_a/simd/plain/routines.h"

namespace orvo {

const Routines kAvxVnniRoutines{
    .name = "avxvnni",
    .multiply = avxvnni::Multiply,
    .depthwise = avxvnni::Depthwise,
    .dot = avxvnni::Dot,
    .maxPoolStride1 = avx2::MaxPoolStride1,
    .maxPoolStride2 = avx2::MaxPoolStride2,
    .sample = avx2::Sample,
    .rectify = avx2::Rectify,
    .flipSign = plain::FlipSign,
    .add = avx2::Add,
    .convolvePlane = avxvnni::ConvolvePlane,
};

} // namespace orvo
