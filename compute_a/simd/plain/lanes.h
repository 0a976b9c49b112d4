// SPDX-License-Identifier: MIT
//
// What stands in the place of a vector here: a strip of sums that a loop over its values goes
// through.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "compute_a/requantise.h"

namespace orvo {
namespace {

constexpr size_t kStrip = 128; // pixels or columns whose sums are kept at a time

inline void Requantise(const uint32_t* sums, size_t count, int32_t bias, uint32_t shift,
                       int8_t lowest, int8_t* dst) {
    for (size_t i = 0; i < count; ++i) {
        dst[i] = std::max(RequantiseQ7(sums[i], bias, shift), lowest);
    }
}

} // namespace
} // namespace orvo
