// SPDX-License-Identifier: MIT
#include "skin/noise_fields.h"

#include <cmath>

namespace facegen {
namespace {

float Corner(int x, int y, int z, std::uint32_t seed) {
    std::uint32_t h = seed ^ (static_cast<std::uint32_t>(x) * 0x8da6b343U) ^
                      (static_cast<std::uint32_t>(y) * 0xd8163841U) ^
                      (static_cast<std::uint32_t>(z) * 0xcb1ab31fU);
    h ^= h >> 15;
    h *= 0x2c1b3c6dU;
    h ^= h >> 12;
    h *= 0x297a2d39U;
    h ^= h >> 15;
    return static_cast<float>(h) * (2.0f / 4294967296.0f) - 1.0f;
}

} // namespace

float ValueNoise(Vec3 at, std::uint32_t seed) {
    const float fx = std::floor(at.x), fy = std::floor(at.y), fz = std::floor(at.z);
    const int x = static_cast<int>(fx), y = static_cast<int>(fy), z = static_cast<int>(fz);
    const auto ease = [](float t) { return t * t * (3.0f - 2.0f * t); };
    const float tx = ease(at.x - fx), ty = ease(at.y - fy), tz = ease(at.z - fz);
    const auto alongX = [&](int j, int k) {
        return Mix(Corner(x, y + j, z + k, seed), Corner(x + 1, y + j, z + k, seed), tx);
    };
    return Mix(Mix(alongX(0, 0), alongX(1, 0), ty), Mix(alongX(0, 1), alongX(1, 1), ty), tz);
}

NoiseField MakeNoiseField(const std::vector<Vec3>& texelBase, float feature, std::uint32_t seed) {
    NoiseField field(texelBase.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (texelBase[i].y > 0) {
            field[i] = static_cast<std::int8_t>(127.0f *
                                                ValueNoise(texelBase[i] * (1.0f / feature), seed));
        }
    }
    return field;
}

} // namespace facegen
