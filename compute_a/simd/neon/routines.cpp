// SPDX-License-Identifier: MIT
//
// Millions of instructions a face, counted under emulation, plain and here:
//
//                         32-bit           64-bit
//     convolution       10.0   2.6        6.4   2.7
//     pointwise         48.5   9.5       32.4  10.7
//     depthwise         49.1   5.1       36.0   4.4
//     max pooling        2.53  0.49       2.41  0.40
//     addition           0.74  0.20       0.72  0.24
//     rectifier          0.22  0.20       0.26  0.17
//     sampling           0.43  0.21       0.41  0.19
//     in all           111.6  18.3       78.7  18.8
#include "compute_a/simd/neon/routines.h"

#include "compute_a/simd/plain/routines.h"

namespace orvo {

const Routines kNeonRoutines{
    .name = "neon",
    .multiply = neon::Multiply,
    .depthwise = neon::Depthwise,
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
