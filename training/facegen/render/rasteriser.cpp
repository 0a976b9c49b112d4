// SPDX-License-Identifier: MIT
#include "render/rasteriser.h"

#include <algorithm>
#include <cmath>

#include "render/lanes.h"

namespace facegen {
namespace {

// Thresholds of the four samples of a pixel, so that part of a pixel can be covered.
constexpr float kThreshold[2][2] = {{0.125f, 0.625f}, {0.875f, 0.375f}};

// A value that is linear over the triangle: at(x, y) = value + x * perX + y * perY.
struct Plane {
    float value, perX, perY;
};

struct Setup {
    int left, right, top, bottom; // right and bottom are past the end
    Plane edge[3];                // positive inside
    Plane depth;
    std::array<Plane, 7> varying;
};

// Writes the edge functions; false where the triangle is empty or wholly outside.
bool SetUpEdges(Setup& setup, const DrawVertex& a, const DrawVertex& b, const DrawVertex& c,
                int width, int height, float area) {
    const float left = std::min({a.x, b.x, c.x}), right = std::max({a.x, b.x, c.x});
    const float top = std::min({a.y, b.y, c.y}), bottom = std::max({a.y, b.y, c.y});
    if (!(right >= 0 && bottom >= 0 && left < static_cast<float>(width) &&
          top < static_cast<float>(height))) {
        return false;
    }
    // The first sample centre at or after the low edge, and past the last one before the high edge.
    setup.left = static_cast<int>(std::max(left, 0.0f) + 0.5f);
    setup.top = static_cast<int>(std::max(top, 0.0f) + 0.5f);
    setup.right = std::min(static_cast<int>(std::min(right, 1e6f) + 0.5f), width);
    setup.bottom = std::min(static_cast<int>(std::min(bottom, 1e6f) + 0.5f), height);
    if (setup.left >= setup.right || setup.top >= setup.bottom) {
        return false; // between the samples
    }
    const float scale = 1.0f / area;
    const DrawVertex* corner[3] = {&a, &b, &c};
    for (int i = 0; i < 3; ++i) {
        const DrawVertex& p = *corner[(i + 1) % 3];
        const DrawVertex& q = *corner[(i + 2) % 3];
        Plane& edge = setup.edge[i];
        edge.perX = -(q.y - p.y) * scale;
        edge.perY = (q.x - p.x) * scale;
        edge.value = -(edge.perX * p.x + edge.perY * p.y);
    }
    return true;
}

// The plane through one value a corner: the edge functions are the barycentric coordinates.
Plane Through(const Setup& setup, float a, float b, float c) {
    const Plane* e = setup.edge;
    return {a * e[0].value + b * e[1].value + c * e[2].value,
            a * e[0].perX + b * e[1].perX + c * e[2].perX,
            a * e[0].perY + b * e[1].perY + c * e[2].perY};
}

const Lanes kSteps{0, 1, 2, 3, 4, 5, 6, 7};

inline Lanes AlongRow(const Plane& plane, float x, float y) {
    return ToLanes(plane.value + plane.perX * x + plane.perY * y) + kSteps * ToLanes(plane.perX);
}

// Clears the lanes where the surface has a hole.
IntLanes Covered(IntLanes pass, const Coverage& coverage, Lanes u, Lanes v, Lanes field, int x,
                 int y) {
    const Picture* alpha = coverage.alpha;
    for (int i = 0; i < 8; ++i) {
        if (pass[i] == 0) {
            continue;
        }
        float share = 0.5f;
        if (alpha != nullptr) {
            const int tx = std::clamp(static_cast<int>(u[i]) - coverage.left, 0, alpha->width - 1);
            const int ty = std::clamp(static_cast<int>(v[i]) - coverage.top, 0, alpha->height - 1);
            share = static_cast<float>(*alpha->At(tx, ty)) * (1.0f / 255.0f);
        }
        if (coverage.kind == Coverage::Kind::kTexture) {
            share *= coverage.strength;
        } else {
            share = (field[i] + coverage.fray * (share - 0.5f)) * coverage.strength;
        }
        if (share < kThreshold[y & 1][(x + i) & 1]) {
            pass[i] = 0;
        }
    }
    return pass;
}

template <typename Target>
constexpr bool has_planes = false;
template <>
constexpr bool has_planes<Samples> = true;

template <typename Target>
void Fill(Target& target, const Setup& setup, const DrawStyle& style) {
    const bool holed = style.coverage.kind != Coverage::Kind::kSolid;
    for (int y = setup.top; y < setup.bottom; ++y) {
        const float fy = static_cast<float>(y) + 0.5f;
        const std::size_t row =
            static_cast<std::size_t>(y) * static_cast<std::size_t>(target.stride);
        for (int x = setup.left; x < setup.right; x += 8) {
            const float fx = static_cast<float>(x) + 0.5f;
            const std::size_t at = row + static_cast<std::size_t>(x);
            const Lanes nearest = Load(&target.depth[at]);
            const Lanes depth = AlongRow(setup.depth, fx, fy);
            IntLanes pass = (AlongRow(setup.edge[0], fx, fy) >= ToLanes(0)) &
                            (AlongRow(setup.edge[1], fx, fy) >= ToLanes(0)) &
                            (AlongRow(setup.edge[2], fx, fy) >= ToLanes(0)) & (depth < nearest);
            if (!Any(pass)) {
                continue;
            }
            if (holed) {
                pass = Covered(pass, style.coverage, AlongRow(setup.varying[kAtU], fx, fy),
                               AlongRow(setup.varying[kAtV], fx, fy),
                               AlongRow(setup.varying[kAtField], fx, fy), x, y);
            }
            Store(&target.depth[at], pass ? depth : nearest);
            if constexpr (has_planes<Target>) {
                for (std::size_t k = 0; k < setup.varying.size(); ++k) {
                    float* plane = &target.plane[k][at];
                    Store(plane, pass ? AlongRow(setup.varying[k], fx, fy) : Load(plane));
                }
                std::int32_t* material = &target.material[at];
                Store(material, pass ? ToIntLanes(style.material) : Load(material));
            }
        }
    }
}

template <typename Target>
void DrawAll(Target& target, const std::vector<DrawVertex>& vertices, const Triangle* triangles,
             std::size_t count, const DrawStyle& style) {
    Setup setup;
    for (std::size_t t = 0; t < count; ++t) {
        const DrawVertex& a = vertices[triangles[t][0]];
        const DrawVertex& b = vertices[triangles[t][1]];
        const DrawVertex& c = vertices[triangles[t][2]];
        // Negative: seen from the front, since y grows downwards here.
        const float area = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
        const bool fromBehind = area > 0;
        if (std::fabs(area) < 1e-6f || (fromBehind && !style.twoSided) ||
            !SetUpEdges(setup, a, b, c, target.width, target.height, area)) {
            continue;
        }
        setup.depth = Through(setup, a.depth, b.depth, c.depth);
        const bool needsVarying =
            has_planes<Target> || style.coverage.kind != Coverage::Kind::kSolid;
        if (needsVarying) {
            for (std::size_t k = 0; k < setup.varying.size(); ++k) {
                setup.varying[k] = Through(setup, a.varying[k], b.varying[k], c.varying[k]);
            }
        }
        if (fromBehind) {
            for (const Varying k : {kAtNx, kAtNy, kAtNz}) {
                setup.varying[k] = {-setup.varying[k].value, -setup.varying[k].perX,
                                    -setup.varying[k].perY};
            }
        }
        Fill(target, setup, style);
    }
}

} // namespace

void Samples::Clear(int w, int h) {
    width = w;
    height = h;
    stride = w + 8;
    const std::size_t size = static_cast<std::size_t>(stride) * static_cast<std::size_t>(h);
    depth.assign(size, kFarAway);
    material.assign(size, -1);
    for (auto& p : plane) {
        p.resize(size); // what no surface covers is never looked at
    }
}

void DepthMap::Clear(int w, int h) {
    width = w;
    height = h;
    stride = w + 8;
    depth.assign(static_cast<std::size_t>(stride) * static_cast<std::size_t>(h), kFarAway);
}

void Draw(Samples& samples, const std::vector<DrawVertex>& vertices, const Triangle* triangles,
          std::size_t count, const DrawStyle& style) {
    DrawAll(samples, vertices, triangles, count, style);
}

void Draw(DepthMap& map, const std::vector<DrawVertex>& vertices, const Triangle* triangles,
          std::size_t count, const DrawStyle& style) {
    DrawAll(map, vertices, triangles, count, style);
}

} // namespace facegen
