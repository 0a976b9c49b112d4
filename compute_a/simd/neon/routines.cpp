// SPDX-License-Identifier: MIT
//
// Millions of instructions a face, counted under emulation, plain and here:
//
//                         32-bit           64-bit
//     convolution        9.1   1.0        5.7   0.9
//     pointwise         48.5   9.5       32.4   8.8
//     depthwise         49.1   4.0       35.9   3.8
//     max pooling        2.54  0.49       2.41  0.40
//     addition           0.74  0.20       0.71  0.24
//     rectifier          0.22  0.20       0.26  0.17
//     sampling           0.43  0.21       0.41  0.19
//     in all           110.7  15.6       77.8  14.5
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
