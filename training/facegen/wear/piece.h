// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "head/surface.h"
#include "render/rasteriser.h"
#include "vec3.h"

namespace facegen {

enum Material : std::int32_t {
    skin_material,
    eye_material,
    teeth_material,
    tongue_material,
    hair_material,
    beard_material,
    lash_material,
    frame_material, // of glasses
    lens_material,
    fabric_material, // caps
    mask_material,
    cloth_material,
    materials
};

// Something that sits on the head, in the person's own frame (middle of the eyes at the origin).
struct Piece {
    std::vector<Vec3> points;
    std::vector<std::uint32_t> follows; // by point: the skin point whose moves it shares; or empty
    std::vector<float> field;           // by point, for Coverage::Kind::field; or empty
    std::vector<float> occlusion;       // by point; or empty
    Surface surface;
    DrawStyle style;

    bool empty() const { return surface.triangles.empty(); }
};

} // namespace facegen
