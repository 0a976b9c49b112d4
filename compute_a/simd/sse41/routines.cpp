// SPDX-License-Identifier: MIT
#include "compute_a/simd/sse41/routines.h"

#include "compute_a/simd/plain/routines.h"

namespace orvo {

const Routines kSse41Routines{
    .name = "sse41",
    .multiply = sse41::Multiply,
    .depthwise = sse41::Depthwise,
    .dot = sse41::Dot,
    .maxPoolStride1 = sse41::MaxPoolStride1,
    .maxPoolStride2 = sse41::MaxPoolStride2,
    .sample = sse41::Sample,
    .rectify = sse41::Rectify,
    .flipSign = plain::FlipSign,
    .add = sse41::Add,
    .convolvePlane = sse41::ConvolvePlane,
};

} // namespace orvo
