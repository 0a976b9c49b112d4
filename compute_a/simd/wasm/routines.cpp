// SPDX-License-Identifier: MIT
//
// docs/SPEED.md says what these make of a face; `./run bench --wasm` measures it.
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
