// SPDX-License-Identifier: MIT
//
// The convolution of one plane with AVX2; compute_a/simd/plane.h has the way.
#include "compute_a/simd/avx2/plane_lanes.h"
#include "compute_a/simd/avx2/routines.h"

namespace orvo {
namespace {

struct Lanes : PlaneLanes {
    static void AddPairs(Vector& sum, Vector values, Vector weights) {
        sum = _mm256_add_epi32(sum, _mm256_madd_epi16(values, weights));
    }
};

} // namespace

bool avx2::ConvolvePlane(const PlaneConvolution& p) { return ConvolvePlaneByPairs<Lanes>(p); }

} // namespace orvo
