// SPDX-License-Identifier: MIT
#pragma once

#include "random.h"
#include "vec3.h"

namespace facegen {

enum class LightKind { soft, side, hard, dark, infrared };

struct Lamp {
    Vec3 towards{0, 0, 1}; // in the camera's frame
    float strength = 0;
    float softness = 0.02F; // radius of the shadow's edge, decimetres
};

// A light field: what comes from all around (constant, linear and part of the quadratic spherical
// harmonics) and two lamps, of which the first casts shadows.
struct Light {
    LightKind kind = LightKind::soft;
    float ambient = 0.5F;
    Vec3 gradient;
    float sky = 0;    // more from above and below, less from the sides
    float across = 0; // more from both sides than from the front
    Lamp lamps[2];
    float mean_level = 0.25F; // of the face in the picture, linear, before clipping
    float gamma = 2.2F;
    float shoulder = 0; // 0: highlights are cut off, 1: they bend over
};

Light draw_light(Random& random);

} // namespace facegen
