// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>

#include "head/head_regions.h"
#include "skin/noise_fields.h"
#include "wear/shell.h"
#include "wear/wearables.h"

namespace facegen {
namespace {

struct RimPoint {
    float angle; // about the upright axis, signed: 0 in front
    Vec3 at;
};

// Where the cap's rim runs over its surface, in front, from one side to the other.
std::vector<RimPoint> rim_in_front(const HeadModel& model, const Piece& crown, float widest) {
    std::vector<RimPoint> rim;
    for (const Triangle& t : crown.surface.triangles) {
        for (std::size_t i = 0; i < 3; ++i) {
            const std::uint32_t a = crown.surface.point[t[i]];
            const std::uint32_t b = crown.surface.point[t[(i + 1) % 3]];
            const float fa = crown.field[a], fb = crown.field[b];
            if ((fa > 0) == (fb > 0)) {
                continue;
            }
            const float share = fa / (fa - fb);
            const Vec3 base =
                mix(model.base[crown.follows[a]], model.base[crown.follows[b]], share);
            const float angle = std::atan2(base.x, base.z - 0.45F);
            if (std::fabs(angle) < widest) {
                rim.push_back({angle, mix(crown.points[a], crown.points[b], share)});
            }
        }
    }
    std::sort(rim.begin(), rim.end(),
              [](const RimPoint& a, const RimPoint& b) { return a.angle < b.angle; });
    return rim;
}

void add_brim(Piece& brim, const std::vector<RimPoint>& rim, float reach, float dip, float widest) {
    constexpr int steps = 20, rings = 4;
    if (rim.size() < 8) {
        return;
    }
    for (int i = 0; i <= steps; ++i) {
        const float angle = widest * (2.0F * static_cast<float>(i) / steps - 1.0F);
        // The mean of the rim points nearby, so that the brim has no steps.
        Vec3 sum;
        float weight = 0;
        for (const RimPoint& p : rim) {
            const float d = (p.angle - angle) / 0.09F;
            const float w = std::exp(-d * d);
            sum += p.at * w;
            weight += w;
        }
        const Vec3 inner = sum * (1.0F / std::max(weight, 1e-6F));
        const float t = angle / widest;
        const float far = reach * std::sqrt(std::max(1.0F - t * t, 0.0F));
        for (int ring = 0; ring <= rings; ++ring) {
            const float s = static_cast<float>(ring) / rings;
            const Vec3 out{0.25F * std::sin(angle) * far * s,
                           -dip * far * s * (0.6F + s) - 0.1F * t * t * far * s,
                           far * s - 0.02F * (1.0F - s)};
            brim.points.push_back(inner + out);
            brim.surface.point.push_back(static_cast<std::uint32_t>(brim.points.size() - 1));
            brim.surface.u.push_back(0);
            brim.surface.v.push_back(0);
        }
    }
    for (std::uint32_t i = 0; i < steps; ++i) {
        for (std::uint32_t ring = 0; ring < rings; ++ring) {
            const std::uint32_t a = i * (rings + 1) + ring, b = a + rings + 1;
            brim.surface.triangles.push_back({a, a + 1, b + 1});
            brim.surface.triangles.push_back({a, b + 1, b});
        }
    }
    brim.style.two_sided = true;
}

} // namespace

Cap draw_cap(const HeadModel& model, const Shape& shape, Random& random) {
    Cap cap;
    const bool knitted = random.chance(0.35F);
    const float lift = random.uniform(-0.16F, 0.12F);
    const float thick = knitted ? random.uniform(0.05F, 0.12F) : random.uniform(0.03F, 0.06F);
    const float tall = knitted ? random.uniform(0.0F, 0.3F) : random.uniform(0.05F, 0.22F);
    const auto seed = static_cast<std::uint32_t>(random.next());
    cap.crown = grow_shell(model, shape.points, -0.02F, [&](std::uint32_t point) {
        const Vec3 base = model.base[point];
        const float above = above_cap_rim(base, lift);
        const float height = smooth_step(0.0F, 0.8F, above);
        const float folds = 1.0F + 0.25F * value_noise(base * 3.0F, seed);
        const Vec3 way = normalised(shape.normals[point] + Vec3{0, 0.5F * height, 0.2F * height});
        return ShellPoint{way * (thick + tall * height * folds), above};
    });
    // Skin points follow brows; a cap does not.
    Piece& crown = cap.crown;
    if (!knitted) {
        const float widest = random.uniform(0.8F, 1.05F);
        add_brim(cap.brim, rim_in_front(model, crown, widest + 0.2F), random.uniform(0.35F, 0.75F),
                 random.uniform(0.05F, 0.5F), widest);
    }
    crown.follows.clear();
    crown.style.material = fabric_material;
    crown.style.two_sided = true;
    crown.style.coverage.kind = Coverage::Kind::field;
    crown.style.coverage.strength = 60.0F;
    cap.brim.style.material = fabric_material;
    return cap;
}

Piece draw_face_mask(const HeadModel& model, const Shape& shape, Random& random) {
    const float thick = random.uniform(0.02F, 0.05F);
    const float top =
        random.chance(0.12F) ? random.uniform(-0.42F, -0.3F) : random.uniform(-0.12F, 0.05F);
    const float puff = random.uniform(0.0F, 0.08F);
    Piece mask = grow_shell(model, shape.points, -0.02F, [&](std::uint32_t point) {
        const Vec3 base = model.base[point];
        const float inside =
            std::min(inside_face_mask(base), inside_face_mask(base - Vec3{0, top, 0}));
        const Vec3 out{0, 0, puff * smooth_step(0.0F, 0.3F, inside)};
        return ShellPoint{shape.normals[point] * thick + out, inside};
    });
    smooth_shell(mask, 14);
    // Smoothing draws the middle in; outwards again, clear of nose and lips.
    for (std::size_t i = 0; i < mask.points.size(); ++i) {
        const Vec3 skin = shape.points[mask.follows[i]];
        mask.points[i].z = std::max(mask.points[i].z, skin.z + 0.012F);
        mask.points[i] += Vec3{0, 0, 0.02F};
    }
    smooth_shell(mask, 2);
    mask.style.material = mask_material;
    mask.style.two_sided = true;
    mask.style.coverage.kind = Coverage::Kind::field;
    mask.style.coverage.strength = 60.0F;
    return mask;
}

} // namespace facegen
