// SPDX-License-Identifier: MIT
#include "compute_a/simd/amx/instructions.h"
#include "compute_a/tile_model/tile_walk_steps.h"

std::vector<uint8_t> orvo_test::WalkOverProcessor(uint64_t seed) { return Walk(seed); }
