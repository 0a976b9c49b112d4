// SPDX-License-Identifier: MIT
#include "head/occlusion_bake.h"

#include "render/rasteriser.h"

namespace facegen {
namespace {

// Spread evenly over the sphere by the golden angle.
std::vector<Vec3> Directions(int count) {
    std::vector<Vec3> all;
    for (int i = 0; i < count; ++i) {
        const float y = 1.0f - 2.0f * (static_cast<float>(i) + 0.5f) / static_cast<float>(count);
        const float r = std::sqrt(1.0f - y * y);
        const float angle = 2.39996323f * static_cast<float>(i);
        all.push_back({r * std::cos(angle), y, r * std::sin(angle)});
    }
    return all;
}

} // namespace

void BakeOcclusion(HeadModel& model) {
    constexpr int size = 320, views = 96;
    constexpr float perDm = size / 4.0f, bias = 0.03f;
    const Vec3 middle{0, 7.0f, 0.6f};

    std::vector<Vec3> normals(model.base.size());
    AddNormals(model.skin, model.base, normals);
    Normalise(normals);
    std::vector<float> seen(model.base.size()), possible(model.base.size());
    std::vector<DrawVertex> vertices(model.skin.point.size());
    DepthMap map;
    for (const Vec3& towards : Directions(views)) {
        const Vec3 up = std::fabs(towards.y) > 0.9f ? Vec3{0, 0, 1} : Vec3{0, 1, 0};
        const Vec3 across = Normalised(Cross(up, towards));
        const Vec3 upwards = Cross(towards, across);
        const auto project = [&](Vec3 p) {
            const Vec3 q = p - middle;
            return Vec3{Dot(q, across) * perDm + size / 2.0f, size / 2.0f - Dot(q, upwards) * perDm,
                        -Dot(q, towards)};
        };
        for (std::size_t i = 0; i < vertices.size(); ++i) {
            const Vec3 p = project(model.base[model.skin.point[i]]);
            vertices[i].x = p.x, vertices[i].y = p.y, vertices[i].depth = p.z;
        }
        map.Clear(size, size);
        DrawStyle style;
        style.twoSided = true;
        Draw(map, vertices, model.skin.triangles.data(), model.closeTriangles, style);
        for (std::size_t i = 0; i < model.base.size(); ++i) {
            const float facing = Dot(normals[i], towards);
            const bool onSkin = Length(normals[i]) > 0.5f;
            const float weight = onSkin ? std::max(facing, 0.0f) : 1.0f;
            if (weight == 0) {
                continue;
            }
            const Vec3 p = project(model.base[i]);
            const int x = static_cast<int>(p.x), y = static_cast<int>(p.y);
            possible[i] += weight;
            const bool outside = x < 0 || y < 0 || x >= size || y >= size;
            if (outside || map.depth[static_cast<std::size_t>(y) * map.stride + x] > p.z - bias) {
                seen[i] += weight;
            }
        }
    }
    model.occlusion.resize(model.base.size());
    model.inner.resize(model.base.size());
    for (std::size_t i = 0; i < model.base.size(); ++i) {
        const float share = possible[i] > 0 ? seen[i] / possible[i] : 1.0f;
        model.occlusion[i] = share;
        model.inner[i] = share < 0.05f;
    }
}

} // namespace facegen
