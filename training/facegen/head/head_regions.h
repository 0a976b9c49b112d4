// SPDX-License-Identifier: MIT
#pragma once

#include <array>

#include "vec3.h"

namespace facegen {

// Regions of the head as smooth fields over the base mesh, in its own coordinates (decimetres, +x
// the person's left, +y up, +z forward). Points and texels carry base coordinates, so that a region
// stays where it belongs, whatever the person's shape.

// Angle about the upright axis through the ears: 0 straight ahead, pi at the back, both sides
// alike.
float Azimuth(Vec3 base);

// How a hairline differs from the common one; lengths in decimetres.
struct Hairline {
    float raise = 0;    // the whole front
    float recede = 0;   // the temples
    float peak = 0;     // a point in the middle
    float sideburn = 0; // lengthens downwards
    float wave = 0, wavePhase = 0;
};

// Height of `base` above the hairline: positive where hair grows.
float AboveHairline(Vec3 base, const Hairline& hairline);
// The same where the azimuth is known.
float AboveHairline(Vec3 base, float at, const Hairline& hairline);

// Positive inside the full beard's region, about its depth in decimetres; lips are left out.
float InsideBeard(Vec3 base);
// 0 to 1: where moustache, chin beard (goatee) and cheeks and jaw are.
float Moustache(Vec3 base);
float Goatee(Vec3 base);

// 0 to 1 on the lips; inside the mouth as well.
float Lips(Vec3 base);

// Positive on bare skin, negative under clothes; grows by about one a decimetre.
struct Collar {
    float lift = 0;  // the whole neckline up (a roll neck) or down
    float notch = 0; // depth of a V in front
};
float AboveCollar(Vec3 base, const Collar& collar);

// 0 at the shoulders, 1 on the head: how far a point follows the head's turn.
float FollowsHead(Vec3 base);

// Positive inside what a surgical mask covers.
float InsideFaceMask(Vec3 base);

// Positive above the rim of a cap that sits `lift` higher than usual.
float AboveCapRim(Vec3 base, float lift);

} // namespace facegen
