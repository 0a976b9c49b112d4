// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "head/surface.h"
#include "picture.h"

namespace facegen {

// A vertex in sample coordinates; depth grows away from the viewer.
struct DrawVertex {
    float x, y, depth;
    // What varies over a triangle, in the order of Samples::plane.
    std::array<float, 7> varying;
};

enum Varying { kAtU, kAtV, kAtNx, kAtNy, kAtNz, kAtOcclusion, kAtField };

// What the nearest surface is like at each sample. Rows are padded, so that blocks of eight samples
// may be written at the end of a row.
struct Samples {
    int width = 0, height = 0, stride = 0;
    std::vector<float> depth;
    std::array<std::vector<float>, 7> plane;
    std::vector<std::int32_t> material; // -1: nothing

    void Clear(int w, int h);
};

struct DepthMap {
    int width = 0, height = 0, stride = 0;
    std::vector<float> depth;

    void Clear(int w, int h);
};

constexpr float kFarAway = 1e9f;

// Which parts of a surface are really there.
struct Coverage {
    enum class Kind { kSolid, kTexture, kField } kind = Kind::kSolid;
    // One channel, at this place in the atlas; a field may do without.
    const Picture* alpha = nullptr;
    int left = 0, top = 0;
    float strength = 1; // of the texture's alpha; how sharp a field's edge is
    float fray = 0;     // how far the texture moves a field's edge
};

struct DrawStyle {
    std::int32_t material = 0;
    bool twoSided = false;
    Coverage coverage;
};

void Draw(Samples& samples, const std::vector<DrawVertex>& vertices, const Triangle* triangles,
          std::size_t count, const DrawStyle& style);
void Draw(DepthMap& map, const std::vector<DrawVertex>& vertices, const Triangle* triangles,
          std::size_t count, const DrawStyle& style);

} // namespace facegen
