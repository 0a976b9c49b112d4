// SPDX-License-Identifier: MIT
//
// What the four networks ask of each kernel, each thing once.
#pragma once

#include <cstdint>
#include <vector>

#include "compute_a/chw_subject.h"

namespace orvo_proof {

struct NetworkConvolution {
    const orvo_test::ChwSubject* subject;
    orvo_test::ConvShape shape;
};
// Of the alignment and the recognition network.
std::vector<NetworkConvolution> RecogniserConvolutions();
// Of the finder's two, on a small picture and on what the second looks at.
std::vector<NetworkConvolution> FinderConvolutions();

struct Vectors { // of a layer that ends planes
    bool global;
    uint32_t inputs, outputs, shift;
};
std::vector<Vectors> NetworkVectors();

struct PlaneSize {
    uint32_t width, height, channels;
};
enum class PoolingKind { kMaximumStride1, kMaximumStride2, kSample };
struct NetworkPooling {
    PoolingKind kind;
    PlaneSize size;
};
std::vector<NetworkPooling> NetworkPoolings();

struct Shifts {
    uint16_t in1, in2, out;
};
std::vector<Shifts> NetworkShifts(); // of the additions

} // namespace orvo_proof
