// SPDX-License-Identifier: MIT
// From the network's answers to faces.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "find/answer_tables.h"
#include "find/candidates.h"
#include "find/merging.h"
#include "find/plain_face.h"
#include "reference/reference_find_faces.h"
#include "support/random.h"

namespace {

using orvo::find::AddCandidates;
using orvo::find::Candidate;
using orvo::find::CandidateList;
using orvo::find::FoundFace;
using orvo::find::kMostCandidates;
using orvo::find::Merger;
using orvo::find::Size;
using orvo_reference::FindAnswers;
using orvo_reference::PlainFace;
using orvo_test::ExpectSame;
using orvo_test::Random;

TEST(AnswerTables, AreWhatTheySay) {
    for (int i = -128; i < 128; ++i) {
        EXPECT_EQ(orvo::find::kProbability[i + 128], orvo_reference::PlainProbability(i)) << i;
        EXPECT_EQ(orvo::find::kSide[i + 128], orvo_reference::PlainSide(i)) << i;
    }
}

// Answers for a level of that size. Scores are at most `mostScore`, so that there are more or fewer
// candidates; `spread` is how far they are off their cells.
FindAnswers RandomAnswers(Random& random, Size real, int mostScore, int spread) {
    FindAnswers answers;
    const Size padded = orvo::find::Padded(real);
    for (const int stride : {8, 16}) {
        std::vector<int8_t>& planes = stride == 8 ? answers.stride8 : answers.stride16;
        const int cells = padded.width / stride * (padded.height / stride);
        for (int plane = 0; plane < 16; ++plane) {
            for (int i = 0; i < cells; ++i) {
                const int value = plane == 0   ? random.Between(-128, mostScore)
                                  : plane == 3 ? random.Between(-spread, 127)
                                               : random.Between(-spread, spread - 1);
                planes.push_back(static_cast<int8_t>(value));
            }
        }
    }
    return answers;
}

struct Case {
    Size real;
    int mostScore, spread;
};
constexpr Case kCases[] = {
    {{24, 24}, 127, 128},  {{320, 240}, -1, 128}, {{320, 240}, 5, 40},    {{320, 240}, 127, 128},
    {{320, 240}, 127, 20}, {{101, 57}, 60, 30},   {{640, 480}, 127, 128}, {{33, 200}, 127, 128},
};

TEST(Candidates, AreTheReferencesBestFirst) {
    Random random(5);
    size_t most = 0;
    for (const Case& c : kCases) {
        const auto list = std::make_unique<CandidateList>();
        list->Clear();
        std::vector<PlainFace> expected;
        for (const int level : {0, 2, 5}) {
            const FindAnswers answers = RandomAnswers(random, c.real, c.mostScore, c.spread);
            AddCandidates({answers.stride8.data(), answers.stride16.data()}, level, c.real, *list);
            const auto more =
                orvo_reference::PlainCandidates(answers, level, c.real.width, c.real.height);
            expected.insert(expected.end(), more.begin(), more.end());
        }
        most = std::max(most, expected.size());
        std::ranges::stable_sort(expected, std::ranges::greater{}, &PlainFace::score);
        expected.resize(std::min<size_t>(expected.size(), kMostCandidates));
        ASSERT_EQ(list->count(), static_cast<int32_t>(expected.size()));
        for (int32_t i = 0; i < list->count(); ++i) {
            const PlainFace& face = expected[static_cast<size_t>(i)];
            ASSERT_EQ(list->At(i).score, face.score);
            ExpectSame(list->At(i).face, face, std::to_string(i));
        }
    }
    EXPECT_GT(most, 2 * size_t{kMostCandidates}); // the list was full
}

TEST(Candidates, OfEqualOnesTheEarlierStay) {
    const auto list = std::make_unique<CandidateList>();
    list->Clear();
    for (int i = 0; i < 2 * kMostCandidates; ++i) {
        Candidate candidate{};
        candidate.face.x = i;
        candidate.score = i % 2;
        list->Add(candidate);
    }
    ASSERT_EQ(list->count(), kMostCandidates);
    for (int i = 0; i < kMostCandidates; ++i) {
        EXPECT_EQ(list->At(i).face.x, 2 * i + 1);
    }
}

TEST(Merging, GivesTheReferencesFaces) {
    Random random(6);
    int merged = 0;
    int below = 0;
    for (const Case& c : kCases) {
        for (int repetition = 0; repetition < 5; ++repetition) {
            const FindAnswers answers = RandomAnswers(random, c.real, c.mostScore, c.spread);
            const auto list = std::make_unique<CandidateList>();
            list->Clear();
            AddCandidates({answers.stride8.data(), answers.stride16.data()}, 1, c.real, *list);
            const std::vector<PlainFace> expected = orvo_reference::PlainFaces(
                orvo_reference::PlainCandidates(answers, 1, c.real.width, c.real.height));
            Merger merger(*list);
            FoundFace found;
            for (const PlainFace& face : expected) {
                ASSERT_TRUE(merger.Next(found));
                ExpectSame(found.face, face, "a face");
                EXPECT_EQ(found.probability, face.probability);
                EXPECT_EQ(found.support, face.support);
                merged += face.support > 1 ? 1 : 0;
                below += face.x < 0 || face.points[0] < 0 ? 1 : 0;
            }
            EXPECT_FALSE(merger.Next(found));
            EXPECT_FALSE(merger.Next(found));
        }
    }
    EXPECT_GT(merged, 100);
    EXPECT_GT(below, 0);
}

CandidateList* Listed(CandidateList* list, const std::vector<Candidate>& candidates) {
    list->Clear();
    for (const Candidate& candidate : candidates) {
        list->Add(candidate);
    }
    return list;
}

Candidate At(int32_t x, int32_t y, int32_t side, int32_t score) {
    Candidate candidate{};
    candidate.face.x = x;
    candidate.face.y = y;
    candidate.face.side = side;
    candidate.score = score;
    candidate.levelSide = side;
    return candidate;
}

TEST(Merging, LeavesFacesApartThatShareLittle) {
    const auto list = std::make_unique<CandidateList>();
    // 100 x 100 with 57 of 100 columns in common: 57 / 143 is just less than 0.4.
    Merger apart(*Listed(list.get(), {At(50, 50, 100, 100), At(93, 50, 100, 90)}));
    FoundFace found;
    ASSERT_TRUE(apart.Next(found));
    EXPECT_EQ(found.face.x, 50);
    ASSERT_TRUE(apart.Next(found));
    EXPECT_EQ(found.face.x, 93);
    EXPECT_FALSE(apart.Next(found));

    Merger together(*Listed(list.get(), {At(50, 50, 100, 100), At(92, 50, 100, 100)}));
    ASSERT_TRUE(together.Next(found));
    EXPECT_EQ(found.face.x, 71);
    EXPECT_EQ(found.support, 2);
    EXPECT_FALSE(together.Next(found));
}

TEST(Merging, TakesASmallBoxInALargeOneAwayAndDoesNotMixIt) {
    const auto list = std::make_unique<CandidateList>();
    Merger merger(*Listed(list.get(), {At(100, 100, 100, 100), At(80, 80, 20, 90)}));
    FoundFace found;
    ASSERT_TRUE(merger.Next(found));
    EXPECT_EQ(found.face.x, 100);
    EXPECT_EQ(found.face.side, 100);
    EXPECT_EQ(found.support, 2);
    EXPECT_FALSE(merger.Next(found));
}

// Seen with twice as many pixels, an answer counts four times as much.
TEST(Merging, TrustsFinerLevelsMore) {
    const auto list = std::make_unique<CandidateList>();
    Candidate coarse = At(110, 50, 100, 100);
    coarse.levelSide = 50;
    Merger merger(*Listed(list.get(), {At(100, 50, 100, 100), coarse}));
    FoundFace found;
    ASSERT_TRUE(merger.Next(found));
    EXPECT_EQ(found.face.x, 102);
}

TEST(Merging, RoundsHalfUpAlsoBelowZero) {
    const auto list = std::make_unique<CandidateList>();
    FoundFace found;
    for (const int32_t start : {-101, -100, 100, 101}) {
        Merger merger(*Listed(list.get(), {At(start, 0, 100, 100), At(start + 1, 0, 100, 100)}));
        ASSERT_TRUE(merger.Next(found));
        EXPECT_EQ(found.face.x, start + 1) << start;
    }
}

TEST(Merging, GivesNothingThatIsNotWorthALook) {
    int32_t least = -128; // the lowest score that is looked at
    while (orvo_reference::PlainProbability(least) < orvo::find::kLookedAtProbability) {
        ++least;
    }
    const auto list = std::make_unique<CandidateList>();
    FoundFace found;
    EXPECT_FALSE(Merger(*Listed(list.get(), {})).Next(found));
    EXPECT_FALSE(Merger(*Listed(list.get(), {At(50, 50, 100, least - 1)})).Next(found));
    EXPECT_TRUE(Merger(*Listed(list.get(), {At(50, 50, 100, least)})).Next(found));
}

} // namespace
