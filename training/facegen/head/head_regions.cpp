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
float piecewise(const std::array<Knot, Count>& knots, float at) {
    if (at <= knots.front().at) {
        return knots.front().value;
    }
    for (std::size_t i = 1; i < Count; ++i) {
        if (at < knots[i].at) {
            const float t = (at - knots[i - 1].at) / (knots[i].at - knots[i - 1].at);
            return mix(knots[i - 1].value, knots[i].value, t * t * (3.0F - 2.0F * t));
        }
    }
    return knots.back().value;
}

// Distance inside an ellipse about (x, y), 1 at its middle, 0 on its edge.
float ellipse(Vec3 p, float x, float y, float half_width, float half_height) {
    const float dx = (p.x - x) / half_width, dy = (p.y - y) / half_height;
    return 1.0F - std::sqrt(dx * dx + dy * dy);
}

} // namespace

float azimuth(Vec3 base) { return std::atan2(std::fabs(base.x), base.z - 0.45F); }

float above_hairline(Vec3 base, const Hairline& hairline) {
    return above_hairline(base, azimuth(base), hairline);
}

float above_hairline(Vec3 base, float at, const Hairline& hairline) {
    static constexpr std::array<Knot, 11> height{{{0.0F, 7.93F},
                                                  {0.35F, 7.92F},
                                                  {0.62F, 7.78F},
                                                  {0.85F, 7.58F},
                                                  {1.0F, 7.38F},
                                                  {1.12F, 7.1F},
                                                  {1.3F, 7.02F},
                                                  {1.5F, 7.36F},
                                                  {1.9F, 7.05F},
                                                  {2.3F, 6.66F},
                                                  {3.2F, 6.5F}}};
    const float front = 1.0F - smooth_step(0.75F, 1.0F, at);
    const float temple = smooth_step(0.2F, 0.5F, at) * (1.0F - smooth_step(0.7F, 1.0F, at));
    const float burn = smooth_step(0.95F, 1.1F, at) * (1.0F - smooth_step(1.25F, 1.4F, at));
    float line = piecewise(height, at);
    line += front * hairline.raise + temple * hairline.recede - burn * hairline.sideburn;
    line -= hairline.peak * std::exp(-40.0F * at * at);
    line += hairline.wave * front * std::sin(base.x * 23.0F + hairline.wave_phase);
    return base.y - line;
}

float lips(Vec3 base) {
    const float across = std::fabs(base.x) / 0.275F;
    if (across >= 1.0F || base.z < 1.2F) {
        return 0.0F;
    }
    const float bulge = std::sqrt(1.0F - across * across);
    const float bow = 0.014F * std::exp(-base.x * base.x / 0.0012F);
    const float top = 6.607F + 0.092F * bulge - bow;
    const float bottom = 6.607F - 0.118F * bulge;
    return smooth_step(-0.008F, 0.008F, std::min(top - base.y, base.y - bottom));
}

float moustache(Vec3 base) {
    const float across = std::fabs(base.x);
    const float bottom = 6.68F - 0.25F * std::max(across - 0.1F, 0.0F);
    const float top = 6.83F - 0.35F * std::max(across - 0.12F, 0.0F);
    return smooth_step(0.36F, 0.24F, across) * smooth_step(-0.01F, 0.02F, top - base.y) *
           smooth_step(-0.05F, 0.0F, base.y - bottom) * smooth_step(1.2F, 1.3F, base.z);
}

float goatee(Vec3 base) {
    const float chin = smooth_step(0.0F, 0.3F, ellipse(base, 0.0F, 6.28F, 0.32F, 0.25F));
    // Moustache and chin meet beside the mouth.
    const float around = 1.0F - std::fabs(ellipse(base, 0.0F, 6.58F, 0.33F, 0.2F)) / 0.2F;
    const float beside = 0.8F * clamp01(around) * smooth_step(6.74F, 6.66F, base.y);
    return std::max(moustache(base), std::max(chin, beside) * smooth_step(0.75F, 0.95F, base.z));
}

float inside_beard(Vec3 base) {
    static constexpr std::array<Knot, 6> cheek{{{0.0F, 6.84F},
                                                {0.2F, 6.84F},
                                                {0.4F, 6.66F},
                                                {0.7F, 6.68F},
                                                {0.95F, 6.85F},
                                                {1.15F, 7.2F}}};
    const float at = azimuth(base);
    const float throat = 6.02F + 0.1F * at;
    float depth = std::min(piecewise(cheek, at) - base.y, base.y - throat);
    depth = std::min(depth, (1.3F - at) * 0.8F);
    const float mouth = ellipse(base, 0.0F, 6.6F, 0.27F, 0.095F);
    if (base.z > 1.2F) {
        depth = std::min(depth, -0.12F * mouth);
    }
    return depth;
}

float above_collar(Vec3 base, const Collar& collar) {
    const float line = 5.62F + (0.75F - base.z) * 0.28F + collar.lift -
                       collar.notch * std::max(0.0F, 1.0F - std::fabs(base.x) / 0.45F) *
                           smooth_step(0.2F, 0.6F, base.z) +
                       0.4F * std::max(0.0F, std::fabs(base.x) - 0.55F); // up the shoulders
    return base.y - line;
}

float follows_head(Vec3 base) { return smooth_step(5.45F, 6.25F, base.y + 0.25F * base.z - 0.1F); }

float inside_face_mask(Vec3 base) {
    const float at = azimuth(base);
    const float top = 7.12F - 0.12F * at - 0.35F * std::max(at - 0.55F, 0.0F);
    const float bottom = 6.12F + 0.45F * std::max(at - 0.3F, 0.0F);
    const float side = (1.12F - at) * 0.8F;
    return std::min(std::min(top - base.y, base.y - bottom), side);
}

float above_cap_rim(Vec3 base, float lift) {
    static constexpr std::array<Knot, 4> rim{
        {{0.0F, 7.76F}, {0.9F, 7.64F}, {1.6F, 7.5F}, {3.2F, 7.15F}}};
    return base.y - piecewise(rim, azimuth(base)) - lift;
}

} // namespace facegen
