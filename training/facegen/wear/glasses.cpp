// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>

#include "wear/wearables.h"

namespace facegen {
namespace {

// A quad of a piece with points of its own.
void add_quad(Piece& piece, Vec3 a, Vec3 b, Vec3 c, Vec3 d) {
    const auto first = static_cast<std::uint32_t>(piece.points.size());
    for (const Vec3 p : {a, b, c, d}) {
        piece.surface.point.push_back(static_cast<std::uint32_t>(piece.points.size()));
        piece.surface.u.push_back(0);
        piece.surface.v.push_back(0);
        piece.points.push_back(p);
    }
    piece.surface.triangles.push_back({first, first + 1, first + 2});
    piece.surface.triangles.push_back({first, first + 2, first + 3});
}

struct Rim {
    Vec3 middle;
    float half_width, half_height, squareness, droop, bend;
    float side; // 1 the person's left, -1 the right

    Vec3 at(float angle, float grow) const {
        const float c = std::cos(angle), s = std::sin(angle);
        const float power = 2.0F / squareness;
        const float x = std::copysign(std::pow(std::fabs(c), power), c) * (half_width + grow);
        float y = std::copysign(std::pow(std::fabs(s), power), s) * (half_height + grow);
        y += droop * x; // lenses hang or rise outwards
        // The front of a pair of glasses bends back towards the temples.
        return middle + Vec3{side * x, y, -bend * (x + half_width) * (x + half_width)};
    }
};

constexpr float whole_turn = 6.2831853F;

} // namespace

Glasses draw_glasses(const Shape& shape, bool dark, Random& random) {
    Glasses glasses;
    Piece& frame = glasses.frame;
    Piece& lenses = glasses.lenses;
    const float width = random.uniform(0.17F, 0.3F);
    const float height = width * random.uniform(0.5F, 0.95F);
    const float thick =
        random.chance(0.4F) ? random.uniform(0.022F, 0.05F) : random.uniform(0.008F, 0.02F);
    const bool half_rim = !dark && random.chance(0.15F);
    const float squareness = random.uniform(1.9F, 4.2F);
    const float droop = random.uniform(-0.12F, 0.12F), bend = random.uniform(0.05F, 0.3F);
    const float slip =
        random.chance(0.15F) ? random.uniform(-0.16F, 0.0F) : random.uniform(-0.05F, 0.02F);
    const float front = shape.eye_radius + random.uniform(0.13F, 0.2F);
    const float drop = slip - 0.25F * std::max(height - 0.15F, 0.0F);
    constexpr int steps = 24;

    for (const float side : {1.0F, -1.0F}) {
        const Vec3 eye = side > 0 ? shape.left_eye : shape.right_eye;
        const Rim rim{{eye.x + side * 0.015F, eye.y + drop, front - slip * 0.5F},
                      width,
                      height,
                      squareness,
                      droop,
                      bend,
                      side};
        for (int i = 0; i < steps; ++i) {
            const float a = whole_turn * static_cast<float>(i) / steps;
            const float b = whole_turn * static_cast<float>(i + 1) / steps;
            if (!half_rim || i < steps / 2) {
                add_quad(frame, rim.at(a, thick), rim.at(b, thick), rim.at(b, 0), rim.at(a, 0));
                const Vec3 back{0, 0, -0.035F};
                add_quad(frame, rim.at(a, thick), rim.at(b, thick), rim.at(b, thick) + back,
                         rim.at(a, thick) + back);
            }
            const Vec3 a0 = rim.at(a, 0), b0 = rim.at(b, 0);
            add_quad(lenses, rim.middle, a0, b0, mix(b0, rim.middle, 0.5F));
        }
        // The temple runs from the rim's outer end back to the ear.
        const float up = std::min(height * 0.5F, 0.1F);
        const Vec3 hinge = rim.at(0.35F, thick);
        const Vec3 ear{side * std::max(std::fabs(hinge.x) + 0.02F, 0.83F), eye.y + up + 0.02F,
                       -0.8F};
        const Vec3 tall{0, std::max(thick, 0.012F) * 0.8F, 0};
        add_quad(frame, hinge + tall, ear + tall, ear - tall, hinge - tall);
        const Vec3 out{side * 0.02F, 0, 0};
        add_quad(frame, hinge + tall, ear + tall, ear + tall - out, hinge + tall - out);
    }
    const float inner = std::max(shape.left_eye.x + 0.015F - width, 0.02F);
    const float level = shape.left_eye.y + drop + height * random.uniform(0.1F, 0.5F);
    const float tall = std::max(0.7F * thick, 0.012F);
    for (int i = 0; i < 4; ++i) {
        const auto bridge = [&](int k, float up) {
            const float t = -1.0F + 0.5F * static_cast<float>(k);
            return Vec3{t * inner, level + up + 0.03F * (1.0F - t * t),
                        front - slip * 0.5F + 0.02F};
        };
        add_quad(frame, bridge(i, tall), bridge(i + 1, tall), bridge(i + 1, -tall),
                 bridge(i, -tall));
    }

    frame.style.material = frame_material;
    frame.style.two_sided = true;
    glasses.frame_reflectance =
        random.chance(0.6F) ? random.uniform(0.01F, 0.08F) : random.uniform(0.1F, 0.6F);
    // A lens covers the share of the samples that its tint takes away.
    const float tint = dark ? random.uniform(0.75F, 1.0F)
                            : (random.chance(0.35F) ? random.uniform(0.13F, 0.4F) : 0.0F);
    lenses.style.material = lens_material;
    lenses.style.two_sided = true;
    lenses.field.assign(lenses.points.size(), tint);
    glasses.lens_reflectance =
        dark && random.chance(0.9F) ? random.uniform(0.003F, 0.03F) : random.uniform(0.02F, 0.25F);
    if (tint == 0) {
        lenses = Piece{};
    }
    return glasses;
}

} // namespace facegen
