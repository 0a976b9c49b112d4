// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "orvo/orvo_fr.h"

namespace orvo_bench {

// What the networks run on when they run alone: soft gradients, three equal ones for the recognition,
// as the library makes its input from a crop. The networks turn them into their own kind of input
// where they lie, so that no two runs see the same ones.
template <size_t Planes, size_t Side>
uint8_t* Gradients() {
    static auto input = [] {
        constexpr size_t kPlane = Side * Side;
        std::array<uint8_t, Planes * kPlane> levels{};
        for (size_t i = 0; i < levels.size(); ++i) {
            levels[i] = static_cast<uint8_t>((i % kPlane / Side + i % kPlane) / 2);
        }
        return levels;
    }();
    return input.data();
}

inline uint8_t* AlignInput() { return Gradients<1, 24>(); }
inline uint8_t* RecognitionInput() { return Gradients<3, ORVO_FR_CROP_SIZE>(); }

} // namespace orvo_bench
