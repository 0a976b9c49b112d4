// SPDX-License-Identifier: MIT
#pragma once

#include <array>

#include "random.h"
#include "vec3.h"

namespace facegen {

enum class LightKind { kSoft, kSide, kHard, kDark, kInfrared };

struct Lamp {
    Vec3 towards{0, 0, 1}; // in the camera's frame
    float strength = 0;
    float softness = 0.02f; // radius of the shadow's edge, decimetres
};

// A light field: what comes from all around (constant, linear and part of the quadratic spherical
// harmonics) and two lamps, of which the first casts shadows.
struct Light {
    LightKind kind = LightKind::kSoft;
    float ambient = 0.5f;
    Vec3 gradient;
    float sky = 0;    // more from above and below, less from the sides
    float across = 0; // more from both sides than from the front
    // In place of these: the whole field to the second order (1, x, y, z, xy, yz, xz, 3z^2-1, x^2-y^2).
    bool hasField = false;
    std::array<float, 9> field{};
    Lamp lamps[2];
    float meanLevel = 0.25f; // of the face in the picture, linear, before clipping
    float gamma = 2.2f;
    float shoulder = 0; // 0: highlights are cut off, 1: they bend over
};

Light DrawLight(Random& random);

} // namespace facegen
