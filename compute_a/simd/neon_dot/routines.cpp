// SPDX-License-Identifier: MIT
//
// Millions of instructions a face, counted under emulation: plain, without dot product, here:
//
//     convolution    5.7   0.9   0.9
//     pointwise     32.4   8.8   4.1
//     depthwise     35.9   3.8   2.8
//     in all        77.8  14.5   8.8
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
