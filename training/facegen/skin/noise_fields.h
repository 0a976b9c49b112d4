// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "vec3.h"

namespace facegen {

// Smooth noise in space, about -1 to 1, with features of the size of one unit.
float ValueNoise(Vec3 at, std::uint32_t seed);

// One octave of noise at every texel of the skin, as -127 to 127.
using NoiseField = std::vector<std::int8_t>;

NoiseField MakeNoiseField(const std::vector<Vec3>& texelBase, float feature, std::uint32_t seed);

} // namespace facegen
