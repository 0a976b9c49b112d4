// SPDX-License-Identifier: MIT
#include "light/shading.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "skin/atlas.h"

namespace facegen {
namespace {

constexpr int kLongestRow = 1024;

struct Row {
    float albedo[kLongestRow], visible[kLongestRow], specular[kLongestRow], gloss[kLongestRow],
        wrap[kLongestRow], rim[kLongestRow];
};

inline float ByteAt(std::uint32_t word, int shift) {
    return static_cast<float>(static_cast<std::int32_t>((word >> shift) & 0xff));
}

inline float Bilinear(const std::uint32_t* words, float u, float v) {
    const auto x = static_cast<std::int32_t>(u), y = static_cast<std::int32_t>(v);
    const float tx = u - static_cast<float>(x), ty = v - static_cast<float>(y);
    const std::uint32_t word = words[y * atlas::kWidth + x];
    const float top = ByteAt(word, 0) + tx * (ByteAt(word, 8) - ByteAt(word, 0));
    const float bottom = ByteAt(word, 16) + tx * (ByteAt(word, 24) - ByteAt(word, 16));
    return (top + ty * (bottom - top)) * (1.0f / 255.0f);
}

// x^power for x in (0, 1], rough but enough for a reflectance.
inline float RoughPower(float x, float power) {
    const auto bits = static_cast<float>(std::bit_cast<std::int32_t>(x) - 0x3f7a3bea);
    return std::bit_cast<float>(static_cast<std::int32_t>(bits * power) + 0x3f7a3bea);
}

void LookUp(Row& row, const Samples& s, std::size_t at, int width, const Surroundings& around,
            bool infrared) {
    float fixed[kMaterials], specular[kMaterials], gloss[kMaterials], wrap[kMaterials],
        rim[kMaterials], gain[kMaterials], power[kMaterials];
    for (int m = 0; m < kMaterials; ++m) {
        const Finish& f = around.finishes[m];
        fixed[m] = f.reflectance;
        specular[m] = f.specular;
        gloss[m] = f.gloss;
        wrap[m] = f.wrap;
        rim[m] = f.rim;
        gain[m] = f.infraredGain;
        power[m] = f.infraredPower;
    }
    const std::int32_t* material = &s.material[at];
    const float* u = &s.plane[kAtU][at];
    const float* v = &s.plane[kAtV][at];
    const float* field = &s.plane[kAtField][at];
    const float inversePitch = 1.0f / around.stripePitch;
    for (int x = 0; x < width; ++x) {
        std::int32_t m = material[x];
        const bool there = m >= 0;
        m = there ? m : 0;
        // Skin below the neckline is clothed; the field is the height above it.
        const bool clothed = m == kSkinMaterial && field[x] < 0;
        m = clothed ? static_cast<std::int32_t>(kClothMaterial) : m;
        const float tu = there ? std::clamp(u[x], 0.0f, static_cast<float>(atlas::kWidth - 2)) : 0;
        const float tv = there ? std::clamp(v[x], 0.0f, static_cast<float>(atlas::kHeight - 2)) : 0;
        const float code = Bilinear(around.atlas, tu, tv);
        float stripe = field[x] * inversePitch;
        stripe = stripe - std::floor(stripe) < 0.5f ? 1.0f + around.stripes : 1.0f - around.stripes;
        stripe = clothed ? stripe : 1.0f;
        row.albedo[x] = fixed[m] < 0 ? code * code : fixed[m] * stripe;
        row.specular[x] = specular[m];
        row.gloss[x] = gloss[m];
        row.wrap[x] = wrap[m];
        row.rim[x] = rim[m];
    }
    for (const Layer& layer : around.layers) {
        for (int x = 0; layer.density > 0 && x < width; ++x) {
            const bool skin = material[x] == kSkinMaterial;
            const float tu =
                skin ? std::clamp(u[x], 0.0f, static_cast<float>(atlas::kWidth - 2)) : 0;
            const float tv =
                skin ? std::clamp(v[x], 0.0f, static_cast<float>(atlas::kHeight - 2)) : 0;
            const float share = layer.density * Bilinear(layer.words, tu, tv);
            row.albedo[x] *= skin ? 1.0f - share : 1.0f;
        }
    }
    for (int x = 0; around.eyeTone < 1 && x < width; ++x) {
        row.albedo[x] *= material[x] == kEyeMaterial ? around.eyeTone : 1.0f;
    }
    if (infrared) {
        for (int x = 0; x < width; ++x) {
            const std::int32_t m = std::max(material[x], 0);
            row.albedo[x] =
                std::min(gain[m] * RoughPower(std::max(row.albedo[x], 1e-4f), power[m]), 0.95f);
        }
    }
}

void FindShadow(Row& row, const Samples& s, int y, std::size_t at, const Camera& camera,
                const Shadow* shadow, float softness) {
    const int width = s.width;
    if (shadow == nullptr) {
        std::fill(row.visible, row.visible + width, 1.0f);
        return;
    }
    // Position on the map is linear in the point, and the point is the ray times the depth.
    const float* depth = &s.depth[at];
    const float rayY = (camera.centreY - (static_cast<float>(y) + 0.5f)) / camera.scale;
    const float half = static_cast<float>(shadow->map.width) / 2;
    const float last = static_cast<float>(shadow->map.width - 1);
    const float bias = 0.03f + 0.5f * softness;
    const Vec3 a = shadow->across * shadow->perDm, b = shadow->up * -shadow->perDm;
    const Vec3 c = shadow->towards * -1.0f;
    const Vec3 middle = shadow->middle;
    const float* map = shadow->map.depth.data();
    const std::int32_t stride = shadow->map.stride;
    // Four taps whose offsets turn from sample to sample: noise that the 2 x 2 mean takes out.
    const float reach = softness * shadow->perDm + 0.5f;
    for (int x = 0; x < width; ++x) {
        const bool there = depth[x] < 1e8f;
        const float d = there ? depth[x] : camera.distance;
        const float px =
            (static_cast<float>(x) + 0.5f - camera.centreX) / camera.scale * d - middle.x;
        const float py = rayY * d - middle.y;
        const float pz = camera.distance - d - middle.z;
        const float mx = half + px * a.x + py * a.y + pz * a.z;
        const float my = half + px * b.x + py * b.y + pz * b.z;
        const float md = px * c.x + py * c.y + pz * c.z - bias;
        const auto turn = static_cast<float>((x & 1) + 2 * (y & 1));
        const float cos_turn = 1.0f - 0.2f * turn, sin_turn = 0.3f * turn;
        float seen = 0;
        const auto tap = [&](float ox, float oy) {
            const float tx = std::clamp(mx + reach * (ox * cos_turn - oy * sin_turn), 0.0f, last);
            const float ty = std::clamp(my + reach * (ox * sin_turn + oy * cos_turn), 0.0f, last);
            return map[static_cast<std::int32_t>(ty) * stride + static_cast<std::int32_t>(tx)] > md
                       ? 0.25f
                       : 0.0f;
        };
        seen += tap(0.9f, 0.2f);
        seen += tap(-0.2f, 0.7f);
        seen += tap(-0.8f, -0.3f);
        seen += tap(0.2f, -0.5f);
        row.visible[x] = seen;
    }
}

// `kField`: light from all around is the whole field. A copy of its own, so that the other keeps its
// arithmetic to the last bit.
template <bool kField>
void LightUp(const Row& row, const Samples& s, std::size_t at, const Light& light, float* out) {
    const float* nx = &s.plane[kAtNx][at];
    const float* ny = &s.plane[kAtNy][at];
    const float* nz = &s.plane[kAtNz][at];
    const float* occlusion = &s.plane[kAtOcclusion][at];
    const float* depth = &s.depth[at];
    const Lamp &one = light.lamps[0], &two = light.lamps[1];
    const Vec3 halfOne = Normalised(one.towards + Vec3{0, 0, 1});
    const Vec3 halfTwo = Normalised(two.towards + Vec3{0, 0, 1});
    const Vec3 l1 = one.towards, l2 = two.towards, g = light.gradient;
    const float s1 = one.strength, s2 = two.strength, ambient = light.ambient, sky = light.sky,
                sides = light.across;
    const std::array<float, 9> f = light.field;
    for (int x = 0; x < s.width; ++x) {
        const float size = nx[x] * nx[x] + ny[x] * ny[x] + nz[x] * nz[x];
        const float inverse = 1.0f / std::sqrt(size + 1e-12f);
        const float a = nx[x] * inverse, b = ny[x] * inverse, c = nz[x] * inverse;
        float around;
        if constexpr (kField) {
            around = ambient *
                     std::max(0.05f, f[0] + f[1] * a + f[2] * b + f[3] * c + f[4] * a * b +
                                         f[5] * b * c + f[6] * a * c +
                                         f[7] * (3.0f * c * c - 1.0f) + f[8] * (a * a - b * b));
        } else {
            around = ambient * std::max(0.12f, 1.0f + g.x * a + g.y * b + g.z * c +
                                                   sky * (3.0f * b * b - 1.0f) * 0.5f +
                                                   sides * (3.0f * a * a - 1.0f) * 0.5f);
        }
        const float wrap = row.wrap[x], soft = 1.0f / (1.0f + wrap);
        const float d1 = std::max(0.0f, (a * l1.x + b * l1.y + c * l1.z + wrap) * soft);
        const float d2 = std::max(0.0f, (a * l2.x + b * l2.y + c * l2.z + wrap) * soft);
        const float h1 = std::max(0.0f, a * halfOne.x + b * halfOne.y + c * halfOne.z);
        const float h2 = std::max(0.0f, a * halfTwo.x + b * halfTwo.y + c * halfTwo.z);
        const float m = row.gloss[x];
        // Schlick's stand-in for a power: x / (m - m x + x).
        const float q1 = h1 * h1, q2 = h2 * h2;
        const float p1 = q1 / (m - m * q1 + q1), p2 = q2 / (m - m * q2 + q2);
        const float away = 1.0f - std::max(c, 0.0f);
        const float shine = row.specular[x] * (1.0f + row.rim[x] * away * away * away);
        const float lit = s1 * row.visible[x];
        const float open = occlusion[x];
        const float fromLamps = lit * d1 + s2 * d2 * open;
        const float highlights = shine * (lit * p1 * std::min(1.0f, 4.0f * d1) +
                                          s2 * p2 * open * std::min(1.0f, 4.0f * d2)) +
                                 shine * 0.12f * around * open * away * away;
        const float value = row.albedo[x] * (around * open + fromLamps) + highlights;
        out[x] = depth[x] < 1e8f ? value : -1.0f;
    }
}

} // namespace

void Shadow::Aim(Vec3 lamp, Vec3 at, float reach, int size) {
    towards = Normalised(lamp);
    const Vec3 helper = std::fabs(towards.y) > 0.9f ? Vec3{0, 0, 1} : Vec3{0, 1, 0};
    across = Normalised(Cross(helper, towards));
    up = Cross(towards, across);
    middle = at;
    map.Clear(size, size);
    perDm = static_cast<float>(size) / (2 * reach);
}

void Shade(const Samples& samples, const Camera& camera, const Light& light, const Shadow* shadow,
           const Surroundings& surroundings, std::vector<float>& radiance) {
    Row row;
    radiance.resize(samples.depth.size());
    for (int y = 0; y < samples.height; ++y) {
        const std::size_t at =
            static_cast<std::size_t>(y) * static_cast<std::size_t>(samples.stride);
        LookUp(row, samples, at, samples.width, surroundings, light.kind == LightKind::kInfrared);
        FindShadow(row, samples, y, at, camera, shadow, light.lamps[0].softness);
        if (light.hasField) {
            LightUp<true>(row, samples, at, light, &radiance[at]);
        } else {
            LightUp<false>(row, samples, at, light, &radiance[at]);
        }
    }
}

} // namespace facegen
