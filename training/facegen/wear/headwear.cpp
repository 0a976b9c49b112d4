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
std::vector<RimPoint> RimInFront(const HeadModel& model, const Piece& crown, float widest) {
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
                Mix(model.base[crown.follows[a]], model.base[crown.follows[b]], share);
            const float angle = std::atan2(base.x, base.z - 0.45f);
            if (std::fabs(angle) < widest) {
                rim.push_back({angle, Mix(crown.points[a], crown.points[b], share)});
            }
        }
    }
    std::sort(rim.begin(), rim.end(),
              [](const RimPoint& a, const RimPoint& b) { return a.angle < b.angle; });
    return rim;
}

void AddBrim(Piece& brim, const std::vector<RimPoint>& rim, float reach, float dip, float widest) {
    constexpr int steps = 20, rings = 4;
    if (rim.size() < 8) {
        return;
    }
    for (int i = 0; i <= steps; ++i) {
        const float angle = widest * (2.0f * static_cast<float>(i) / steps - 1.0f);
        // The mean of the rim points nearby, so that the brim has no steps.
        Vec3 sum;
        float weight = 0;
        for (const RimPoint& p : rim) {
            const float d = (p.angle - angle) / 0.09f;
            const float w = std::exp(-d * d);
            sum += p.at * w;
            weight += w;
        }
        const Vec3 inner = sum * (1.0f / std::max(weight, 1e-6f));
        const float t = angle / widest;
        const float far = reach * std::sqrt(std::max(1.0f - t * t, 0.0f));
        for (int ring = 0; ring <= rings; ++ring) {
            const float s = static_cast<float>(ring) / rings;
            const Vec3 out{0.25f * std::sin(angle) * far * s,
                           -dip * far * s * (0.6f + s) - 0.1f * t * t * far * s,
                           far * s - 0.02f * (1.0f - s)};
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
    brim.style.twoSided = true;
}

} // namespace

Cap DrawCap(const HeadModel& model, const Shape& shape, Random& random) {
    Cap cap;
    const bool knitted = random.Chance(0.35f);
    const float lift = random.Uniform(-0.16f, 0.12f);
    const float thick = knitted ? random.Uniform(0.05f, 0.12f) : random.Uniform(0.03f, 0.06f);
    const float tall = knitted ? random.Uniform(0.0f, 0.3f) : random.Uniform(0.05f, 0.22f);
    const auto seed = static_cast<std::uint32_t>(random.Next());
    cap.crown = GrowShell(model, shape.points, -0.02f, [&](std::uint32_t point) {
        const Vec3 base = model.base[point];
        const float above = AboveCapRim(base, lift);
        const float height = SmoothStep(0.0f, 0.8f, above);
        const float folds = 1.0f + 0.25f * ValueNoise(base * 3.0f, seed);
        const Vec3 way = Normalised(shape.normals[point] + Vec3{0, 0.5f * height, 0.2f * height});
        return ShellPoint{way * (thick + tall * height * folds), above};
    });
    // Skin points follow brows; a cap does not.
    Piece& crown = cap.crown;
    if (!knitted) {
        const float widest = random.Uniform(0.8f, 1.05f);
        AddBrim(cap.brim, RimInFront(model, crown, widest + 0.2f), random.Uniform(0.35f, 0.75f),
                random.Uniform(0.05f, 0.5f), widest);
    }
    crown.follows.clear();
    crown.style.material = kFabricMaterial;
    crown.style.twoSided = true;
    crown.style.coverage.kind = Coverage::Kind::kField;
    crown.style.coverage.strength = 60.0f;
    cap.brim.style.material = kFabricMaterial;
    return cap;
}

Piece DrawFaceMask(const HeadModel& model, const Shape& shape, Random& random) {
    const float thick = random.Uniform(0.02f, 0.05f);
    const float top =
        random.Chance(0.12f) ? random.Uniform(-0.42f, -0.3f) : random.Uniform(-0.12f, 0.05f);
    const float puff = random.Uniform(0.0f, 0.08f);
    Piece mask = GrowShell(model, shape.points, -0.02f, [&](std::uint32_t point) {
        const Vec3 base = model.base[point];
        const float inside = std::min(InsideFaceMask(base), InsideFaceMask(base - Vec3{0, top, 0}));
        const Vec3 out{0, 0, puff * SmoothStep(0.0f, 0.3f, inside)};
        return ShellPoint{shape.normals[point] * thick + out, inside};
    });
    SmoothShell(mask, 14);
    // Smoothing draws the middle in; outwards again, clear of nose and lips.
    for (std::size_t i = 0; i < mask.points.size(); ++i) {
        const Vec3 skin = shape.points[mask.follows[i]];
        mask.points[i].z = std::max(mask.points[i].z, skin.z + 0.012f);
        mask.points[i] += Vec3{0, 0, 0.02f};
    }
    SmoothShell(mask, 2);
    mask.style.material = kMaskMaterial;
    mask.style.twoSided = true;
    mask.style.coverage.kind = Coverage::Kind::kField;
    mask.style.coverage.strength = 60.0f;
    return mask;
}

} // namespace facegen
