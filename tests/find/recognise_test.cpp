// SPDX-License-Identifier: MIT
// What becomes of the recogniser's answers, with a recogniser that answers what a test says.
#include "find/recognise.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "orvo/orvo_fr.h"

namespace {

constexpr size_t kSide = 96, kCrop = kSide * kSide;

using Feature = std::array<float, 128>;

struct Recogniser {
    std::vector<Feature> answers; // one for each call
    std::vector<std::vector<uint8_t>> shown;
};
Recogniser g_recogniser;
std::vector<uint8_t> g_image(3 * kCrop);

} // namespace

// In front of libkova_fr's own.
void FrRun(uint8_t* image) {
    g_recogniser.shown.emplace_back(image, image + 3 * kCrop);
    ASSERT_LE(g_recogniser.shown.size(), g_recogniser.answers.size());
}
float* FrGetOutput(void) { return g_recogniser.answers[g_recogniser.shown.size() - 1].data(); }

namespace {

class Recognise : public testing::Test {
  protected:
    void SetUp() override {
        g_frInnerImage = g_image.data();
        for (size_t i = 0; i < kCrop; ++i) {
            crop_[i] = static_cast<uint8_t>(i * 7 + i / kSide);
        }
        g_recogniser = {};
    }
    void TearDown() override { g_frInnerImage = nullptr; }

    // A feature in the direction of two axes.
    static Feature Along(size_t first, float one, size_t second, float other) {
        Feature feature = {};
        feature[first] = one;
        feature[second] = other;
        return feature;
    }

    // With a feature that is there and what is answered of the mirror image.
    void TakeMirrored(const Feature& feature, const Feature& answer) {
        feature_ = feature;
        g_recogniser = {{answer}, {}};
        orvo::find::TakeMirrored(crop_.data(), feature_.data());
    }

    std::vector<uint8_t> crop_ = std::vector<uint8_t>(kCrop);
    Feature feature_ = {};
};

TEST_F(Recognise, ShowsTheCropThreeTimesAndAnswersWhatIsAnswered) {
    g_recogniser.answers = {Along(3, 0.6f, 127, -0.8f)};
    const std::vector<uint8_t> before = crop_;
    orvo::find::Recognise(crop_.data(), feature_.data());
    EXPECT_EQ(feature_, g_recogniser.answers[0]);
    EXPECT_EQ(crop_, before);
    ASSERT_EQ(g_recogniser.shown.size(), 1u);
    for (size_t plane = 0; plane < 3; ++plane) {
        EXPECT_EQ(std::memcmp(&g_recogniser.shown[0][plane * kCrop], before.data(), kCrop), 0);
    }
}

TEST_F(Recognise, MirroredShowsTheMirrorImage) {
    const std::vector<uint8_t> before = crop_;
    TakeMirrored(Along(0, 1, 1, 0), Along(0, 1, 1, 0));
    ASSERT_EQ(g_recogniser.shown.size(), 1u);
    for (size_t i = 0; i < 3 * kCrop; ++i) {
        const size_t at = i % kCrop, column = at % kSide;
        ASSERT_EQ(g_recogniser.shown[0][i], before[at - column + kSide - 1 - column]) << i;
    }
}

TEST_F(Recognise, MirroredIsTheMeanDirectionOfBoth) {
    TakeMirrored(Along(0, 1, 1, 0), Along(1, 1, 2, 0));
    const auto half = static_cast<float>(1 / std::sqrt(2.0));
    EXPECT_EQ(feature_, Along(0, half, 1, half));

    TakeMirrored(Along(5, 0.6f, 127, 0.8f), Along(5, 0.6f, 127, 0.8f));
    EXPECT_FLOAT_EQ(feature_[5], 0.6f);
    EXPECT_FLOAT_EQ(feature_[127], 0.8f);
}

TEST_F(Recognise, OppositeAnswersHaveNoMeanAndTheFirstStays) {
    TakeMirrored(Along(0, 0.6f, 9, -0.8f), Along(0, -0.6f, 9, 0.8f));
    EXPECT_EQ(feature_, Along(0, 0.6f, 9, -0.8f));
}

// Nearly opposite ones, whose squares would be nothing in single precision.
TEST_F(Recognise, WhatIsLeftOfNearlyOppositeAnswersIsTheMean) {
    const float least = std::numeric_limits<float>::min();
    TakeMirrored(Along(0, 1, 9, least), Along(0, -1, 9, least));
    EXPECT_EQ(feature_, Along(0, 0, 9, 1));
}

} // namespace
