// SPDX-License-Identifier: MIT
#include "light/light.h"

namespace facegen {
namespace {

Vec3 FromAngles(float around, float up) {
    return {std::sin(around) * std::cos(up), std::sin(up), std::cos(around) * std::cos(up)};
}

Vec3 AnyDirection(Random& random) {
    return FromAngles(random.Uniform(-3.14f, 3.14f), random.Uniform(-1.2f, 1.4f));
}

} // namespace

Light DrawLight(Random& random) {
    Light light;
    const float kind = random.Uniform();
    light.kind = kind < 0.36f   ? LightKind::kSoft
                 : kind < 0.62f ? LightKind::kSide
                 : kind < 0.78f ? LightKind::kHard
                 : kind < 0.88f ? LightKind::kDark
                                : LightKind::kInfrared;
    light.ambient = random.Uniform(0.25f, 0.7f);
    light.gradient = AnyDirection(random) * random.Uniform(0.0f, 0.75f);
    light.sky = random.Uniform(-0.2f, 0.35f);
    light.across = random.Uniform(-0.2f, 0.2f);
    light.gamma = random.Uniform(1.7f, 2.7f);
    light.shoulder = random.Chance(0.5f) ? random.Uniform() : 0.0f;
    light.lamps[0] = {FromAngles(random.Normal(0, 0.7f), random.Uniform(-0.1f, 1.1f)),
                      random.Uniform(0.1f, 0.7f), random.Uniform(0.02f, 0.1f)};
    light.lamps[1] = {FromAngles(random.Normal(0, 1.1f), random.Uniform(-0.6f, 1.2f)),
                      random.Chance(0.5f) ? random.Uniform(0.0f, 0.5f) : 0.0f, 0};
    light.meanLevel = 0.26f * std::exp(random.NormalWithin(0.38f, 2.2f));
    switch (light.kind) {
        case LightKind::kSoft:
            break;
        case LightKind::kSide:
            light.ambient = random.Uniform(0.05f, 0.35f);
            light.gradient = light.gradient * 0.6f;
            light.lamps[0].towards =
                FromAngles(random.Sign() * random.Uniform(0.7f, 1.9f), random.Uniform(-0.3f, 0.8f));
            light.lamps[0].strength = random.Uniform(0.6f, 1.7f);
            light.lamps[0].softness = random.Uniform(0.01f, 0.06f);
            break;
        case LightKind::kHard:
            light.ambient = random.Uniform(0.05f, 0.3f);
            light.lamps[0].towards =
                FromAngles(random.Normal(0, 0.8f), random.Uniform(-0.5f, 1.35f));
            light.lamps[0].strength = random.Uniform(0.8f, 2.0f);
            light.lamps[0].softness = random.Uniform(0.005f, 0.03f);
            light.meanLevel = random.Uniform(0.22f, 0.7f);
            light.shoulder *= 0.5f;
            break;
        case LightKind::kDark:
            light.meanLevel = 0.05f * std::exp(random.NormalWithin(0.4f, 2));
            break;
        case LightKind::kInfrared:
            light.ambient = random.Uniform(0.02f, 0.15f);
            light.gradient = light.gradient * 0.1f;
            light.lamps[0] = {FromAngles(random.Normal(0, 0.12f), random.Normal(0.05f, 0.12f)),
                              random.Uniform(0.7f, 1.2f), 0.02f};
            light.lamps[1].strength *= 0.3f;
            light.meanLevel = random.Uniform(0.15f, 0.5f);
            break;
    }
    return light;
}

} // namespace facegen
