// SPDX-License-Identifier: MIT
#include "head/head_regions.h"

#include <cmath>
#include <cstddef>

namespace facegen {
namespace {

struct Knot {
    float at, value;
};

template <std::size_t Count>
float Piecewise(const std::array<Knot, Count>& knots, float at) {
    if (at <= knots.front().at) {
        return knots.front().value;
    }
    for (std::size_t i = 1; i < Count; ++i) {
        if (at < knots[i].at) {
            const float t = (at - knots[i - 1].at) / (knots[i].at - knots[i - 1].at);
            return Mix(knots[i - 1].value, knots[i].value, t * t * (3.0f - 2.0f * t));
        }
    }
    return knots.back().value;
}

// Distance inside an ellipse about (x, y), 1 at its middle, 0 on its edge.
float Ellipse(Vec3 p, float x, float y, float halfWidth, float halfHeight) {
    const float dx = (p.x - x) / halfWidth, dy = (p.y - y) / halfHeight;
    return 1.0f - std::sqrt(dx * dx + dy * dy);
}

} // namespace

float Azimuth(Vec3 base) { return std::atan2(std::fabs(base.x), base.z - 0.45f); }

float AboveHairline(Vec3 base, const Hairline& hairline) {
    return AboveHairline(base, Azimuth(base), hairline);
}

float AboveHairline(Vec3 base, float at, const Hairline& hairline) {
    static constexpr std::array<Knot, 11> kHeight{{{0.0f, 7.93f},
                                                   {0.35f, 7.92f},
                                                   {0.62f, 7.78f},
                                                   {0.85f, 7.58f},
                                                   {1.0f, 7.38f},
                                                   {1.12f, 7.1f},
                                                   {1.3f, 7.02f},
                                                   {1.5f, 7.36f},
                                                   {1.9f, 7.05f},
                                                   {2.3f, 6.66f},
                                                   {3.2f, 6.5f}}};
    const float front = 1.0f - SmoothStep(0.75f, 1.0f, at);
    const float temple = SmoothStep(0.2f, 0.5f, at) * (1.0f - SmoothStep(0.7f, 1.0f, at));
    const float burn = SmoothStep(0.95f, 1.1f, at) * (1.0f - SmoothStep(1.25f, 1.4f, at));
    float line = Piecewise(kHeight, at);
    line += front * hairline.raise + temple * hairline.recede - burn * hairline.sideburn;
    line -= hairline.peak * std::exp(-40.0f * at * at);
    line += hairline.wave * front * std::sin(base.x * 23.0f + hairline.wavePhase);
    return base.y - line;
}

float Lips(Vec3 base) {
    const float across = std::fabs(base.x) / 0.275f;
    if (across >= 1.0f || base.z < 1.2f) {
        return 0.0f;
    }
    const float bulge = std::sqrt(1.0f - across * across);
    const float bow = 0.014f * std::exp(-base.x * base.x / 0.0012f);
    const float top = 6.607f + 0.092f * bulge - bow;
    const float bottom = 6.607f - 0.118f * bulge;
    return SmoothStep(-0.008f, 0.008f, std::min(top - base.y, base.y - bottom));
}

float Moustache(Vec3 base) {
    const float across = std::fabs(base.x);
    const float bottom = 6.68f - 0.25f * std::max(across - 0.1f, 0.0f);
    const float top = 6.83f - 0.35f * std::max(across - 0.12f, 0.0f);
    return SmoothStep(0.36f, 0.24f, across) * SmoothStep(-0.01f, 0.02f, top - base.y) *
           SmoothStep(-0.05f, 0.0f, base.y - bottom) * SmoothStep(1.2f, 1.3f, base.z);
}

float Goatee(Vec3 base) {
    const float chin = SmoothStep(0.0f, 0.3f, Ellipse(base, 0.0f, 6.28f, 0.32f, 0.25f));
    // Moustache and chin meet beside the mouth.
    const float around = 1.0f - std::fabs(Ellipse(base, 0.0f, 6.58f, 0.33f, 0.2f)) / 0.2f;
    const float beside = 0.8f * Clamp01(around) * SmoothStep(6.74f, 6.66f, base.y);
    return std::max(Moustache(base), std::max(chin, beside) * SmoothStep(0.75f, 0.95f, base.z));
}

float InsideBeard(Vec3 base) {
    static constexpr std::array<Knot, 6> kCheek{{{0.0f, 6.84f},
                                                 {0.2f, 6.84f},
                                                 {0.4f, 6.66f},
                                                 {0.7f, 6.68f},
                                                 {0.95f, 6.85f},
                                                 {1.15f, 7.2f}}};
    const float at = Azimuth(base);
    const float throat = 6.02f + 0.1f * at;
    float depth = std::min(Piecewise(kCheek, at) - base.y, base.y - throat);
    depth = std::min(depth, (1.3f - at) * 0.8f);
    const float mouth = Ellipse(base, 0.0f, 6.6f, 0.27f, 0.095f);
    if (base.z > 1.2f) {
        depth = std::min(depth, -0.12f * mouth);
    }
    return depth;
}

float AboveCollar(Vec3 base, const Collar& collar) {
    const float line = 5.62f + (0.75f - base.z) * 0.28f + collar.lift -
                       collar.notch * std::max(0.0f, 1.0f - std::fabs(base.x) / 0.45f) *
                           SmoothStep(0.2f, 0.6f, base.z) +
                       0.4f * std::max(0.0f, std::fabs(base.x) - 0.55f); // up the shoulders
    return base.y - line;
}

float FollowsHead(Vec3 base) { return SmoothStep(5.45f, 6.25f, base.y + 0.25f * base.z - 0.1f); }

float InsideFaceMask(Vec3 base) {
    const float at = Azimuth(base);
    const float top = 7.12f - 0.12f * at - 0.35f * std::max(at - 0.55f, 0.0f);
    const float bottom = 6.12f + 0.45f * std::max(at - 0.3f, 0.0f);
    const float side = (1.12f - at) * 0.8f;
    return std::min(std::min(top - base.y, base.y - bottom), side);
}

float AboveCapRim(Vec3 base, float lift) {
    static constexpr std::array<Knot, 4> kRim{
        {{0.0f, 7.76f}, {0.9f, 7.64f}, {1.6f, 7.5f}, {3.2f, 7.15f}}};
    return base.y - Piecewise(kRim, Azimuth(base)) - lift;
}

} // namespace facegen
