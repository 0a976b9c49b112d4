// SPDX-License-Identifier: MIT
//
// The convolution of one plane with VNNI on vectors of 32 bytes; compute_a/simd/plane.h has the way.
#include "compute_a/simd/avx2/plane_lanes.h"
#include "compute_a/simd/avxvnni/instructions.h"
#include "compute_a/simd/avxvnni/routines.h"

namespace orvo {
namespace {

struct Lanes : PlaneLanes {
    static void AddPairs(Vector& sum, Vector values, Vector weights) {
        DotAccumulateWords(sum, values, weights);
    }
};

} // namespace

bool ORVO_VNNI_PATH::ConvolvePlane(const PlaneConvolution& p) {
    return ConvolvePlaneByPairs<Lanes>(p);
}

} // namespace orvo
