// SPDX-License-Identifier: MIT
//
// Milliseconds a face under node 20 on x86-64, where the compiler has vectorised the plain path for
// the same instructions (a profile of both in turn; whole faces by the fastest of 40):
//
//                       plain    here
//     pointwise          22.4     3.0
//     first layers        4.2     0.7
//     depthwise           8.7     3.1
//     fastest face       27.0     6.7
#include "compute_a/simd/wasm/routines.h"

#include "compute_a/simd/plain/routines.h"

namespace orvo {

const Routines kWasmSimdRoutines{
    .name = "wasm_simd",
    .multiply = wasm::Multiply,
    .depthwise = wasm::Depthwise,
    .dot = plain::Dot,
    .maxPoolStride1 = wasm::MaxPoolStride1,
    .maxPoolStride2 = wasm::MaxPoolStride2,
    .sample = wasm::Sample,
    .rectify = wasm::Rectify,
    .flipSign = plain::FlipSign,
    .add = wasm::Add,
    .convolvePlane = wasm::ConvolvePlane,
};

} // namespace orvo
