// SPDX-License-Identifier: MIT
#include "light/light.h"

namespace facegen {
namespace {

Vec3 from_angles(float around, float up) {
    return {std::sin(around) * std::cos(up), std::sin(up), std::cos(around) * std::cos(up)};
}

Vec3 any_direction(Random& random) {
    return from_angles(random.uniform(-3.14F, 3.14F), random.uniform(-1.2F, 1.4F));
}

} // namespace

Light draw_light(Random& random) {
    Light light;
    const float kind = random.uniform();
    light.kind = kind < 0.36F   ? LightKind::soft
                 : kind < 0.62F ? LightKind::side
                 : kind < 0.78F ? LightKind::hard
                 : kind < 0.88F ? LightKind::dark
                                : LightKind::infrared;
    light.ambient = random.uniform(0.25F, 0.7F);
    light.gradient = any_direction(random) * random.uniform(0.0F, 0.75F);
    light.sky = random.uniform(-0.2F, 0.35F);
    light.across = random.uniform(-0.2F, 0.2F);
    light.gamma = random.uniform(1.7F, 2.7F);
    light.shoulder = random.chance(0.5F) ? random.uniform() : 0.0F;
    light.lamps[0] = {from_angles(random.normal(0, 0.7F), random.uniform(-0.1F, 1.1F)),
                      random.uniform(0.1F, 0.7F), random.uniform(0.02F, 0.1F)};
    light.lamps[1] = {from_angles(random.normal(0, 1.1F), random.uniform(-0.6F, 1.2F)),
                      random.chance(0.5F) ? random.uniform(0.0F, 0.5F) : 0.0F, 0};
    light.mean_level = 0.26F * std::exp(random.normal_within(0.38F, 2.2F));
    switch (light.kind) {
        case LightKind::soft:
            break;
        case LightKind::side:
            light.ambient = random.uniform(0.05F, 0.35F);
            light.gradient = light.gradient * 0.6F;
            light.lamps[0].towards = from_angles(random.sign() * random.uniform(0.7F, 1.9F),
                                                 random.uniform(-0.3F, 0.8F));
            light.lamps[0].strength = random.uniform(0.6F, 1.7F);
            light.lamps[0].softness = random.uniform(0.01F, 0.06F);
            break;
        case LightKind::hard:
            light.ambient = random.uniform(0.05F, 0.3F);
            light.lamps[0].towards =
                from_angles(random.normal(0, 0.8F), random.uniform(-0.5F, 1.35F));
            light.lamps[0].strength = random.uniform(0.8F, 2.0F);
            light.lamps[0].softness = random.uniform(0.005F, 0.03F);
            light.mean_level = random.uniform(0.22F, 0.7F);
            light.shoulder *= 0.5F;
            break;
        case LightKind::dark:
            light.mean_level = 0.05F * std::exp(random.normal_within(0.4F, 2));
            break;
        case LightKind::infrared:
            light.ambient = random.uniform(0.02F, 0.15F);
            light.gradient = light.gradient * 0.1F;
            light.lamps[0] = {from_angles(random.normal(0, 0.12F), random.normal(0.05F, 0.12F)),
                              random.uniform(0.7F, 1.2F), 0.02F};
            light.lamps[1].strength *= 0.3F;
            light.mean_level = random.uniform(0.15F, 0.5F);
            break;
    }
    return light;
}

} // namespace facegen
