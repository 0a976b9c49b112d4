// SPDX-License-Identifier: MIT
#include "skin/noise_fields.h"

#include <cmath>

namespace facegen {
namespace {

float corner(int x, int y, int z, std::uint32_t seed) {
    std::uint32_t h = seed ^ (static_cast<std::uint32_t>(x) * 0x8da6b343U) ^
                      (static_cast<std::uint32_t>(y) * 0xd8163841U) ^
                      (static_cast<std::uint32_t>(z) * 0xcb1ab31fU);
    h ^= h >> 15;
    h *= 0x2c1b3c6dU;
    h ^= h >> 12;
    h *= 0x297a2d39U;
    h ^= h >> 15;
    return static_cast<float>(h) * (2.0F / 4294967296.0F) - 1.0F;
}

} // namespace

float value_noise(Vec3 at, std::uint32_t seed) {
    const float fx = std::floor(at.x), fy = std::floor(at.y), fz = std::floor(at.z);
    const int x = static_cast<int>(fx), y = static_cast<int>(fy), z = static_cast<int>(fz);
    const auto ease = [](float t) { return t * t * (3.0F - 2.0F * t); };
    const float tx = ease(at.x - fx), ty = ease(at.y - fy), tz = ease(at.z - fz);
    const auto along_x = [&](int j, int k) {
        return mix(corner(x, y + j, z + k, seed), corner(x + 1, y + j, z + k, seed), tx);
    };
    return mix(mix(along_x(0, 0), along_x(1, 0), ty), mix(along_x(0, 1), along_x(1, 1), ty), tz);
}

NoiseField noise_field(const std::vector<Vec3>& texel_base, float feature, std::uint32_t seed) {
    NoiseField field(texel_base.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (texel_base[i].y > 0) {
            field[i] = static_cast<std::int8_t>(
                127.0F * value_noise(texel_base[i] * (1.0F / feature), seed));
        }
    }
    return field;
}

} // namespace facegen
