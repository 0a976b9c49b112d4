// SPDX-License-Identifier: MIT
//
// Millions of instructions a face, counted under emulation: plain, without dot product, here:
//
//     convolution    6.4   2.7   1.3
//     pointwise     32.4  10.7   4.7
//     depthwise     36.0   4.4   3.1
//     in all        78.7  18.8  10.1
#include "compute_a/simd/neon_dot/routines.h"

#include "compute_a/simd/neon/routines.h"
#include "compute_a/simd/plain/routines.h"

namespace orvo {

const Routines kNeonDotRoutines{
    .name = "neon_dot",
    .multiply = neon_dot::Multiply,
    .depthwise = neon_dot::Depthwise,
    .dot = plain::Dot,
    .maxPoolStride1 = neon::MaxPoolStride1,
    .maxPoolStride2 = neon::MaxPoolStride2,
    .sample = neon::Sample,
    .rectify = neon::Rectify,
    .flipSign = plain::FlipSign,
    .add = neon::Add,
    .convolvePlane = neon::ConvolvePlane,
};

} // namespace orvo
