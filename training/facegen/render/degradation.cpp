// SPDX-License-Identifier: MIT
#include "render/degradation.h"

#include <algorithm>
#include <cmath>

#include "output/picture_files.h"
#include "vec3.h"

namespace facegen {
namespace {

std::size_t index(int x, int y, int width) {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
           static_cast<std::size_t>(x);
}

void gaussian_blur(std::vector<float>& tones, int width, int height, float deviation) {
    const int r = std::clamp(static_cast<int>(std::ceil(2.5F * deviation)), 1, 16);
    float weight[33], total = 0;
    for (int i = -r; i <= r; ++i) {
        const float t = static_cast<float>(i) / deviation;
        weight[i + r] = std::exp(-0.5F * t * t);
        total += weight[i + r];
    }
    for (int i = 0; i <= 2 * r; ++i) {
        weight[i] /= total;
    }
    std::vector<float> other(tones.size());
    std::vector<float> padded(static_cast<std::size_t>(width + 2 * r));
    for (int y = 0; y < height; ++y) {
        const float* from = tones.data() + index(0, y, width);
        for (int x = -r; x < width + r; ++x) {
            padded[static_cast<std::size_t>(x + r)] = from[std::clamp(x, 0, width - 1)];
        }
        float* to = other.data() + index(0, y, width);
        std::fill(to, to + width, 0.0F);
        for (int i = 0; i <= 2 * r; ++i) {
            const float* shifted = padded.data() + i;
            for (int x = 0; x < width; ++x) {
                to[x] += weight[i] * shifted[x];
            }
        }
    }
    for (int y = 0; y < height; ++y) {
        float* to = tones.data() + index(0, y, width);
        std::fill(to, to + width, 0.0F);
        for (int i = -r; i <= r; ++i) {
            const float* from = other.data() + index(0, std::clamp(y + i, 0, height - 1), width);
            for (int x = 0; x < width; ++x) {
                to[x] += weight[i + r] * from[x];
            }
        }
    }
}

float bilinear(const std::vector<float>& tones, int width, int height, float x, float y) {
    x = std::clamp(x, 0.0F, static_cast<float>(width - 1));
    y = std::clamp(y, 0.0F, static_cast<float>(height - 1));
    const int ix = std::min(static_cast<int>(x), width - 2),
              iy = std::min(static_cast<int>(y), height - 2);
    const float tx = x - static_cast<float>(ix), ty = y - static_cast<float>(iy);
    const float* upper = tones.data() + index(ix, iy, width);
    return mix(mix(upper[0], upper[1], tx), mix(upper[width], upper[width + 1], tx), ty);
}

void motion_blur(std::vector<float>& tones, int width, int height, float reach, float angle) {
    const int taps = std::clamp(static_cast<int>(reach) + 1, 2, 12);
    const std::vector<float> from = tones;
    std::fill(tones.begin(), tones.end(), 0.0F);
    for (int k = 0; k < taps; ++k) {
        const float t = reach * (static_cast<float>(k) / static_cast<float>(taps - 1) - 0.5F);
        const float dx = t * std::cos(angle), dy = t * std::sin(angle);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                tones[index(x, y, width)] +=
                    bilinear(from, width, height, static_cast<float>(x) + dx,
                             static_cast<float>(y) + dy) /
                    static_cast<float>(taps);
            }
        }
    }
}

void shrink_and_grow(std::vector<float>& tones, int width, int height, float factor) {
    gaussian_blur(tones, width, height, 0.45F / factor);
    const int w = std::max(8, static_cast<int>(static_cast<float>(width) * factor));
    const int h = std::max(8, static_cast<int>(static_cast<float>(height) * factor));
    const float per_x = static_cast<float>(width) / static_cast<float>(w);
    const float per_y = static_cast<float>(height) / static_cast<float>(h);
    std::vector<float> small(static_cast<std::size_t>(w) * static_cast<std::size_t>(h));
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            small[index(x, y, w)] =
                bilinear(tones, width, height, (static_cast<float>(x) + 0.5F) * per_x - 0.5F,
                         (static_cast<float>(y) + 0.5F) * per_y - 0.5F);
        }
    }
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            tones[index(x, y, width)] =
                bilinear(small, w, h, (static_cast<float>(x) + 0.5F) / per_x - 0.5F,
                         (static_cast<float>(y) + 0.5F) / per_y - 0.5F);
        }
    }
}

