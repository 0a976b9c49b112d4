// SPDX-License-Identifier: MIT
#include "render/degradation.h"

#include <algorithm>
#include <cmath>

#include "output/picture_files.h"
#include "vec3.h"

namespace facegen {
namespace {

std::size_t Index(int x, int y, int width) {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
           static_cast<std::size_t>(x);
}

void GaussianBlur(std::vector<float>& tones, int width, int height, float deviation) {
    const int r = std::clamp(static_cast<int>(std::ceil(2.5f * deviation)), 1, 16);
    float weight[33], total = 0;
    for (int i = -r; i <= r; ++i) {
        const float t = static_cast<float>(i) / deviation;
        weight[i + r] = std::exp(-0.5f * t * t);
        total += weight[i + r];
    }
    for (int i = 0; i <= 2 * r; ++i) {
        weight[i] /= total;
    }
    std::vector<float> other(tones.size());
    std::vector<float> padded(static_cast<std::size_t>(width + 2 * r));
    for (int y = 0; y < height; ++y) {
        const float* from = tones.data() + Index(0, y, width);
        for (int x = -r; x < width + r; ++x) {
            padded[static_cast<std::size_t>(x + r)] = from[std::clamp(x, 0, width - 1)];
        }
        float* to = other.data() + Index(0, y, width);
        std::fill(to, to + width, 0.0f);
        for (int i = 0; i <= 2 * r; ++i) {
            const float* shifted = padded.data() + i;
            for (int x = 0; x < width; ++x) {
                to[x] += weight[i] * shifted[x];
            }
        }
    }
    for (int y = 0; y < height; ++y) {
        float* to = tones.data() + Index(0, y, width);
        std::fill(to, to + width, 0.0f);
        for (int i = -r; i <= r; ++i) {
            const float* from = other.data() + Index(0, std::clamp(y + i, 0, height - 1), width);
            for (int x = 0; x < width; ++x) {
                to[x] += weight[i + r] * from[x];
            }
        }
    }
}

float Bilinear(const std::vector<float>& tones, int width, int height, float x, float y) {
    x = std::clamp(x, 0.0f, static_cast<float>(width - 1));
    y = std::clamp(y, 0.0f, static_cast<float>(height - 1));
    const int ix = std::min(static_cast<int>(x), width - 2),
              iy = std::min(static_cast<int>(y), height - 2);
    const float tx = x - static_cast<float>(ix), ty = y - static_cast<float>(iy);
    const float* upper = tones.data() + Index(ix, iy, width);
    return Mix(Mix(upper[0], upper[1], tx), Mix(upper[width], upper[width + 1], tx), ty);
}

void MotionBlur(std::vector<float>& tones, int width, int height, float reach, float angle) {
    const int taps = std::clamp(static_cast<int>(reach) + 1, 2, 12);
    const std::vector<float> from = tones;
    std::fill(tones.begin(), tones.end(), 0.0f);
    for (int k = 0; k < taps; ++k) {
        const float t = reach * (static_cast<float>(k) / static_cast<float>(taps - 1) - 0.5f);
        const float dx = t * std::cos(angle), dy = t * std::sin(angle);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                tones[Index(x, y, width)] +=
                    Bilinear(from, width, height, static_cast<float>(x) + dx,
                             static_cast<float>(y) + dy) /
                    static_cast<float>(taps);
            }
        }
    }
}

void ShrinkAndGrow(std::vector<float>& tones, int width, int height, float factor) {
    GaussianBlur(tones, width, height, 0.45f / factor);
    const int w = std::max(8, static_cast<int>(static_cast<float>(width) * factor));
    const int h = std::max(8, static_cast<int>(static_cast<float>(height) * factor));
    const float perX = static_cast<float>(width) / static_cast<float>(w);
    const float perY = static_cast<float>(height) / static_cast<float>(h);
    std::vector<float> small(static_cast<std::size_t>(w) * static_cast<std::size_t>(h));
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            small[Index(x, y, w)] =
                Bilinear(tones, width, height, (static_cast<float>(x) + 0.5f) * perX - 0.5f,
                         (static_cast<float>(y) + 0.5f) * perY - 0.5f);
        }
    }
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            tones[Index(x, y, width)] =
                Bilinear(small, w, h, (static_cast<float>(x) + 0.5f) / perX - 0.5f,
                         (static_cast<float>(y) + 0.5f) / perY - 0.5f);
        }
    }
}

