// SPDX-License-Identifier: MIT
#include "proof/paths.h"

#include "compute_a/routines.h"

namespace {

const orvo::Routines* available[orvo::kMaxPaths];
const orvo::Routines* inUse = nullptr;

} // namespace

namespace orvo {

const Routines& ChosenRoutines() { return inUse == nullptr ? kPlainRoutines : *inUse; }

} // namespace orvo

namespace orvo_proof {

std::span<const char* const> Paths() {
    static const char* names[orvo::kMaxPaths];
    static const size_t count = orvo::AvailableRoutines(available);
    for (size_t i = 0; i < count; ++i) {
        names[i] = available[i]->name;
    }
    return {names, count};
}

void UsePath(size_t path) { inUse = available[path]; }

} // namespace orvo_proof
