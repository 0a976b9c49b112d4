// SPDX-License-Identifier: MIT
#include "light/shading.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "skin/atlas.h"

namespace facegen {
namespace {

constexpr int longest_row = 1024;

struct Row {
    float albedo[longest_row], visible[longest_row], specular[longest_row], gloss[longest_row],
        wrap[longest_row], rim[longest_row];
};

inline float byte_at(std::uint32_t word, int shift) {
    return static_cast<float>(static_cast<std::int32_t>((word >> shift) & 0xff));
}

inline float bilinear(const std::uint32_t* words, float u, float v) {
    const auto x = static_cast<std::int32_t>(u), y = static_cast<std::int32_t>(v);
    const float tx = u - static_cast<float>(x), ty = v - static_cast<float>(y);
    const std::uint32_t word = words[y * atlas::width + x];
    const float top = byte_at(word, 0) + tx * (byte_at(word, 8) - byte_at(word, 0));
    const float bottom = byte_at(word, 16) + tx * (byte_at(word, 24) - byte_at(word, 16));
    return (top + ty * (bottom - top)) * (1.0F / 255.0F);
}

// x^power for x in (0, 1], rough but enough for a reflectance.
inline float rough_power(float x, float power) {
    const auto bits = static_cast<float>(std::bit_cast<std::int32_t>(x) - 0x3f7a3bea);
    return std::bit_cast<float>(static_cast<std::int32_t>(bits * power) + 0x3f7a3bea);
}

void look_up(Row& row, const Samples& s, std::size_t at, int width, const Surroundings& around,
             bool infrared) {
    float fixed[materials], specular[materials], gloss[materials], wrap[materials], rim[materials],
        gain[materials], power[materials];
    for (int m = 0; m < materials; ++m) {
        const Finish& f = around.finishes[m];
        fixed[m] = f.reflectance;
        specular[m] = f.specular;
        gloss[m] = f.gloss;
        wrap[m] = f.wrap;
        rim[m] = f.rim;
        gain[m] = f.infrared_gain;
        power[m] = f.infrared_power;
    }
    const std::int32_t* material = &s.material[at];
    const float* u = &s.plane[at_u][at];
    const float* v = &s.plane[at_v][at];
    const float* field = &s.plane[at_field][at];
    const float inverse_pitch = 1.0F / around.stripe_pitch;
    for (int x = 0; x < width; ++x) {
        std::int32_t m = material[x];
        const bool there = m >= 0;
        m = there ? m : 0;
        // Skin below the neckline is clothed; the field is the height above it.
        const bool clothed = m == skin_material && field[x] < 0;
        m = clothed ? static_cast<std::int32_t>(cloth_material) : m;
        const float tu = there ? std::clamp(u[x], 0.0F, static_cast<float>(atlas::width - 2)) : 0;
        const float tv = there ? std::clamp(v[x], 0.0F, static_cast<float>(atlas::height - 2)) : 0;
        const float code = bilinear(around.atlas, tu, tv);
        float stripe = field[x] * inverse_pitch;
        stripe = stripe - std::floor(stripe) < 0.5F ? 1.0F + around.stripes : 1.0F - around.stripes;
        stripe = clothed ? stripe : 1.0F;
        row.albedo[x] = fixed[m] < 0 ? code * code : fixed[m] * stripe;
        row.specular[x] = specular[m];
        row.gloss[x] = gloss[m];
        row.wrap[x] = wrap[m];
        row.rim[x] = rim[m];
    }
    if (around.stubble_density > 0) {
        for (int x = 0; x < width; ++x) {
            const bool skin = material[x] == skin_material;
            const float tu =
                skin ? std::clamp(u[x], 0.0F, static_cast<float>(atlas::width - 2)) : 0;
            const float tv =
                skin ? std::clamp(v[x], 0.0F, static_cast<float>(atlas::height - 2)) : 0;
            const float share = around.stubble_density * bilinear(around.stubble, tu, tv);
            row.albedo[x] *= skin ? 1.0F - share : 1.0F;
        }
    }
    if (infrared) {
        for (int x = 0; x < width; ++x) {
            const std::int32_t m = std::max(material[x], 0);
            row.albedo[x] =
                std::min(gain[m] * rough_power(std::max(row.albedo[x], 1e-4F), power[m]), 0.95F);
        }
    }
}

void find_shadow(Row& row, const Samples& s, int y, std::size_t at, const Camera& camera,
                 const Shadow* shadow, float softness) {
    const int width = s.width;
    if (shadow == nullptr) {
        std::fill(row.visible, row.visible + width, 1.0F);
        return;
    }
    // Position on the map is linear in the point, and the point is the ray times the depth.
    const float* depth = &s.depth[at];
    const float ray_y = (camera.centre_y - (static_cast<float>(y) + 0.5F)) / camera.scale;
    const float half = static_cast<float>(shadow->map.width) / 2;
    const float last = static_cast<float>(shadow->map.width - 1);
    const float bias = 0.03F + 0.5F * softness;
    const Vec3 a = shadow->across * shadow->per_dm, b = shadow->up * -shadow->per_dm;
    const Vec3 c = shadow->towards * -1.0F;
    const Vec3 middle = shadow->middle;
    const float* map = shadow->map.depth.data();
    const std::int32_t stride = shadow->map.stride;
    // Four taps whose offsets turn from sample to sample: noise that the 2 x 2 mean takes out.
    const float reach = softness * shadow->per_dm + 0.5F;
    for (int x = 0; x < width; ++x) {
        const bool there = depth[x] < 1e8F;
        const float d = there ? depth[x] : camera.distance;
        const float px =
            (static_cast<float>(x) + 0.5F - camera.centre_x) / camera.scale * d - middle.x;
        const float py = ray_y * d - middle.y;
        const float pz = camera.distance - d - middle.z;
        const float mx = half + px * a.x + py * a.y + pz * a.z;
        const float my = half + px * b.x + py * b.y + pz * b.z;
        const float md = px * c.x + py * c.y + pz * c.z - bias;
        const auto turn = static_cast<float>((x & 1) + 2 * (y & 1));
        const float cos_turn = 1.0F - 0.2F * turn, sin_turn = 0.3F * turn;
        float seen = 0;
        const auto tap = [&](float ox, float oy) {
            const float tx = std::clamp(mx + reach * (ox * cos_turn - oy * sin_turn), 0.0F, last);
            const float ty = std::clamp(my + reach * (ox * sin_turn + oy * cos_turn), 0.0F, last);
            return map[static_cast<std::int32_t>(ty) * stride + static_cast<std::int32_t>(tx)] > md
                       ? 0.25F
                       : 0.0F;
        };
        seen += tap(0.9F, 0.2F);
        seen += tap(-0.2F, 0.7F);
        seen += tap(-0.8F, -0.3F);
        seen += tap(0.2F, -0.5F);
        row.visible[x] = seen;
    }
}

void light_up(const Row& row, const Samples& s, std::size_t at, const Light& light, float* out) {
    const float* nx = &s.plane[at_nx][at];
    const float* ny = &s.plane[at_ny][at];
    const float* nz = &s.plane[at_nz][at];
    const float* occlusion = &s.plane[at_occlusion][at];
    const float* depth = &s.depth[at];
    const Lamp &one = light.lamps[0], &two = light.lamps[1];
    const Vec3 half_one = normalised(one.towards + Vec3{0, 0, 1});
    const Vec3 half_two = normalised(two.towards + Vec3{0, 0, 1});
    const Vec3 l1 = one.towards, l2 = two.towards, g = light.gradient;
    const float s1 = one.strength, s2 = two.strength, ambient = light.ambient, sky = light.sky,
                sides = light.across;
    for (int x = 0; x < s.width; ++x) {
        const float size = nx[x] * nx[x] + ny[x] * ny[x] + nz[x] * nz[x];
        const float inverse = 1.0F / std::sqrt(size + 1e-12F);
        const float a = nx[x] * inverse, b = ny[x] * inverse, c = nz[x] * inverse;
        const float around = ambient * std::max(0.12F, 1.0F + g.x * a + g.y * b + g.z * c +
                                                           sky * (3.0F * b * b - 1.0F) * 0.5F +
                                                           sides * (3.0F * a * a - 1.0F) * 0.5F);
        const float wrap = row.wrap[x], soft = 1.0F / (1.0F + wrap);
        const float d1 = std::max(0.0F, (a * l1.x + b * l1.y + c * l1.z + wrap) * soft);
        const float d2 = std::max(0.0F, (a * l2.x + b * l2.y + c * l2.z + wrap) * soft);
        const float h1 = std::max(0.0F, a * half_one.x + b * half_one.y + c * half_one.z);
        const float h2 = std::max(0.0F, a * half_two.x + b * half_two.y + c * half_two.z);
        const float m = row.gloss[x];
        // Schlick's stand-in for a power: x / (m - m x + x).
        const float q1 = h1 * h1, q2 = h2 * h2;
        const float p1 = q1 / (m - m * q1 + q1), p2 = q2 / (m - m * q2 + q2);
        const float away = 1.0F - std::max(c, 0.0F);
        const float shine = row.specular[x] * (1.0F + row.rim[x] * away * away * away);
        const float lit = s1 * row.visible[x];
        const float open = occlusion[x];
        const float from_lamps = lit * d1 + s2 * d2 * open;
        const float highlights = shine * (lit * p1 * std::min(1.0F, 4.0F * d1) +
                                          s2 * p2 * open * std::min(1.0F, 4.0F * d2)) +
                                 shine * 0.12F * around * open * away * away;
        const float value = row.albedo[x] * (around * open + from_lamps) + highlights;
        out[x] = depth[x] < 1e8F ? value : -1.0F;
    }
}

} // namespace

void Shadow::aim(Vec3 lamp, Vec3 at, float reach, int size) {
    towards = normalised(lamp);
    const Vec3 helper = std::fabs(towards.y) > 0.9F ? Vec3{0, 0, 1} : Vec3{0, 1, 0};
    across = normalised(cross(helper, towards));
    up = cross(towards, across);
    middle = at;
    map.clear(size, size);
    per_dm = static_cast<float>(size) / (2 * reach);
}

void shade(const Samples& samples, const Camera& camera, const Light& light, const Shadow* shadow,
           const Surroundings& surroundings, std::vector<float>& radiance) {
    Row row;
    radiance.resize(samples.depth.size());
    for (int y = 0; y < samples.height; ++y) {
        const std::size_t at =
            static_cast<std::size_t>(y) * static_cast<std::size_t>(samples.stride);
        look_up(row, samples, at, samples.width, surroundings, light.kind == LightKind::infrared);
        find_shadow(row, samples, y, at, camera, shadow, light.lamps[0].softness);
        light_up(row, samples, at, light, &radiance[at]);
    }
}

} // namespace facegen
