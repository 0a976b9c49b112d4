// SPDX-License-Identifier: MIT
#include "tools/seed_models/pictures.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "tools/seed_models/random.h"

namespace orvo::seed {
namespace {

constexpr int kSamples = 4; // for one pixel, in each direction

struct Spot {
    double x, y;   // centre
    double rx, ry; // radii
    double tone;   // added inside
};

struct Portrait {
    double level, slopeX, slopeY; // background
    std::vector<Spot> spots;
};

double Between(Random* random, double low, double high) {
    return low + (high - low) * random->Uniform();
}

Portrait MakePortrait(Random* random) {
    Portrait portrait = {
        Between(random, 60, 180), Between(random, -60, 60), Between(random, -60, 60), {}};
    const double x = Between(random, 0.46, 0.54);
    const double y = Between(random, 0.46, 0.54);
    const double rx = Between(random, 0.26, 0.36);
    const double ry = Between(random, 0.32, 0.44);
    portrait.spots.push_back({x, y, rx, ry, Between(random, -60, 70)});
    // Light from one side.
    portrait.spots.push_back(
        {x + Between(random, -0.5, 0.5) * rx, y, rx / 2, ry / 2, Between(random, -30, 30)});
    const double eyeY = y - Between(random, 0.15, 0.4) * ry;
    const double eyeX = Between(random, 0.3, 0.55) * rx;
    const double eyeSize = Between(random, 0.1, 0.25) * rx;
    const double eyeTone = Between(random, -110, -40);
    const double browY = eyeY - Between(random, 0.12, 0.3) * ry;
    const double browTone = Between(random, -90, 0);
    for (const double side : {-1.0, 1.0}) {
        portrait.spots.push_back({x + side * eyeX, eyeY, eyeSize, eyeSize * 0.6, eyeTone});
        portrait.spots.push_back({x + side * eyeX, browY, eyeSize * 1.5, 0.025, browTone});
    }
    portrait.spots.push_back(
        {x, y + Between(random, 0.05, 0.2) * ry, 0.12 * rx, 0.2 * ry, Between(random, -40, 40)});
    portrait.spots.push_back({x, y + Between(random, 0.4, 0.65) * ry,
                              Between(random, 0.2, 0.5) * rx, Between(random, 0.04, 0.14) * ry,
                              Between(random, -90, -20)});
    portrait.spots.push_back({x, y - ry, rx * Between(random, 0.7, 1.2),
                              Between(random, 0.2, 0.6) * ry, Between(random, -120, 40)});
    return portrait;
}

double ToneAt(const Portrait& portrait, double x, double y) {
    double tone = portrait.level + portrait.slopeX * (x - 0.5) + portrait.slopeY * (y - 0.5);
    for (const Spot& spot : portrait.spots) {
        const double dx = (x - spot.x) / spot.rx;
        const double dy = (y - spot.y) / spot.ry;
        const double d = dx * dx + dy * dy;
        tone += spot.tone / (1.0 + d * d * d * d); // flat inside, soft at the edge
    }
    return tone;
}

double PixelTone(const Portrait& portrait, double x, double y, double width, double height) {
    double sum = 0;
    for (int i = 0; i < kSamples; ++i) {
        for (int j = 0; j < kSamples; ++j) {
            sum += ToneAt(portrait, x + width * (j + 0.5) / kSamples,
                          y + height * (i + 0.5) / kSamples);
        }
    }
    return sum / (kSamples * kSamples);
}

} // namespace

Batch DrawPictures(int pictures, int channels, int size, const Window& window) {
    Batch batch(pictures, channels, size);
    const double width = (window.right - window.left) / size;
    const double height = (window.bottom - window.top) / size;
    for (int p = 0; p < pictures; ++p) {
        Random random(1000u + static_cast<unsigned>(p));
        const Portrait portrait = MakePortrait(&random);
        const double grain = Between(&random, 0, 6);
        int8_t* first = batch.Plane(p, 0);
        for (int y = 0; y < size; ++y) {
            for (int x = 0; x < size; ++x) {
                const double tone = PixelTone(portrait, window.left + x * width,
                                              window.top + y * height, width, height) +
                                    grain * random.Normal();
                first[y * size + x] =
                    static_cast<int8_t>(std::lround(std::clamp(tone, 0.0, 255.0)) - 128);
            }
        }
        for (int c = 1; c < channels; ++c) {
            std::copy_n(first, batch.PlaneLength(), batch.Plane(p, c));
        }
    }
    return batch;
}

} // namespace orvo::seed
