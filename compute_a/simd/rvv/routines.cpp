// SPDX-License-Identifier: MIT
#include "compute_a/simd/rvv/routines.h"

namespace orvo {

const Routines kRvvRoutines{
    .name = "rvv",
    .multiply = rvv::Multiply,
    .depthwise = rvv::Depthwise,
    .dot = rvv::Dot,
    .maxPoolStride1 = rvv::MaxPoolStride1,
    .maxPoolStride2 = rvv::MaxPoolStride2,
    .sample = rvv::Sample,
    .rectify = rvv::Rectify,
    .flipSign = rvv::FlipSign,
    .add = rvv::Add,
    .convolvePlane = rvv::ConvolvePlane,
};

} // namespace orvo
