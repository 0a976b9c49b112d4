// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>

#include "wear/wearables.h"

namespace facegen {
namespace {

// A quad of a piece with points of its own.
void AddQuad(Piece& piece, Vec3 a, Vec3 b, Vec3 c, Vec3 d) {
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
    float halfWidth, halfHeight, squareness, droop, bend;
    float side; // 1 the person's left, -1 the right

    Vec3 At(float angle, float grow) const {
        const float c = std::cos(angle), s = std::sin(angle);
        const float power = 2.0f / squareness;
        const float x = std::copysign(std::pow(std::fabs(c), power), c) * (halfWidth + grow);
        float y = std::copysign(std::pow(std::fabs(s), power), s) * (halfHeight + grow);
        y += droop * x; // lenses hang or rise outwards
        // The front of a pair of glasses bends back towards the temples.
        return middle + Vec3{side * x, y, -bend * (x + halfWidth) * (x + halfWidth)};
    }
};

constexpr float kWholeTurn = 6.2831853f;

} // namespace

Glasses DrawGlasses(const Shape& shape, bool dark, Random& random) {
    Glasses glasses;
    Piece& frame = glasses.frame;
    Piece& lenses = glasses.lenses;
    const float width = random.Uniform(0.17f, 0.3f);
    const float height = width * random.Uniform(0.5f, 0.95f);
    const float thick =
        random.Chance(0.4f) ? random.Uniform(0.022f, 0.05f) : random.Uniform(0.008f, 0.02f);
    const bool halfRim = !dark && random.Chance(0.15f);
    const float squareness = random.Uniform(1.9f, 4.2f);
    const float droop = random.Uniform(-0.12f, 0.12f), bend = random.Uniform(0.05f, 0.3f);
    const float slip =
        random.Chance(0.15f) ? random.Uniform(-0.16f, 0.0f) : random.Uniform(-0.05f, 0.02f);
    const float front = shape.eyeRadius + random.Uniform(0.13f, 0.2f);
    const float drop = slip - 0.25f * std::max(height - 0.15f, 0.0f);
    constexpr int steps = 24;

    for (const float side : {1.0f, -1.0f}) {
        const Vec3 eye = side > 0 ? shape.leftEye : shape.rightEye;
        const Rim rim{{eye.x + side * 0.015f, eye.y + drop, front - slip * 0.5f},
                      width,
                      height,
                      squareness,
                      droop,
                      bend,
                      side};
        for (int i = 0; i < steps; ++i) {
            const float a = kWholeTurn * static_cast<float>(i) / steps;
            const float b = kWholeTurn * static_cast<float>(i + 1) / steps;
            if (!halfRim || i < steps / 2) {
                AddQuad(frame, rim.At(a, thick), rim.At(b, thick), rim.At(b, 0), rim.At(a, 0));
                const Vec3 back{0, 0, -0.035f};
                AddQuad(frame, rim.At(a, thick), rim.At(b, thick), rim.At(b, thick) + back,
                        rim.At(a, thick) + back);
            }
            const Vec3 a0 = rim.At(a, 0), b0 = rim.At(b, 0);
            AddQuad(lenses, rim.middle, a0, b0, Mix(b0, rim.middle, 0.5f));
        }
        // The temple runs from the rim's outer end back to the ear.
        const float up = std::min(height * 0.5f, 0.1f);
        const Vec3 hinge = rim.At(0.35f, thick);
        const Vec3 ear{side * std::max(std::fabs(hinge.x) + 0.02f, 0.83f), eye.y + up + 0.02f,
                       -0.8f};
        const Vec3 tall{0, std::max(thick, 0.012f) * 0.8f, 0};
        AddQuad(frame, hinge + tall, ear + tall, ear - tall, hinge - tall);
        const Vec3 out{side * 0.02f, 0, 0};
        AddQuad(frame, hinge + tall, ear + tall, ear + tall - out, hinge + tall - out);
    }
    const float inner = std::max(shape.leftEye.x + 0.015f - width, 0.02f);
    const float level = shape.leftEye.y + drop + height * random.Uniform(0.1f, 0.5f);
    const float tall = std::max(0.7f * thick, 0.012f);
    for (int i = 0; i < 4; ++i) {
        const auto bridge = [&](int k, float up) {
            const float t = -1.0f + 0.5f * static_cast<float>(k);
            return Vec3{t * inner, level + up + 0.03f * (1.0f - t * t),
                        front - slip * 0.5f + 0.02f};
        };
        AddQuad(frame, bridge(i, tall), bridge(i + 1, tall), bridge(i + 1, -tall),
                bridge(i, -tall));
    }

    frame.style.material = kFrameMaterial;
    frame.style.twoSided = true;
    glasses.frameReflectance =
        random.Chance(0.6f) ? random.Uniform(0.01f, 0.08f) : random.Uniform(0.1f, 0.6f);
    // A lens covers the share of the samples that its tint takes away.
    const float tint = dark ? random.Uniform(0.75f, 1.0f)
                            : (random.Chance(0.35f) ? random.Uniform(0.13f, 0.4f) : 0.0f);
    lenses.style.material = kLensMaterial;
    lenses.style.twoSided = true;
    lenses.field.assign(lenses.points.size(), tint);
    glasses.lensReflectance =
        dark && random.Chance(0.9f) ? random.Uniform(0.003f, 0.03f) : random.Uniform(0.02f, 0.25f);
    if (tint == 0) {
        lenses = Piece{};
    }
    return glasses;
}

} // namespace facegen