// Sums of four bytes of random bits: close enough to normal, and quick.
inline float RoughNormal(std::uint32_t bits) {
    const auto sum = static_cast<std::int32_t>((bits & 0xff) + ((bits >> 8) & 0xff) +
                                               ((bits >> 16) & 0xff) + (bits >> 24));
    return static_cast<float>(sum - 510) * (1.0f / 147.8f);
}

void AddNoise(std::vector<float>& tones, float level, float sensor, Random& random) {
    const auto seed = static_cast<std::uint32_t>(random.Next());
    for (std::size_t i = 0; i < tones.size(); ++i) {
        std::uint32_t h = static_cast<std::uint32_t>(i) * 0x9e3779b9U ^ seed;
        h ^= h >> 16;
        h *= 0x7feb352dU;
        h ^= h >> 15;
        h *= 0x846ca68bU;
        h ^= h >> 16;
        tones[i] += RoughNormal(h) * (level + sensor * std::sqrt(std::max(tones[i], 0.0f)));
    }
}

} // namespace

Degradation DrawDegradation(bool dark, float unit, Random& random) {
    Degradation d;
    const float size = std::max(unit, 0.6f);
    if (random.Chance(0.6f)) {
        d.blur = size *
                 (random.Chance(0.14f) ? random.Uniform(0.8f, 1.8f) : random.Uniform(0.25f, 0.9f));
    }
    if (random.Chance(0.07f)) {
        d.motion = size * random.Uniform(1.5f, 5.0f);
        d.motionAngle = random.Uniform(0.0f, 3.14f);
    }
    if (random.Chance(0.18f)) {
        d.small = random.Uniform(0.42f, 0.9f);
    }
    if (random.Chance(0.75f)) {
        d.noise = random.Uniform(0.0f, 0.012f);
        d.sensorNoise = random.Uniform(0.0f, 0.02f);
    }
    if (dark || random.Chance(0.12f)) {
        d.noise += random.Uniform(0.0f, 0.02f);
        d.sensorNoise += random.Uniform(0.0f, 0.04f);
    }
    if (random.Chance(0.45f)) {
        d.jpeg = 30 + random.Below(66);
    }
    d.contrast = random.Uniform(0.75f, 1.15f);
    d.lift = random.Chance(0.4f) ? random.Uniform(0.0f, 0.12f) : 0.0f;
    return d;
}

void Degrade(std::vector<float>& tones, int width, int height, const Degradation& d, Random& random,
             std::uint8_t* pixels) {
    if (d.motion > 0) {
        MotionBlur(tones, width, height, d.motion, d.motionAngle);
    }
    if (d.blur > 0) {
        GaussianBlur(tones, width, height, d.blur);
    }
    if (d.small < 1) {
        ShrinkAndGrow(tones, width, height, d.small);
    }
    for (float& tone : tones) {
        tone = d.lift + (1.0f - d.lift) * ((tone - 0.5f) * d.contrast + 0.5f);
    }
    if (d.noise > 0 || d.sensorNoise > 0) {
        AddNoise(tones, d.noise, d.sensorNoise, random);
    }
    for (std::size_t i = 0; i < tones.size(); ++i) {
        pixels[i] = static_cast<std::uint8_t>(std::clamp(tones[i], 0.0f, 1.0f) * 255.0f + 0.5f);
    }
    if (d.jpeg > 0) {
        JpegRoundTrip(pixels, width, height, d.jpeg);
    }
}

} // namespace facegen
