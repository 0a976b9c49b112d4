// SPDX-License-Identifier: MIT
#include "light/environment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

namespace facegen {
namespace {

constexpr int kWidth = 64, kHeight = 32;

// A panorama of one grey level, but for one pixel that is 2^`exponent` times as bright.
std::string Panorama(int brightX, int brightY, int exponent) {
    std::string bytes = "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 32 +X 64\n";
    for (int y = 0; y < kHeight; ++y) {
        bytes += {2, 2, 0, kWidth};
        for (int channel = 0; channel < 3; ++channel) { // a run each
            bytes += {static_cast<char>(128 + kWidth), static_cast<char>(128)};
        }
        bytes += static_cast<char>(kWidth); // and a stretch
        for (int x = 0; x < kWidth; ++x) {
            bytes += static_cast<char>(x == brightX && y == brightY ? 128 + exponent : 128);
        }
    }
    return bytes;
}

TEST(Environment, EvenLightIsTheSameFromEverywhere) {
    const Environment even = ParseEnvironment(Panorama(-1, 0, 0), "even");
    EXPECT_EQ(even.width, kWidth);
    EXPECT_EQ(even.height, kHeight);
    EXPECT_NEAR(even.radiance[100], 1.0f, 0.01f);
    EXPECT_EQ(even.lamps[0].strength, 0.0f);
    Light light;
    LightBy(light, even, 0.7f);
    EXPECT_TRUE(light.hasField);
    EXPECT_EQ(light.kind, LightKind::kSoft);
    EXPECT_NEAR(light.field[0], 1.0f, 0.04f);
    for (std::size_t i = 1; i < light.field.size(); ++i) {
        EXPECT_NEAR(light.field[i], 0.0f, 0.04f) << i;
    }
}

TEST(Environment, TheBrightestPlaceIsALampThatTurnsWithThePanorama) {
    const Environment sunny = ParseEnvironment(Panorama(48, 12, 12), "sunny");
    EXPECT_NEAR(sunny.lamps[0].azimuth, std::numbers::pi_v<float> / 2, 0.1f);
    EXPECT_NEAR(sunny.lamps[0].elevation, 0.34f, 0.1f);
    EXPECT_GT(sunny.lamps[0].strength, 0.5f);
    EXPECT_EQ(sunny.lamps[1].strength, 0.0f);
    Light light;
    LightBy(light, sunny, 0);
    EXPECT_EQ(light.kind, LightKind::kSide);
    EXPECT_GT(light.lamps[0].towards.x, 0.9f);
    LightBy(light, sunny, -std::numbers::pi_v<float> / 2);
    EXPECT_EQ(light.kind, LightKind::kHard);
    EXPECT_GT(light.lamps[0].towards.z, 0.9f);
}

TEST(Environment, ACameraSeesWhatLiesBehindTheFace) {
    // It looks towards -z, where the panorama's first and last columns are.
    const Environment lit = ParseEnvironment(Panorama(0, 15, 6), "lit");
    std::vector<float> tones;
    Look(lit, 0, 0, 0.3f, tones, 32, 32);
    const float seen = *std::max_element(tones.begin(), tones.end());
    Look(lit, 3.1f, 0, 0.3f, tones, 32, 32);
    const float turned = *std::max_element(tones.begin(), tones.end());
    EXPECT_GT(seen, 10 * turned);
}

TEST(Environment, WhatIsNoPanoramaIsRefused) {
    const std::string good = Panorama(-1, 0, 0);
    EXPECT_THROW(ParseEnvironment("", "empty"), std::runtime_error);
    EXPECT_THROW(ParseEnvironment("P5\n\n8 8\n", "other"), std::runtime_error);
    EXPECT_THROW(ParseEnvironment(good.substr(0, good.size() - 1), "cut"), std::runtime_error);
    EXPECT_THROW(ParseEnvironment("#?RADIANCE\n\n+Y 32 +X 64\n", "turned"), std::runtime_error);
    std::string flat = good;
    flat[flat.find("+X 64\n") + 6] = 3;
    EXPECT_THROW(ParseEnvironment(flat, "flat"), std::runtime_error);
    std::string long_run = good;
    long_run[long_run.find("+X 64\n") + 10] = static_cast<char>(129 + kWidth);
    EXPECT_THROW(ParseEnvironment(long_run, "long"), std::runtime_error);
}

} // namespace
} // namespace facegen
