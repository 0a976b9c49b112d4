// SPDX-License-Identifier: MIT
#include "compute_a/simd/plain/routines.h"

namespace orvo {

const Routines kPlainRoutines{
    .name = "plain",
    .multiply = plain::Multiply,
    .depthwise = plain::Depthwise,
    .dot = plain::Dot,
    .maxPoolStride1 = plain::MaxPoolStride1,
    .maxPoolStride2 = plain::MaxPoolStride2,
    .sample = plain::Sample,
    .rectify = plain::Rectify,
    .flipSign = plain::FlipSign,
    .add = plain::Add,
    .convolvePlane = plain::ConvolvePlane,
};

} // namespace orvo
