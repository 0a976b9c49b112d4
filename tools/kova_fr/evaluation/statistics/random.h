// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <random>

namespace kova_statistics {

// The standard fixes this generator's numbers, but not those of its distributions; results must be
// the same everywhere.
using Random = std::mt19937_64;

// From 0 to below `count`, evenly but for one part in 2^32.
inline uint32_t DrawBelow(Random& random, uint32_t count) {
    return static_cast<uint32_t>((random() >> 32) * count >> 32);
}

} // namespace kova_statistics
