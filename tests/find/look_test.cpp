// SPDX-License-Identifier: MIT
// The second look: which part of the picture it sees, and what its answers mean.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "find/answer_tables.h"
#include "find/look.h"
#include "find/merging.h"
#include "find/patches.h"
#include "find/plain_face.h"
#include "find/plain_picture.h"
#include "reference/reference_find_faces.h"
#include "support/random.h"

namespace {

using orvo::find::Description;
using orvo::find::FaceList;
using orvo::find::FoundFace;
using orvo::find::kClose;
using orvo::find::kCloseMirrored;
using orvo::find::kMostFaces;
using orvo::find::kReportedProbability;
using orvo::find::kWide;
using orvo::find::LookAnswers;
using orvo::find::LookKind;
using orvo::find::View;
using orvo::find::WeighedMeanOf;
using orvo_reference::Grey;
using orvo_reference::LookAnswersPlain;
using orvo_reference::PlainFace;
using orvo_reference::PlainView;
using orvo_test::ExpectSame;
using orvo_test::GuardedBuffer;
using orvo_test::GuardedPicture;
using orvo_test::Random;

Description AsDescription(const PlainFace& plain) {
    const auto narrow = [](int64_t value) { return static_cast<int32_t>(value); };
    Description face{narrow(plain.x),   narrow(plain.y),      narrow(plain.side), {},
                     narrow(plain.yaw), narrow(plain.covered)};
    for (int i = 0; i < 10; ++i) {
        face.points[i] = narrow(plain.points[i]);
    }
    return face;
}

// Points anywhere near the box, so that faces lean every way.
PlainFace RandomFace(Random& random, const Grey& picture, int mostSide) {
    PlainFace face{};
    face.x = random.Between(0, 4 * picture.width - 1);
    face.y = random.Between(0, 4 * picture.height - 1);
    face.side = random.Between(4, mostSide);
    for (int i = 0; i < 10; ++i) {
        const auto reach = static_cast<int>(face.side / 2 + 2);
        face.points[i] = 4 * (i % 2 == 0 ? face.x : face.y) + random.Between(-4 * reach, 4 * reach);
    }
    return face;
}

void ExpectView(const View& view, const PlainView& expected) {
    EXPECT_EQ(view.x, expected.x);
    EXPECT_EQ(view.y, expected.y);
    EXPECT_EQ(view.side, expected.side);
    EXPECT_EQ(view.cosine, expected.cosine);
    EXPECT_EQ(view.sine, expected.sine);
    EXPECT_EQ(view.kind.step, expected.step);
    EXPECT_EQ(view.kind.isMirrored, expected.isMirrored);
}

PlainView PlainViewOf(const PlainFace& face, const LookKind& kind) {
    PlainView view = orvo_reference::PlainViewOf(face, kind.step);
    view.isMirrored = kind.isMirrored;
    return view;
}

constexpr LookKind kKinds[] = {kWide, kClose, kCloseMirrored};

TEST(Look, IsTurnedAsTheFaceLeans) {
    Random random(31);
    const Grey picture{200, 150, {}};
    for (int i = 0; i < 2000; ++i) {
        const PlainFace face = RandomFace(random, picture, 2400);
        for (const LookKind& kind : kKinds) {
            ExpectView(ViewOf(AsDescription(face), kind), PlainViewOf(face, kind));
        }
    }
    Description upright{400, 300, 100, {1520, 1120, 1680, 1120, 1600, 1200, 1540, 1280, 1660, 1280},
                        0,   0};
    EXPECT_EQ(ViewOf(upright, kWide).cosine, 1 << 14);
    EXPECT_EQ(ViewOf(upright, kWide).sine, 0);
    // Upside down; and where all points lie in one.
    Description turned{400, 300, 100, {1680, 1280, 1520, 1280, 1600, 1200, 1660, 1120, 1540, 1120},
                       0,   0};
    EXPECT_EQ(ViewOf(turned, kWide).cosine, -(1 << 14));
    Description nowhere{400, 300, 100, {1600, 1200, 1600, 1200, 1600, 1200, 1600, 1200, 1600, 1200},
                        0,   0};
    for (const LookKind& kind : {kWide, kClose}) {
        ExpectView(ViewOf(nowhere, kind), {400, 300, 100, 1 << 14, 0, kind.step});
    }
}

// The points of the mean face, in a box of 1000 quarter pixels; upright, and leaning to the right.
TEST(Look, FromCloseByIsOfTheBoxThatThePointsSpeakOf) {
    const int32_t mean[10] = {-186, -148, 186, -148, 0, 74, -158, 282, 158, 282};
    Description upright{0, 0, 1400, {}, 0, 0}; // as a head's box may lie
    Description leaning = upright;
    for (int i = 0; i < 10; i += 2) {
        upright.points[i] = 4 * (3000 + mean[i]);
        upright.points[i + 1] = 4 * (2000 + mean[i + 1]);
        leaning.points[i] = 4 * (3000 - mean[i + 1]);
        leaning.points[i + 1] = 4 * (2000 + mean[i]);
    }
    for (const Description& face : {upright, leaning}) {
        const View view = ViewOf(face, kClose);
        EXPECT_NEAR(view.x, 3000, 1);
        EXPECT_NEAR(view.y, 2000, 1);
        EXPECT_NEAR(view.side, 1000, 1);
        EXPECT_EQ(ViewOf(face, kWide).side, 1400);
    }
    EXPECT_EQ(ViewOf(upright, kClose).cosine, 1 << 14);
    EXPECT_EQ(ViewOf(leaning, kClose).sine, 1 << 14);
}

// As far outside of the largest picture as looks can bring points.
TEST(Look, FromCloseByKnowsTheBoxOfPointsAnywhere) {
    Random random(37);
    for (int i = 0; i < 500; ++i) {
        PlainFace face = RandomFace(random, Grey{8192, 8192, {}}, 4 * 4 * 8192);
        for (int64_t& place : face.points) {
            place += random.Between(-800'000, 800'000);
        }
        ExpectView(ViewOf(AsDescription(face), kClose),
                   orvo_reference::PlainViewOf(face, kClose.step));
    }
}

TEST(Look, IsRefusedOutsideThePictureAndWhereItWouldBeMuchLarger) {
    const OrvoFindPicture picture = {nullptr, 100, 60, 100};
    const auto canBeSeen = [&](int32_t x, int32_t y, int32_t side) {
        const bool isFace = orvo::find::CanBeSeen(picture, Description{x, y, side, {}, 0, 0});
        EXPECT_EQ(orvo::find::CanBeSeen(picture, View{x, y, side, 1 << 14, 0, kClose}), isFace);
        return isFace;
    };
    EXPECT_TRUE(canBeSeen(0, 0, 4));
    EXPECT_TRUE(canBeSeen(399, 239, 960));
    EXPECT_FALSE(canBeSeen(-1, 0, 40));
    EXPECT_FALSE(canBeSeen(0, -1, 40));
    EXPECT_FALSE(canBeSeen(400, 0, 40));
    EXPECT_FALSE(canBeSeen(0, 240, 40));
    EXPECT_FALSE(canBeSeen(200, 120, 3));
    EXPECT_FALSE(canBeSeen(200, 120, 961));
}

TEST(Look, ThatMovesTheBoxByLessThanTheEighthPartOfItsSideIsTheLast) {
    const orvo::find::View view = {400, 300, 160, 1 << 14, 0, kWide};
    const auto hasSettled = [&view](int32_t right, int32_t down, int32_t wider) {
        return orvo::find::HasSettled(view, {400 + right, 300 + down, 160 + wider, {}, 0, 0});
    };
    for (const int sign : {-1, 1}) {
        EXPECT_TRUE(hasSettled(19 * sign, -19 * sign, 19 * sign));
        EXPECT_FALSE(hasSettled(20 * sign, 0, 0));
        EXPECT_FALSE(hasSettled(0, 20 * sign, 0));
        EXPECT_FALSE(hasSettled(0, 0, 20 * sign));
    }
    // As plainly said, and at the ends of what the network answers.
    Random random(29);
    for (int i = 0; i < 2000; ++i) {
        const PlainFace before = RandomFace(random, Grey{4000, 3000, {}}, 16000);
        const PlainFace after = RandomFace(random, Grey{4000, 3000, {}}, 16000);
        PlainFace near = before;
        near.x += random.Between(-40, 40);
        near.side += random.Between(-40, 40);
        const orvo_reference::PlainView plain = orvo_reference::PlainViewOf(before, kWide.step);
        for (const PlainFace& face : {after, near}) {
            ASSERT_EQ(
                orvo::find::HasSettled(ViewOf(AsDescription(before), kWide), AsDescription(face)),
                orvo_reference::PlainHasSettled(plain, face))
                << i;
        }
    }
}

// Pictures whose last byte touches an unmapped page, and memory of exactly its size.
void ExpectLooks(const Grey& grey, GuardedBuffer::Place place, Random& random, int mostSide) {
    const GuardedPicture picture(grey, grey.width + random.Between(0, 9), place);
    GuardedBuffer pixels(orvo::find::LookPixelBytes(), GuardedBuffer::kAtStart);
    GuardedBuffer room(orvo::find::PatchRoomBytes(grey.width), place);
    for (int i = 0; i < 12; ++i) {
        const PlainFace face = RandomFace(random, grey, mostSide);
        const LookKind& kind = kKinds[i % 3];
        const Grey look = orvo_reference::PlainLook(grey, PlainViewOf(face, kind));
        const std::vector<uint8_t> expected = orvo_reference::PatchesOf(look, kind.patch);
        GuardedBuffer patches(expected.size(), place);
        MakeLook(*picture, ViewOf(AsDescription(face), kind), pixels.bytes(), room.bytes(),
                 patches.bytes());
        ASSERT_TRUE(std::ranges::equal(expected, std::span(patches.bytes(), expected.size())))
            << grey.width << " x " << grey.height << ": " << face.x << ", " << face.y << ", "
            << face.side;
    }
}

TEST(Look, SeesWhatTheReferenceSees) {
    Random random(32);
    for (const auto& [width, height] : {std::pair{24, 24}, {200, 37}, {61, 150}, {320, 240}}) {
        for (int number = 0; number < 2; ++number) {
            const Grey grey = orvo_reference::SeededGrey(number, width, height);
            const int most = 16 * std::min(width, height);
            for (const auto place : {GuardedBuffer::kAtStart, GuardedBuffer::kAtEnd}) {
                ExpectLooks(grey, place, random, 160);
                ExpectLooks(grey, place, random, most);
            }
        }
    }
}

TEST(Look, OfOneGreyIsGrey) {
    for (const int level : {0, 7, 255}) {
        const Grey grey{64, 64, std::vector<uint8_t>(64 * 64, static_cast<uint8_t>(level))};
        const Grey look = orvo_reference::PlainLook(grey, {128, 128, 100, 1 << 14, 0, kWide.step});
        EXPECT_EQ(look.pixels, std::vector<uint8_t>(64 * 64, 128));
    }
}

// The same face in another light is the same look, but for the rounding of grey levels.
TEST(Look, DoesNotDependOnTheLight) {
    const Grey bright = orvo_reference::SeededGrey(0, 120, 100);
    Grey dark = bright;
    for (uint8_t& pixel : dark.pixels) {
        pixel = static_cast<uint8_t>(pixel / 2 + 10);
    }
    const PlainView view = {240, 200, 200, 1 << 14, 0, kWide.step};
    const Grey a = orvo_reference::PlainLook(bright, view);
    const Grey b = orvo_reference::PlainLook(dark, view);
    for (size_t i = 0; i < a.pixels.size(); ++i) {
        ASSERT_NEAR(a.pixels[i], b.pixels[i], 3) << i;
    }
}

LookAnswersPlain RandomAnswers(Random& random, int most) {
    LookAnswersPlain answers;
    for (int i = 0; i < 16 * 64; ++i) {
        answers.heat.push_back(static_cast<int8_t>(random.Between(-128, most)));
    }
    for (int i = 0; i < 16; ++i) {
        answers.rest.push_back(static_cast<int8_t>(random.Between(-128, 127)));
    }
    return answers;
}

TEST(LookAnswers, SayWhatTheReferenceReads) {
    Random random(33);
    const Grey picture{500, 400, {}};
    for (int i = 0; i < 500; ++i) {
        const PlainFace face = RandomFace(random, picture, 6400);
        // With low logits all weights are small, down to none at all.
        const LookAnswersPlain answers = RandomAnswers(random, i % 3 == 0 ? -110 : 127);
        const LookKind& kind = kKinds[i % 3];
        const View view = ViewOf(AsDescription(face), kind);
        const LookAnswers given = {answers.heat.data(), answers.rest.data()};
        ExpectSame(Described(view, given),
                   orvo_reference::PlainDescribed(face, PlainViewOf(face, kind), answers),
                   std::to_string(i));
    }
}

TEST(LookAnswers, OfTwoLooksTheSecondCountsThreeTimes) {
    Random random(36);
    for (int i = 0; i < 500; ++i) {
        PlainFace faces[2];
        for (PlainFace& face : faces) {
            face = RandomFace(random, Grey{500, 400, {}}, 6400);
            face.yaw = random.Between(-128, 128);
            face.covered = random.Between(-128, 127);
        }
        ExpectSame(WeighedMeanOf(AsDescription(faces[0]), AsDescription(faces[1])),
                   orvo_reference::PlainWeighedMeanOf(faces[0], faces[1]), std::to_string(i));
    }
    const Description odd = WeighedMeanOf({3, -3, 9, {-7, 4}, -1, 2}, {5, -5, 10, {-10, 4}, 0, -3});
    EXPECT_EQ(odd.x, 5);  // from 4.5
    EXPECT_EQ(odd.y, -4); // from -4.5
    EXPECT_EQ(odd.side, 10);
    EXPECT_EQ(odd.points[0], -9);
    EXPECT_EQ(odd.points[1], 4);
    EXPECT_EQ(odd.yaw, 0);
    EXPECT_EQ(odd.covered, -2);
}

// What is to the left of a face lies to the right in its mirror image, and so do its pupils.
TEST(LookAnswers, OfAMirrorImageAreTurnedBack) {
    LookAnswersPlain answers;
    answers.heat.assign(16 * 64, 0); // all cells alike: the middle
    answers.rest.assign(16, 0);
    answers.rest[1] = 8;  // the box: two pixels to the right
    answers.rest[4] = 16; // the left pupil: eight, as the rest has it, and so four
    answers.rest[10] = 32;
    answers.rest[14] = 40;
    const View view = {1000, 800, 256, 1 << 14, 0, kCloseMirrored};
    const Description face = Described(view, {answers.heat.data(), answers.rest.data()});
    EXPECT_EQ(face.x, 1000 - 8);
    EXPECT_EQ(face.points[0], 4 * 1000);
    EXPECT_EQ(face.points[2], 4 * (1000 - 8));
    EXPECT_EQ(face.points[6], 4 * 1000);
    EXPECT_EQ(face.points[8], 4 * (1000 - 16));
    EXPECT_EQ(face.yaw, -40);
}

TEST(LookAnswers, ScoresAreTheMeanOfTheFirstAndOfTheLooks) {
    Random random(35);
    for (int i = 0; i < 1000; ++i) {
        const int first = random.Between(-128, 127);
        std::vector<int> looks;
        int sum = 0;
        for (int look = 0; look < 3; ++look) {
            looks.push_back(random.Between(-128, 127));
            sum += looks.back();
            EXPECT_EQ(orvo::find::LookedAtScore(first, look + 1, sum),
                      orvo_reference::PlainScore(first, looks));
        }
    }
    EXPECT_EQ(orvo::find::LookedAtScore(40, 2, 100 + 60), 60 - orvo::find::kScoreLess);
}

// No look is spared whose answer could matter, and none is taken whose answer cannot.
TEST(Look, IsSparedWhereNoAnswerWouldMakeItAFace) {
    int spared = 0;
    for (int first = -128; first <= 127; ++first) {
        for (int answer = -128; answer <= 127; ++answer) {
            bool isFace = false;
            for (int next = -128; next <= 127; ++next) {
                const int score = orvo_reference::PlainScore(first, {answer, next});
                isFace |= orvo_reference::PlainProbability(score) >= kReportedProbability;
            }
            ASSERT_EQ(orvo::find::CanBeReported(first, 1, answer), isFace)
                << first << ", " << answer;
            spared += isFace ? 0 : 1;
        }
    }
    EXPECT_GT(spared, 0);
}

TEST(LookAnswers, APointLiesWhereItsOnlyHotCellSays) {
    LookAnswersPlain answers;
    answers.heat.assign(16 * 64, -128);
    answers.rest.assign(16, 0);
    const auto set = [&](int plane, int cell, int value) {
        answers.heat[static_cast<size_t>(64 * plane + cell)] = static_cast<int8_t>(value);
    };
    // The nose, in the cell of column 5 and row 3: its middle is 12 pixels to the right and 4 up.
    set(2, 29, 127);
    set(7, 29, 8);    // a pixel to the right of that
    set(12, 29, -16); // two up
    // The rest has it where the cell has it, or four pixels further to the right.
    const View view = {1000,    800, 256,
                       1 << 14, 0,   kWide}; // 64 pixels of a look are 96 of the picture
    answers.rest[8] = 4 * 13;
    answers.rest[9] = 4 * -6;
    const Description face = Described(view, {answers.heat.data(), answers.rest.data()});
    EXPECT_EQ(face.points[4], 16 * 250 + 16 * 13 * 3 / 2);
    EXPECT_EQ(face.points[5], 16 * 200 - 16 * 6 * 3 / 2);
    EXPECT_EQ(face.side, 256);
    answers.rest[8] += 4 * 4;
    const Description other = Described(view, {answers.heat.data(), answers.rest.data()});
    EXPECT_EQ(other.points[4], 16 * 250 + 16 * 15 * 3 / 2);
    // From close by, the look's pixels are the picture's.
    const View close = {1000, 800, 256, 1 << 14, 0, kClose};
    EXPECT_EQ(Described(close, {answers.heat.data(), answers.rest.data()}).points[4],
              16 * 250 + 16 * 15);
}

TEST(AnswerTables, HeatIsWhatItSays) {
    for (int i = -128; i < 128; ++i) {
        EXPECT_EQ(orvo::find::kHeat[i + 128], orvo_reference::PlainHeat(i)) << i;
    }
}

TEST(Faces, AreTheBestOfThoseThatOverlap) {
    Random random(34);
    for (int repetition = 0; repetition < 20; ++repetition) {
        const auto list = std::make_unique<FaceList>();
        list->Clear();
        std::vector<PlainFace> plain;
        for (int i = 0; i < (repetition < 10 ? 40 : 2 * kMostFaces); ++i) {
            PlainFace face{};
            face.x = random.Between(0, 4000);
            face.y = random.Between(0, 4000);
            face.side = random.Between(40, 900);
            face.score = random.Between(0, 30);
            plain.push_back(face);
            list->Add({AsDescription(face), face.score, 0, 1});
        }
        list->DropRepeated();
        const std::vector<PlainFace> expected = orvo_reference::PlainWithoutRepeats(plain);
        ASSERT_EQ(list->count(), static_cast<int32_t>(expected.size()));
        EXPECT_LT(expected.size(), plain.size());
        for (size_t i = 0; i < expected.size(); ++i) {
            const FoundFace& face = list->At(static_cast<int32_t>(i));
            EXPECT_EQ(face.score, expected[i].score);
            EXPECT_EQ(face.face.x, expected[i].x);
            EXPECT_EQ(face.face.side, expected[i].side);
        }
    }
}

} // namespace
