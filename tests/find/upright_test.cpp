// SPDX-License-Identifier: MIT
// Turning upright and judging.
#include "find/upright.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <iterator>
#include <vector>

#include "find/picture_rows.h"
#include "find/plain_picture.h"
#include "find/quality.h"
#include "fr_demo/step_digest.h"
#include "reference/reference_find_faces.h"
#include "support/random.h"

namespace {

using orvo::find::AxisOf;
using orvo::find::CanTurnUpright;
using orvo::find::FoundFace;
using orvo::find::Judge;
using orvo::find::Measure;
using orvo::find::Measures;
using orvo::find::Quality;
using orvo::find::RollOf;
using orvo::find::RowRoomBytes;
using orvo::find::Upright;
using orvo::find::UprightBytes;
using orvo_reference::Grey;
using orvo_reference::PlainBox;
using orvo_reference::PlainFace;
using orvo_test::GuardedBuffer;
using orvo_test::GuardedPicture;
using orvo_test::Random;

constexpr double kPi = 3.14159265358979323846;

// A face with its middle at (x, y) that leans by `roll` degrees.
OrvoFindFace Leaning(float x, float y, float side, double roll) {
    OrvoFindFace face{};
    face.left = x - side / 2;
    face.top = y - side / 2;
    face.side = side;
    const double upright[5][2] = {
        {-0.2, -0.15}, {0.2, -0.15}, {0, 0.05}, {-0.15, 0.25}, {0.15, 0.25}};
    for (int i = 0; i < 5; ++i) {
        const double c = std::cos(roll * kPi / 180);
        const double s = std::sin(roll * kPi / 180);
        const auto [u, v] = std::pair(upright[i][0] * side, upright[i][1] * side);
        face.points[i] = {x + static_cast<float>(c * u - s * v),
                          y + static_cast<float>(s * u + c * v)};
    }
    return face;
}

PlainBox BoxOf(const OrvoFindFace& face) {
    PlainBox box{face.left, face.top, face.side, {}};
    for (int i = 0; i < 5; ++i) {
        box.points[2 * i] = face.points[i].x;
        box.points[2 * i + 1] = face.points[i].y;
    }
    return box;
}

std::vector<uint8_t> Crop(const Grey& grey, const OrvoFindFace& face) {
    const GuardedPicture picture(grey, grey.width + 3);
    GuardedBuffer floats(UprightBytes());
    GuardedBuffer room(RowRoomBytes(grey.width));
    GuardedBuffer crop(96 * 96);
    EXPECT_TRUE(CanTurnUpright(*picture, face));
    Upright(*picture, face, floats.as<float>(), room.bytes(), crop.bytes());
    return {crop.bytes(), crop.bytes() + crop.size()};
}

TEST(Upright, OfAnUprightFaceOfItsOwnSizeCopiesPixels) {
    const Grey grey = orvo_reference::SeededGrey(1, 200, 180);
    const std::vector<uint8_t> crop = Crop(grey, Leaning(20 + 48, 31 + 48, 96, 0));
    for (int y = 0; y < 96; ++y) {
        for (int x = 0; x < 96; ++x) {
            ASSERT_EQ(crop[static_cast<size_t>(y * 96 + x)], grey.at(20 + x, 31 + y));
        }
    }
}

// Positive roll: clockwise as it is seen, the head leans to the right of the picture.
TEST(Upright, TurnsAQuarterAndAHalf) {
    const Grey grey = orvo_reference::SeededGrey(0, 200, 180);
    const auto expectTurned = [&](const OrvoFindFace& face, auto sourceOf) {
        const std::vector<uint8_t> crop = Crop(grey, face);
        for (int y = 0; y < 96; ++y) {
            for (int x = 0; x < 96; ++x) {
                const auto [column, row] = sourceOf(x, y);
                ASSERT_NEAR(crop[static_cast<size_t>(y * 96 + x)], grey.at(20 + column, 31 + row),
                            1);
            }
        }
    };
    expectTurned(Leaning(68, 79, 96, 90), [](int x, int y) { return std::pair(95 - y, x); });
    expectTurned(Leaning(68, 79, 96, -90), [](int x, int y) { return std::pair(y, 95 - x); });
    expectTurned(Leaning(68, 79, 96, 180), [](int x, int y) { return std::pair(95 - x, 95 - y); });
}

TEST(Upright, IsTheReferencesToAGreyLevelWhereverTheFaceLies) {
    Random random(8);
    for (int i = 0; i < 120; ++i) {
        const Grey grey =
            orvo_reference::SeededGrey(i % 2, random.Between(24, 260), random.Between(24, 260));
        const int smaller = std::min(grey.width, grey.height);
        const float side = 0.25f * static_cast<float>(random.Between(4, 4 * 4 * smaller));
        const float x = 0.25f * static_cast<float>(random.Between(-200, 4 * grey.width + 200));
        const float y = 0.25f * static_cast<float>(random.Between(-200, 4 * grey.height + 200));
        const OrvoFindFace face = Leaning(x, y, side, random.Between(-180, 180));
        const std::vector<uint8_t> crop = Crop(grey, face);
        const std::vector<double> expected = orvo_reference::PlainUpright(grey, BoxOf(face));
        for (size_t pixel = 0; pixel < crop.size(); ++pixel) {
            ASSERT_NEAR(crop[pixel], expected[pixel], 0.52)
                << i << ": pixel " << pixel << ", side " << side << " at " << x << ", " << y;
        }
    }
}

// The same bytes on every machine.
TEST(Upright, GivesTheGoldenBytes) {
    constexpr uint64_t kGolden[] = {8134105748151424011u, 12543679334934897682u,
                                    17450794949388331908u};
    const Grey grey = orvo_reference::SeededGrey(0, 231, 187);
    const OrvoFindFace faces[] = {Leaning(100.25f, 80.5f, 41.75f, 0), Leaning(30, 170, 120.5f, 0),
                                  Leaning(115.5f, 90, 700, 0)};
    std::vector<uint64_t> digests;
    for (OrvoFindFace face : faces) {
        // Numbers that need no library's sine.
        face.points[1].y += face.side / 8;
        face.points[3].x -= face.side / 16;
        const std::vector<uint8_t> crop = Crop(grey, face);
        digests.push_back(orvo_test::Digest(crop.data(), crop.size()));
    }
    EXPECT_EQ(digests, std::vector<uint64_t>(std::begin(kGolden), std::end(kGolden)));
}

TEST(Upright, RollIsTheArcTangentsToAThousandth) {
    for (int roll = -179; roll <= 180; ++roll) {
        const OrvoFindFace face = Leaning(100, 100, 80, roll);
        EXPECT_NEAR(RollOf(AxisOf(face)), orvo_reference::PlainRoll(BoxOf(face)), 1e-3) << roll;
        EXPECT_NEAR(RollOf(AxisOf(face)), roll, 1e-3);
    }
}

TEST(Upright, FaceInProfileIsTurnedByTheLineFromEyesToMouth) {
    OrvoFindFace face = Leaning(100, 100, 80, 30);
    const OrvoFindPoint middle = {(face.points[0].x + face.points[1].x) / 2,
                                  (face.points[0].y + face.points[1].y) / 2};
    face.points[0] = face.points[1] = middle;
    EXPECT_NEAR(RollOf(AxisOf(face)), orvo_reference::PlainRoll(BoxOf(face)), 1e-3);
    EXPECT_NEAR(RollOf(AxisOf(face)), 30, 1e-3);
}

TEST(Upright, PointsThatAreOneLeaveTheFaceAsItIs) {
    OrvoFindFace face = Leaning(100, 100, 80, 30);
    std::fill(std::begin(face.points), std::end(face.points), OrvoFindPoint{50, 50});
    EXPECT_EQ(RollOf(AxisOf(face)), 0.0f);
}

TEST(Upright, RefusesNumbersThatItCannotReach) {
    const OrvoFindPicture picture = {nullptr, 100, 40, 100};
    const OrvoFindFace good = Leaning(50, 20, 30, 10);
    EXPECT_TRUE(CanTurnUpright(picture, good));
    for (const float wrong : {NAN, INFINITY, -INFINITY, 65537.0f, -65537.0f, 1e30f}) {
        for (int number = 0; number < 13; ++number) {
            OrvoFindFace face = good;
            float* const numbers[] = {&face.left,        &face.top,         &face.side,
                                      &face.points[0].x, &face.points[0].y, &face.points[1].x,
                                      &face.points[1].y, &face.points[2].x, &face.points[2].y,
                                      &face.points[3].x, &face.points[3].y, &face.points[4].x,
                                      &face.points[4].y};
            *numbers[number] = wrong;
            EXPECT_FALSE(CanTurnUpright(picture, face)) << number << " is " << wrong;
        }
    }
    OrvoFindFace face = good;
    for (const auto& [side, can] : {std::pair(0.0f, false),
                                    {-1.0f, false},
                                    {0.99f, false},
                                    {1.0f, true},
                                    {64.0f * 40, true},
                                    {64.0f * 40 + 1, false}}) {
        face.side = side;
        EXPECT_EQ(CanTurnUpright(picture, face), can) << side;
    }
}

// The largest face and the smallest picture that are allowed.
TEST(Upright, LargestFacesStayInsideTheirMemory) {
    for (const int smaller : {24, 31, 32, 47, 63, 64}) {
        const Grey grey = orvo_reference::SeededGrey(1, smaller, 300);
        const float side = 64.0f * static_cast<float>(smaller);
        for (const float at : {-60000.0f, 10.0f, 60000.0f}) {
            EXPECT_EQ(Crop(grey, Leaning(at, 150, side, 45)).size(), 96u * 96u);
        }
    }
}

// ---- Quality

PlainFace RandomFace(Random& random, int width, int height) {
    PlainFace face{};
    face.x = random.Between(0, 4 * width);
    face.y = random.Between(0, 4 * height);
    face.side = random.Between(40, 4 * width);
    for (int i = 0; i < 10; ++i) {
        const int64_t middle = i % 2 == 0 ? face.x : face.y;
        const int64_t down = i % 2 == 0 ? 0 : (i / 2 - 2) * face.side / 8;
        face.points[i] = middle + down + random.Between(-20, 20);
    }
    face.yaw = random.Between(-128, 127);
    face.covered = random.Between(-128, 127);
    face.probability = orvo_reference::PlainProbability(random.Between(9, 110));
    return face;
}

FoundFace FoundOf(const PlainFace& plain) {
    FoundFace found{};
    found.face.x = static_cast<int32_t>(plain.x);
    found.face.y = static_cast<int32_t>(plain.y);
    found.face.side = static_cast<int32_t>(plain.side);
    for (int i = 0; i < 10; ++i) {
        found.face.points[i] = static_cast<int32_t>(plain.points[i]);
    }
    found.face.yaw = static_cast<int32_t>(plain.yaw);
    found.face.covered = static_cast<int32_t>(plain.covered);
    found.probability = plain.probability;
    return found;
}

// From flat over soft to noise, dark and bright.
std::vector<uint8_t> RandomCrop(Random& random) {
    const int middle = random.Between(0, 255);
    const int spread = random.Between(0, 200);
    const int step = random.Between(1, 12);
    std::vector<uint8_t> crop;
    for (int i = 0; i < 96 * 96; ++i) {
        const int wave = (i % 96 / step * 37 + i / 96 / step * 61) % (spread + 1);
        crop.push_back(static_cast<uint8_t>(std::clamp(middle + wave - spread / 2, 0, 255)));
    }
    return crop;
}

TEST(FindQuality, MeasuresAreTheReferences) {
    Random random(9);
    for (int i = 0; i < 300; ++i) {
        const PlainFace face = RandomFace(random, 200, 150);
        const std::vector<uint8_t> crop = RandomCrop(random);
        const Measures measures = Measure(FoundOf(face), {200, 150}, crop.data());
        const auto expected = orvo_reference::PlainMeasure(face, 200, 150, crop.data());
        EXPECT_EQ(measures.side, expected.side);
        EXPECT_EQ(measures.sharpness, expected.sharpness);
        EXPECT_EQ(measures.brightness, expected.brightness);
        EXPECT_EQ(measures.white, expected.white);
        EXPECT_EQ(measures.yaw, expected.yaw);
        EXPECT_EQ(measures.noseOff, expected.noseOff);
        EXPECT_EQ(measures.covered, expected.covered);
        EXPECT_EQ(measures.cutOff, expected.cutOff);
        EXPECT_EQ(measures.mouthOff, expected.mouthOff);
        EXPECT_EQ(orvo_reference::PlainProbability(measures.score), face.probability);
        const Quality quality = Judge(measures);
        const auto judged = orvo_reference::PlainJudge(expected, face.probability);
        EXPECT_EQ(quality.value, judged.value);
        EXPECT_EQ(quality.reasons, judged.reasons);
    }
}

// There is no line from eyes to mouth along which the nose could lie.
TEST(FindQuality, PointsThatAreOneAreAFaceLookingUpOrDown) {
    FoundFace found{};
    found.face.side = 400;
    std::fill(std::begin(found.face.points), std::end(found.face.points), 200);
    const std::vector<uint8_t> crop(96 * 96, 128);
    const Measures measures = Measure(found, {200, 150}, crop.data());
    EXPECT_EQ(measures.noseOff, orvo::find::kTiltedRamp.none);
    EXPECT_NE(Judge(measures).reasons & ORVO_FIND_TILTED, 0u);
}

// Eyes of 400 quarter pixels' distance and a mouth of that width, on a head that is turned so far.
int32_t MouthOffOf(int32_t width, int32_t yaw) {
    FoundFace found{};
    found.face = {1000, 1000,
                  1000, {800, 900, 1200, 900, 1000, 1000, 1000, 1200, 1000 + width, 1200},
                  yaw,  -128};
    const std::vector<uint8_t> crop(96 * 96, 128);
    return Measure(found, {500, 500}, crop.data()).mouthOff;
}

TEST(FindQuality, AMouthCountsByItsWidthAndLessOnATurnedHead) {
    constexpr int32_t kAtRest = 4 * orvo::find::kMouthPlace;
    EXPECT_EQ(MouthOffOf(kAtRest, 0), 0);
    EXPECT_EQ(MouthOffOf(kAtRest + 80, 0), 20);
    EXPECT_EQ(MouthOffOf(kAtRest - 80, 0), 20);
    EXPECT_EQ(MouthOffOf(0, 0), orvo::find::kMouthPlace);
    EXPECT_EQ(MouthOffOf(4000, 0), 100);
    for (const int32_t sign : {-1, 1}) {
        EXPECT_EQ(MouthOffOf(kAtRest + 80, 40 * sign), 20) << "30 degrees";
        EXPECT_EQ(MouthOffOf(kAtRest + 80, 50 * sign), 10) << "37.5 degrees";
        EXPECT_EQ(MouthOffOf(kAtRest + 80, 60 * sign), 0) << "45 degrees";
        EXPECT_EQ(MouthOffOf(kAtRest + 80, 127 * sign), 0);
    }
}

// Nothing wrong with it.
Measures Perfect() {
    using namespace orvo::find;
    return {kSmallRamp.full,     kBlurredRamp.full, kDarkRamp.full,    kOverexposedRamp.full,
            kTurnedRamp.full,    kTiltedRamp.full,  kCoveredRamp.full, kCutOffRamp.full,
            kGrimacingRamp.full, kSureScore};
}

TEST(FindQuality, OfAPerfectFaceIsFull) {
    EXPECT_EQ(Judge(Perfect()).value, 100);
    EXPECT_EQ(Judge(Perfect()).reasons, 0u);
}

TEST(FindQuality, EveryFlawAloneSaysWhyAndCostsEverything) {
    using namespace orvo::find;
    const struct {
        int32_t Measures::*measure;
        Ramp ramp;
        uint32_t reason;
    } flaws[] = {
        {&Measures::side, kSmallRamp, ORVO_FIND_SMALL},
        {&Measures::sharpness, kBlurredRamp, ORVO_FIND_BLURRED},
        {&Measures::brightness, kDarkRamp, ORVO_FIND_DARK},
        {&Measures::white, kOverexposedRamp, ORVO_FIND_OVEREXPOSED},
        {&Measures::yaw, kTurnedRamp, ORVO_FIND_TURNED},
        {&Measures::noseOff, kTiltedRamp, ORVO_FIND_TILTED},
        {&Measures::covered, kCoveredRamp, ORVO_FIND_COVERED},
        {&Measures::cutOff, kCutOffRamp, ORVO_FIND_CUT_OFF},
        {&Measures::mouthOff, kGrimacingRamp, ORVO_FIND_GRIMACING},
    };
    for (const auto& flaw : flaws) {
        Measures measures = Perfect();
        measures.*flaw.measure = flaw.ramp.none;
        EXPECT_EQ(Judge(measures).value, 0);
        EXPECT_EQ(Judge(measures).reasons, flaw.reason);
        // Beyond the ramp nothing more happens.
        measures.*flaw.measure = 2 * flaw.ramp.none - flaw.ramp.full;
        EXPECT_EQ(Judge(measures).value, 0);
        measures.*flaw.measure = 2 * flaw.ramp.full - flaw.ramp.none;
        EXPECT_EQ(Judge(measures).value, 100);
        // Nearer to full than to none: no reason is given, but the quality falls.
        measures.*flaw.measure = (flaw.ramp.none + 2 * flaw.ramp.full) / 3;
        EXPECT_EQ(Judge(measures).reasons, 0u) << flaw.reason;
        EXPECT_LT(Judge(measures).value, 100) << flaw.reason;
        EXPECT_GT(Judge(measures).value, 50) << flaw.reason;
    }
}

TEST(FindQuality, AnUnsureFaceIsNotGood) {
    Measures measures = Perfect();
    measures.score = 0;
    while (orvo_reference::PlainProbability(measures.score) < orvo::find::kReportedProbability) {
        ++measures.score;
    }
    EXPECT_EQ(Judge(measures).value, (100 * orvo::find::kLeastScoreFactor + 128) / 256);
    EXPECT_EQ(Judge(measures).reasons, 0u);
}

} // namespace
