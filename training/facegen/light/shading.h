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
    float infraredGain = 1,
          infraredPower = 1; // reflectance in infrared: gain * reflectance^power
};

// What darkens the skin for one picture, in the atlas' coordinates and packing.
struct Layer {
    const std::uint32_t* words = nullptr;
    float density = 0;
};

struct Surroundings {
    Finish finishes[kMaterials];
    const std::uint32_t* atlas = nullptr;
    Layer layers[3];                       // over the skin
    float eyeTone = 1;                     // of the eyes' reflectance
    float stripes = 0, stripePitch = 0.1f; // of the clothes
};

// What the first lamp sees: a depth map along its direction, in the camera's frame.
struct Shadow {
    DepthMap map;
    Vec3 across, up, towards, middle;
    float perDm = 0;

    void Aim(Vec3 lamp, Vec3 at, float reach, int size);
    float XOf(Vec3 p) const {
        return static_cast<float>(map.width) / 2 + Dot(p - middle, across) * perDm;
    }
    float YOf(Vec3 p) const {
        return static_cast<float>(map.height) / 2 - Dot(p - middle, up) * perDm;
    }
    float DepthOf(Vec3 p) const { return -Dot(p - middle, towards); }
};

// Radiance at each sample; below 0 where nothing is.
void Shade(const Samples& samples, const Camera& camera, const Light& light, const Shadow* shadow,
           const Surroundings& surroundings, std::vector<float>& radiance);

} // namespace facegen
