// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "proof/family.h"

namespace orvo_proof {

// Each prints its families' lines and returns how many bytes differ.
uint64_t ProveConvolutions(const Plan& plan);
uint64_t ProveReductions(const Plan& plan);
uint64_t ProvePooling(const Plan& plan);
uint64_t ProveElementwise(const Plan& plan);

} // namespace orvo_proof
