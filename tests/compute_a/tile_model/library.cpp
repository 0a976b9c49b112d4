// SPDX-License-Identifier: MIT
//
// What the kernels over the model find in place of the rest of the library: a single path, the AMX
// one, and the plain routines where it would take those of AVX-512.
#include "compute_a/tile_model/library.h"

#include "compute_a/routines.h"
#include "compute_a/simd/avx512vnni/routines.h"
#include "orvo/orvo_fr.h"

namespace orvo {

namespace {
size_t products = 0;
}

const Routines& ChosenRoutines() { return kAmxRoutines; }

namespace avx512vnni {

void Multiply(const MatrixProduct& product) {
    ++products;
    kPlainRoutines.multiply(product);
}
// Else products of 36 pixels would not be the tiles'.
bool MultiplyOf36(const MatrixProduct&) { return false; }
// The model is of the tiles, which are for more than one plane, or for bytes.
bool ConvolvePlane(const PlaneConvolution&) { return false; }
void Depthwise(const DepthwisePlanes& planes) { kPlainRoutines.depthwise(planes); }
int32_t Dot(const int8_t* a, const int8_t* b, size_t count) {
    return kPlainRoutines.dot(a, b, count);
}
void MaxPoolStride1(int8_t* src, const Planes& planes, int8_t* dst) {
    kPlainRoutines.maxPoolStride1(src, planes, dst);
}
void MaxPoolStride2(const int8_t* src, const Planes& planes, int8_t* dst) {
    kPlainRoutines.maxPoolStride2(src, planes, dst);
}
void Sample(const int8_t* src, const Planes& planes, int8_t* dst) {
    kPlainRoutines.sample(src, planes, dst);
}
void Rectify(const int8_t* src, int8_t* dst, size_t count) {
    kPlainRoutines.rectify(src, dst, count);
}
void FlipSigns(uint8_t* data, size_t count) { kPlainRoutines.flipSign(data, count); }
void Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count, const AddShifts& shifts) {
    kPlainRoutines.add(in1, in2, dst, count, shifts);
}

} // namespace avx512vnni
} // namespace orvo

size_t orvo_test::ProductsWithoutTiles() { return orvo::products; }

const char* OrvoFrGetInstructionSet(void) { return "amx_model"; }
