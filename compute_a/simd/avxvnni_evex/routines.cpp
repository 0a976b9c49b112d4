// SPDX-License-Identifier: MIT
#include "compute_a/simd/avxvnni/routines.h"

#include "compute_a/simd/avx2/routines.h"
#include "compute_a/simd/plain/routines.h"

namespace orvo {

const Routines kAvxVnniEvexRoutines{
    .name = "avxvnni_evex",
    .multiply = avxvnni_evex::Multiply,
    .depthwise = avxvnni_evex::Depthwise,
    .dot = avxvnni_evex::Dot,
    .maxPoolStride1 = avx2::MaxPoolStride1,
    .maxPoolStride2 = avx2::MaxPoolStride2,
    .sample = avx2::Sample,
    .rectify = avx2::Rectify,
    .flipSign = plain::FlipSign,
    .add = avx2::Add,
    .convolvePlane = avxvnni_evex::ConvolvePlane,
};

} // namespace orvo