// Sums of four bytes of random bits: close enough to normal, and quick.
inline float rough_normal(std::uint32_t bits) {
    const auto sum = static_cast<std::int32_t>((bits & 0xff) + ((bits >> 8) & 0xff) +
                                               ((bits >> 16) & 0xff) + (bits >> 24));
    return static_cast<float>(sum - 510) * (1.0F / 147.8F);
}

void add_noise(std::vector<float>& tones, float level, float sensor, Random& random) {
    const auto seed = static_cast<std::uint32_t>(random.next());
    for (std::size_t i = 0; i < tones.size(); ++i) {
        std::uint32_t h = static_cast<std::uint32_t>(i) * 0x9e3779b9U ^ seed;
        h ^= h >> 16;
        h *= 0x7feb352dU;
        h ^= h >> 15;
        h *= 0x846ca68bU;
        h ^= h >> 16;
        tones[i] += rough_normal(h) * (level + sensor * std::sqrt(std::max(tones[i], 0.0F)));
    }
}

} // namespace

Degradation draw_degradation(bool dark, float unit, Random& random) {
    Degradation d;
    const float size = std::max(unit, 0.6F);
    if (random.chance(0.6F)) {
        d.blur = size *
                 (random.chance(0.14F) ? random.uniform(0.8F, 1.8F) : random.uniform(0.25F, 0.9F));
    }
    if (random.chance(0.07F)) {
        d.motion = size * random.uniform(1.5F, 5.0F);
        d.motion_angle = random.uniform(0.0F, 3.14F);
    }
    if (random.chance(0.18F)) {
        d.small = random.uniform(0.42F, 0.9F);
    }
    if (random.chance(0.75F)) {
        d.noise = random.uniform(0.0F, 0.012F);
        d.sensor_noise = random.uniform(0.0F, 0.02F);
    }
    if (dark || random.chance(0.12F)) {
        d.noise += random.uniform(0.0F, 0.02F);
        d.sensor_noise += random.uniform(0.0F, 0.04F);
    }
    if (random.chance(0.45F)) {
        d.jpeg = 30 + random.below(66);
    }
    d.contrast = random.uniform(0.75F, 1.15F);
    d.lift = random.chance(0.4F) ? random.uniform(0.0F, 0.12F) : 0.0F;
    return d;
}

void degrade(std::vector<float>& tones, int width, int height, const Degradation& d, Random& random,
             std::uint8_t* pixels) {
    if (d.motion > 0) {
        motion_blur(tones, width, height, d.motion, d.motion_angle);
    }
    if (d.blur > 0) {
        gaussian_blur(tones, width, height, d.blur);
    }
    if (d.small < 1) {
        shrink_and_grow(tones, width, height, d.small);
    }
    for (float& tone : tones) {
        tone = d.lift + (1.0F - d.lift) * ((tone - 0.5F) * d.contrast + 0.5F);
    }
    if (d.noise > 0 || d.sensor_noise > 0) {
        add_noise(tones, d.noise, d.sensor_noise, random);
    }
    for (std::size_t i = 0; i < tones.size(); ++i) {
        pixels[i] = static_cast<std::uint8_t>(std::clamp(tones[i], 0.0F, 1.0F) * 255.0F + 0.5F);
    }
    if (d.jpeg > 0) {
        jpeg_round_trip(pixels, width, height, d.jpeg);
    }
}

} // namespace facegen
