// SPDX-License-Identifier: MIT
#include "compute_a/simd/amx/routines.h"

#include "compute_a/simd/avx512vnni/routines.h"

namespace orvo {

const Routines kAmxRoutines{
    .name = "amx",
    .multiply = amx::Multiply,
    .depthwise = avx512vnni::Depthwise,
    .dot = avx512vnni::Dot,
    .maxPoolStride1 = avx512vnni::MaxPoolStride1,
    .maxPoolStride2 = avx512vnni::MaxPoolStride2,
    .sample = avx512vnni::Sample,
    .rectify = avx512vnni::Rectify,
    .flipSign = avx512vnni::FlipSigns,
    .add = avx512vnni::Add,
    .convolve3x3 = amx::Convolve3x3,
    .convolvePlane = avx512vnni::ConvolvePlane,
};

} // namespace orvo
