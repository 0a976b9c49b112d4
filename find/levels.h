// SPDX-License-Identifier: MIT
//
// The sizes at which a picture is looked at. Level k is the picture halved k times; a last odd row
// or column is dropped. Places need no shift between levels: a point of level k is 2^k times itself
// in the picture.
#pragma once

#include <algorithm>
#include <cstdint>

#include "find/settings.h"
#include "orvo/orvo_find.h"

namespace orvo::find {

struct Size {
    int32_t width, height;

    int32_t smaller() const { return std::min(width, height); }
    int32_t larger() const { return std::max(width, height); }
};

inline Size AtLevel(Size picture, int32_t level) {
    return {picture.width >> level, picture.height >> level};
}

// The network's planes have sides of whole strides: what is added at the right and bottom is grey.
inline constexpr int32_t kSideUnit = 16;
inline int32_t RoundUpSide(int32_t side) { return (side + kSideUnit - 1) / kSideUnit * kSideUnit; }
inline Size Padded(Size real) { return {RoundUpSide(real.width), RoundUpSide(real.height)}; }

// The first level: there the smallest face still has enough pixels, and so has the picture.
inline int32_t FirstLevel(Size picture, int32_t smallest) {
    int32_t level = 0;
    while (smallest / 2 >= kLeastFace << level) {
        ++level;
    }
    while (level > 0 && picture.smaller() >> level < ORVO_FIND_LEAST_SIDE) {
        --level;
    }
    return level;
}

// Calls look(level, size) for every level that the network looks at: from the first on every second
// one, as faces of four times the size look the same there, until the picture is small.
template <typename Look>
void ForEachLevel(Size picture, int32_t first, Look look) {
    constexpr int32_t kLeastSide = 8;
    for (int32_t level = first;; level += 2) {
        const Size size = AtLevel(picture, level);
        if (size.smaller() < kLeastSide) {
            return;
        }
        look(level, size);
        if (size.larger() <= kLastLevelSide) {
            return;
        }
    }
}

} // namespace orvo::find
