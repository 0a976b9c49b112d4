// SPDX-License-Identifier: MIT
//
// One walk over the tile instructions, compiled over the model and over the processor's own; see
// tile_walk_steps.h.
#pragma once

#include <cstdint>
#include <vector>

namespace orvo_test {

// The shapes of the tile registers, as ldtilecfg reads them.
struct alignas(64) WalkShapes {
    uint8_t bytes[64] = {1};

    void Set(int tile, int rows, int rowBytes) {
        bytes[16 + 2 * tile] = static_cast<uint8_t>(rowBytes);
        bytes[48 + tile] = static_cast<uint8_t>(rows);
    }
};

// By seed, every byte that the walk stored and what was between them.
std::vector<uint8_t> WalkOverModel(uint64_t seed);
std::vector<uint8_t> WalkOverProcessor(uint64_t seed);

} // namespace orvo_test
