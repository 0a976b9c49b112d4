// SPDX-License-Identifier: MIT
// How a face is judged, against the plain definition: every measure through all of its ramp, and
// several at once.
#include "find/quality.h"

#include <gtest/gtest.h>

#include "find/settings.h"
#include "reference/reference_find_faces.h"
#include "support/random.h"

namespace {

using orvo::find::Judge;
using orvo::find::Measures;
using orvo::find::Ramp;
using orvo_reference::PlainMeasures;
using orvo_test::Random;

struct Measured {
    int32_t Measures::*value;
    int PlainMeasures::*plain;
    Ramp ramp;
};

constexpr Measured kMeasured[] = {
    {&Measures::side, &PlainMeasures::side, orvo::find::kSmallRamp},
    {&Measures::sharpness, &PlainMeasures::sharpness, orvo::find::kBlurredRamp},
    {&Measures::brightness, &PlainMeasures::brightness, orvo::find::kDarkRamp},
    {&Measures::white, &PlainMeasures::white, orvo::find::kOverexposedRamp},
    {&Measures::yaw, &PlainMeasures::yaw, orvo::find::kTurnedRamp},
    {&Measures::noseOff, &PlainMeasures::noseOff, orvo::find::kTiltedRamp},
    {&Measures::covered, &PlainMeasures::covered, orvo::find::kCoveredRamp},
    {&Measures::cutOff, &PlainMeasures::cutOff, orvo::find::kCutOffRamp},
    {&Measures::mouthOff, &PlainMeasures::mouthOff, orvo::find::kGrimacingRamp},
};

// A face with no flaw but those that are set.
struct Face {
    Measures measures{};
    PlainMeasures plain{};

    Face() {
        for (const Measured& measured : kMeasured) {
            Set(measured, measured.ramp.full);
        }
    }
    void Set(const Measured& measured, int value) {
        measures.*measured.value = value;
        plain.*measured.plain = value;
    }
    // The score is the least with this probability, as Measure() has it.
    void ExpectPlainQuality(int probability) {
        measures.score = orvo_reference::ScoreWith(probability);
        const auto expected = orvo_reference::PlainJudge(plain, probability);
        const auto quality = Judge(measures);
        EXPECT_EQ(quality.value, expected.value) << probability;
        EXPECT_EQ(quality.reasons, expected.reasons) << probability;
    }
};

TEST(Quality, IsThePlainOneThroughEveryRamp) {
    for (const Measured& measured : kMeasured) {
        const Ramp& ramp = measured.ramp;
        const int step = ramp.full > ramp.none ? 1 : -1;
        for (int value = ramp.none - 3 * step; value != ramp.full + 4 * step; value += step) {
            for (const int probability : {640, 700, 900, 1000, 1023, 1024}) {
                Face face;
                face.Set(measured, value);
                face.ExpectPlainQuality(probability);
            }
        }
    }
}

TEST(Quality, IsThePlainOneForEveryScore) {
    for (int probability = 1; probability <= 1024; ++probability) {
        Face face;
        face.ExpectPlainQuality(probability);
    }
}

TEST(Quality, IsThePlainOneOfSeveralFlaws) {
    Random random(8);
    for (int i = 0; i < 20000; ++i) {
        Face face;
        for (const Measured& measured : kMeasured) {
            const Ramp& ramp = measured.ramp;
            const int more = random.Between(-20, 120) * (ramp.full - ramp.none) / 100;
            face.Set(measured, ramp.none + more);
        }
        face.ExpectPlainQuality(random.Between(600, 1024));
    }
}

} // namespace
