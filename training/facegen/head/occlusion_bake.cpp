// SPDX-License-Identifier: MIT
#include "head/occlusion_bake.h"

#include "render/rasteriser.h"

namespace facegen {
namespace {

// Spread evenly over the sphere by the golden angle.
std::vector<Vec3> directions(int count) {
    std::vector<Vec3> all;
    for (int i = 0; i < count; ++i) {
        const float y = 1.0F - 2.0F * (static_cast<float>(i) + 0.5F) / static_cast<float>(count);
        const float r = std::sqrt(1.0F - y * y);
        const float angle = 2.39996323F * static_cast<float>(i);
        all.push_back({r * std::cos(angle), y, r * std::sin(angle)});
    }
    return all;
}

} // namespace

void bake_occlusion(HeadModel& model) {
    constexpr int size = 320, views = 96;
    constexpr float per_dm = size / 4.0F, bias = 0.03F;
    const Vec3 middle{0, 7.0F, 0.6F};

    std::vector<Vec3> normals(model.base.size());
    add_normals(model.skin, model.base, normals);
    normalise(normals);
    std::vector<float> seen(model.base.size()), possible(model.base.size());
    std::vector<DrawVertex> vertices(model.skin.point.size());
    DepthMap map;
    for (const Vec3& towards : directions(views)) {
        const Vec3 up = std::fabs(towards.y) > 0.9F ? Vec3{0, 0, 1} : Vec3{0, 1, 0};
        const Vec3 across = normalised(cross(up, towards));
        const Vec3 upwards = cross(towards, across);
        const auto project = [&](Vec3 p) {
            const Vec3 q = p - middle;
            return Vec3{dot(q, across) * per_dm + size / 2.0F,
                        size / 2.0F - dot(q, upwards) * per_dm, -dot(q, towards)};
        };
        for (std::size_t i = 0; i < vertices.size(); ++i) {
            const Vec3 p = project(model.base[model.skin.point[i]]);
            vertices[i].x = p.x, vertices[i].y = p.y, vertices[i].depth = p.z;
        }
        map.clear(size, size);
        DrawStyle style;
        style.two_sided = true;
        draw(map, vertices, model.skin.triangles.data(), model.close_triangles, style);
        for (std::size_t i = 0; i < model.base.size(); ++i) {
            const float facing = dot(normals[i], towards);
            const bool on_skin = length(normals[i]) > 0.5F;
            const float weight = on_skin ? std::max(facing, 0.0F) : 1.0F;
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
        const float share = possible[i] > 0 ? seen[i] / possible[i] : 1.0F;
        model.occlusion[i] = share;
        model.inner[i] = share < 0.05F;
    }
}

} // namespace facegen
