// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "light/light.h"
#include "render/camera.h"
#include "render/rasteriser.h"
#include "wear/piece.h"

namespace facegen {

struct Finish {
    float reflectance = -1; // below 0: the atlas says it
    float specular = 0;     // at right angles
    float gloss = 16;       // the larger, the smaller the highlight
    float wrap = 0;         // light that creeps round the edge of the shadow
    float rim = 0;          // more shine at grazing angles
    float infrared_gain = 1,
          infrared_power = 1; // reflectance in infrared: gain * reflectance^power
};

struct Surroundings {
    Finish finishes[materials];
    const std::uint32_t* atlas = nullptr;
    const std::uint32_t* stubble = nullptr;
    float stubble_density = 0;
    float stripes = 0, stripe_pitch = 0.1F; // of the clothes
};

// What the first lamp sees: a depth map along its direction, in the camera's frame.
struct Shadow {
    DepthMap map;
    Vec3 across, up, towards, middle;
    float per_dm = 0;

    void aim(Vec3 lamp, Vec3 at, float reach, int size);
    float x_of(Vec3 p) const {
        return static_cast<float>(map.width) / 2 + dot(p - middle, across) * per_dm;
    }
    float y_of(Vec3 p) const {
        return static_cast<float>(map.height) / 2 - dot(p - middle, up) * per_dm;
    }
    float depth_of(Vec3 p) const { return -dot(p - middle, towards); }
};

// Radiance at each sample; below 0 where nothing is.
void shade(const Samples& samples, const Camera& camera, const Light& light, const Shadow* shadow,
           const Surroundings& surroundings, std::vector<float>& radiance);

} // namespace facegen
