// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "head/surface.h"
#include "render/rasteriser.h"
#include "vec3.h"

namespace facegen {

enum Material : std::int32_t {
    kSkinMaterial,
    kEyeMaterial,
    kTeethMaterial,
    kTongueMaterial,
    kHairMaterial,
    kBeardMaterial,
    kLashMaterial,
    kFrameMaterial, // of glasses
    kLensMaterial,
    kFabricMaterial, // caps
    kMaskMaterial,
    kClothMaterial,
    kMaterials
};

// Something that sits on the head, in the person's own frame (middle of the eyes at the origin).
struct Piece {
    std::vector<Vec3> points;
    std::vector<std::uint32_t> follows; // by point: the skin point whose moves it shares; or empty
    std::vector<float> field;           // by point, for Coverage::Kind::field; or empty
    std::vector<float> occlusion;       // by point; or empty
    Surface surface;
    DrawStyle style;

    bool Empty() const { return surface.triangles.empty(); }
};

} // namespace facegen
