// SPDX-License-Identifier: MIT
#include "render/rasteriser.h"

#include <algorithm>
#include <cmath>

#include "render/lanes.h"

namespace facegen {
namespace {

// Thresholds of the four samples of a pixel, so that part of a pixel can be covered.
constexpr float threshold[2][2] = {{0.125F, 0.625F}, {0.875F, 0.375F}};

// A value that is linear over the triangle: at(x, y) = value + x * per_x + y * per_y.
struct Plane {
    float value, per_x, per_y;
};

struct Setup {
    int left, right, top, bottom; // right and bottom are past the end
    Plane edge[3];                // positive inside
    Plane depth;
    std::array<Plane, 7> varying;
};

// Writes the edge functions; false where the triangle is empty or wholly outside.
bool set_up_edges(Setup& setup, const DrawVertex& a, const DrawVertex& b, const DrawVertex& c,
                  int width, int height, float area) {
    const float left = std::min({a.x, b.x, c.x}), right = std::max({a.x, b.x, c.x});
    const float top = std::min({a.y, b.y, c.y}), bottom = std::max({a.y, b.y, c.y});
    if (!(right >= 0 && bottom >= 0 && left < static_cast<float>(width) &&
          top < static_cast<float>(height))) {
        return false;
    }
    // The first sample centre at or after the low edge, and past the last one before the high edge.
    setup.left = static_cast<int>(std::max(left, 0.0F) + 0.5F);
    setup.top = static_cast<int>(std::max(top, 0.0F) + 0.5F);
    setup.right = std::min(static_cast<int>(std::min(right, 1e6F) + 0.5F), width);
    setup.bottom = std::min(static_cast<int>(std::min(bottom, 1e6F) + 0.5F), height);
    if (setup.left >= setup.right || setup.top >= setup.bottom) {
        return false; // between the samples
    }
    const float scale = 1.0F / area;
    const DrawVertex* corner[3] = {&a, &b, &c};
    for (int i = 0; i < 3; ++i) {
        const DrawVertex& p = *corner[(i + 1) % 3];
        const DrawVertex& q = *corner[(i + 2) % 3];
        Plane& edge = setup.edge[i];
        edge.per_x = -(q.y - p.y) * scale;
        edge.per_y = (q.x - p.x) * scale;
        edge.value = -(edge.per_x * p.x + edge.per_y * p.y);
    }
    return true;
}

// The plane through one value a corner: the edge functions are the barycentric coordinates.
Plane through(const Setup& setup, float a, float b, float c) {
    const Plane* e = setup.edge;
    return {a * e[0].value + b * e[1].value + c * e[2].value,
            a * e[0].per_x + b * e[1].per_x + c * e[2].per_x,
            a * e[0].per_y + b * e[1].per_y + c * e[2].per_y};
}

const Lanes steps{0, 1, 2, 3, 4, 5, 6, 7};

inline Lanes along_row(const Plane& plane, float x, float y) {
    return lanes(plane.value + plane.per_x * x + plane.per_y * y) + steps * lanes(plane.per_x);
}

// Clears the lanes where the surface has a hole.
IntLanes covered(IntLanes pass, const Coverage& coverage, Lanes u, Lanes v, Lanes field, int x,
                 int y) {
    const Picture* alpha = coverage.alpha;
    for (int i = 0; i < 8; ++i) {
        if (pass[i] == 0) {
            continue;
        }
        float share = 0.5F;
        if (alpha != nullptr) {
            const int tx = std::clamp(static_cast<int>(u[i]) - coverage.left, 0, alpha->width - 1);
            const int ty = std::clamp(static_cast<int>(v[i]) - coverage.top, 0, alpha->height - 1);
            share = static_cast<float>(*alpha->at(tx, ty)) * (1.0F / 255.0F);
        }
        if (coverage.kind == Coverage::Kind::texture) {
            share *= coverage.strength;
        } else {
            share = (field[i] + coverage.fray * (share - 0.5F)) * coverage.strength;
        }
        if (share < threshold[y & 1][(x + i) & 1]) {
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
void fill(Target& target, const Setup& setup, const DrawStyle& style) {
    const bool holed = style.coverage.kind != Coverage::Kind::solid;
    for (int y = setup.top; y < setup.bottom; ++y) {
        const float fy = static_cast<float>(y) + 0.5F;
        const std::size_t row =
            static_cast<std::size_t>(y) * static_cast<std::size_t>(target.stride);
        for (int x = setup.left; x < setup.right; x += 8) {
            const float fx = static_cast<float>(x) + 0.5F;
            const std::size_t at = row + static_cast<std::size_t>(x);
            const Lanes nearest = load(&target.depth[at]);
            const Lanes depth = along_row(setup.depth, fx, fy);
            IntLanes pass = (along_row(setup.edge[0], fx, fy) >= lanes(0)) &
                            (along_row(setup.edge[1], fx, fy) >= lanes(0)) &
                            (along_row(setup.edge[2], fx, fy) >= lanes(0)) & (depth < nearest);
            if (!any(pass)) {
                continue;
            }
            if (holed) {
                pass = covered(pass, style.coverage, along_row(setup.varying[at_u], fx, fy),
                               along_row(setup.varying[at_v], fx, fy),
                               along_row(setup.varying[at_field], fx, fy), x, y);
            }
            store(&target.depth[at], pass ? depth : nearest);
            if constexpr (has_planes<Target>) {
                for (std::size_t k = 0; k < setup.varying.size(); ++k) {
                    float* plane = &target.plane[k][at];
                    store(plane, pass ? along_row(setup.varying[k], fx, fy) : load(plane));
                }
                std::int32_t* material = &target.material[at];
                store(material, pass ? int_lanes(style.material) : load(material));
            }
        }
    }
}

template <typename Target>
void draw_all(Target& target, const std::vector<DrawVertex>& vertices, const Triangle* triangles,
              std::size_t count, const DrawStyle& style) {
    Setup setup;
    for (std::size_t t = 0; t < count; ++t) {
        const DrawVertex& a = vertices[triangles[t][0]];
        const DrawVertex& b = vertices[triangles[t][1]];
        const DrawVertex& c = vertices[triangles[t][2]];
        // Negative: seen from the front, since y grows downwards here.
        const float area = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
        const bool from_behind = area > 0;
        if (std::fabs(area) < 1e-6F || (from_behind && !style.two_sided) ||
            !set_up_edges(setup, a, b, c, target.width, target.height, area)) {
            continue;
        }
        setup.depth = through(setup, a.depth, b.depth, c.depth);
        const bool needs_varying =
            has_planes<Target> || style.coverage.kind != Coverage::Kind::solid;
        if (needs_varying) {
            for (std::size_t k = 0; k < setup.varying.size(); ++k) {
                setup.varying[k] = through(setup, a.varying[k], b.varying[k], c.varying[k]);
            }
        }
        if (from_behind) {
            for (const Varying k : {at_nx, at_ny, at_nz}) {
                setup.varying[k] = {-setup.varying[k].value, -setup.varying[k].per_x,
                                    -setup.varying[k].per_y};
            }
        }
        fill(target, setup, style);
    }
}

} // namespace

void Samples::clear(int w, int h) {
    width = w;
    height = h;
    stride = w + 8;
    const std::size_t size = static_cast<std::size_t>(stride) * static_cast<std::size_t>(h);
    depth.assign(size, far_away);
    material.assign(size, -1);
    for (auto& p : plane) {
        p.resize(size); // what no surface covers is never looked at
    }
}

void DepthMap::clear(int w, int h) {
    width = w;
    height = h;
    stride = w + 8;
    depth.assign(static_cast<std::size_t>(stride) * static_cast<std::size_t>(h), far_away);
}

void draw(Samples& samples, const std::vector<DrawVertex>& vertices, const Triangle* triangles,
          std::size_t count, const DrawStyle& style) {
    draw_all(samples, vertices, triangles, count, style);
}

void draw(DepthMap& map, const std::vector<DrawVertex>& vertices, const Triangle* triangles,
          std::size_t count, const DrawStyle& style) {
    draw_all(map, vertices, triangles, count, style);
}

} // namespace facegen
