// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "orvo/orvo_fr.h"

namespace orvo_bench {

// What the networks run on when they run alone: a soft gradient of the size of the larger input.
// They turn it into their own kind of input where it lies, so that no two runs see the same one.
inline uint8_t* NetworkInput() {
    static auto input = [] {
        std::array<uint8_t, size_t{3} * ORVO_FR_CROP_SIZE * ORVO_FR_CROP_SIZE> levels{};
        for (size_t i = 0; i < levels.size(); ++i) {
            levels[i] = static_cast<uint8_t>((i / ORVO_FR_CROP_SIZE + i) / 2);
        }
        return levels;
    }();
    return input.data();
}

} // namespace orvo_bench
