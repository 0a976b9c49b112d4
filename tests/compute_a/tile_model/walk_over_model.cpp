// SPDX-License-Identifier: MIT
#include "compute_a/tile_model/tile_model.h"
#include "compute_a/tile_model/tile_walk_steps.h"

std::vector<uint8_t> orvo_test::WalkOverModel(uint64_t seed) { return Walk(seed); }
