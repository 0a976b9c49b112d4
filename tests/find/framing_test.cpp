// SPDX-License-Identifier: MIT
// What the alignment network's answer makes of a face's box.
#include "find/framing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <tuple>

#include "support/random.h"

namespace {

using orvo::find::FramedByAnswer;
using orvo_test::Random;

// A face with its middle at (x, y) whose head leans so that its rows go along (cosine, sine).
OrvoFindFace Leaning(float x, float y, float side, double cosine, double sine) {
    OrvoFindFace face{};
    face.left = x - side / 2;
    face.top = y - side / 2;
    face.side = side;
    const double upright[5][2] = {
        {-0.2, -0.15}, {0.2, -0.15}, {0, 0.05}, {-0.15, 0.25}, {0.15, 0.25}};
    for (int i = 0; i < 5; ++i) {
        const double u = upright[i][0] * side;
        const double v = upright[i][1] * side;
        face.points[i] = {x + static_cast<float>(cosine * u - sine * v),
                          y + static_cast<float>(sine * u + cosine * v)};
    }
    return face;
}

bool HasBox(const OrvoFindFace& face, float left, float top, float side) {
    return face.left == left && face.top == top && face.side == side;
}

TEST(Framing, AnswerForTheFaceItselfChangesLittle) {
    // 128 units are 1.75 sides, so the face itself would be 27.4 to 100.6.
    const int8_t answer[] = {27, 27, 101, 101};
    const OrvoFindFace framed = FramedByAnswer(Leaning(100, 80, 56, 1, 0), answer);
    EXPECT_NEAR(framed.side, 56.66, 0.07);
    EXPECT_NEAR(framed.left, 100 - 28.33, 0.1);
    EXPECT_NEAR(framed.top, 80 - 28.33, 0.1);
}

TEST(Framing, TakesTheAnswersSideAndHalfOfItsMiddle) {
    // A unit is a pixel. The answer's middle is 8 to the right and 4 above the face's.
    const OrvoFindFace face = Leaning(100, 80, 128 / 1.75f, 1, 0);
    const int8_t answer[] = {42, 20, 102, 100};
    const OrvoFindFace framed = FramedByAnswer(face, answer);
    EXPECT_NEAR(framed.side, 70, 0.07);
    EXPECT_NEAR(framed.left + framed.side / 2, 104, 0.2);
    EXPECT_NEAR(framed.top + framed.side / 2, 78, 0.2);
}

TEST(Framing, GoesAlongTheFacesRows) {
    const int8_t answer[] = {42, 20, 102, 100};
    // A quarter turned, clockwise as it is seen: to the face's right is down.
    const OrvoFindFace framed = FramedByAnswer(Leaning(100, 80, 128 / 1.75f, 0, 1), answer);
    EXPECT_NEAR(framed.left + framed.side / 2, 102, 0.2);
    EXPECT_NEAR(framed.top + framed.side / 2, 84, 0.2);
}

TEST(Framing, OnlyTheBoxIsAnotherAndItsLengthsAreWholeEighths) {
    Random random(3);
    for (int i = 0; i < 500; ++i) {
        OrvoFindFace face = Leaning(0.25f * static_cast<float>(random.Between(0, 4000)),
                                    0.25f * static_cast<float>(random.Between(0, 4000)),
                                    0.25f * static_cast<float>(random.Between(40, 2000)), 0.8, 0.6);
        face.score = 0.7f;
        face.quality = 55;
        const int8_t answer[] = {static_cast<int8_t>(random.Between(0, 40)),
                                 static_cast<int8_t>(random.Between(0, 40)),
                                 static_cast<int8_t>(random.Between(90, 127)),
                                 static_cast<int8_t>(random.Between(90, 127))};
        OrvoFindFace framed = FramedByAnswer(face, answer);
        for (const float length : {framed.left, framed.top, framed.side}) {
            ASSERT_EQ(8 * length, std::floor(8 * length));
        }
        const double unit = 1.75 * face.side / 128;
        ASSERT_NEAR(framed.side,
                    unit * (answer[2] - answer[0] + answer[3] - answer[1]) / 2, 0.07);
        framed.left = face.left;
        framed.top = face.top;
        framed.side = face.side;
        ASSERT_EQ(std::memcmp(&framed, &face, sizeof face), 0);
    }
}

TEST(Framing, AnswerThatIsNoBoxLeavesTheFaceAsItWas) {
    const OrvoFindFace face = Leaning(100, 80, 64, 1, 0);
    for (const auto& [left, top, right, bottom] : {std::tuple(60, 20, 60, 100), // empty
                                                   {70, 20, 60, 120},           // turned round
                                                   {20, 100, 120, 90},
                                                   {50, 50, 80, 80},           // less than half
                                                   {-64, -64, 127, 127}}) {    // more than twice
        const int8_t answer[] = {static_cast<int8_t>(left), static_cast<int8_t>(top),
                                 static_cast<int8_t>(right), static_cast<int8_t>(bottom)};
        const OrvoFindFace framed = FramedByAnswer(face, answer);
        EXPECT_TRUE(HasBox(framed, face.left, face.top, face.side)) << left << " " << right;
    }
}

} // namespace
