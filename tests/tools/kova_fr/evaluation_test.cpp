// SPDX-License-Identifier: MIT
// The figures of an evaluation against slow plain counting, and cases worked out by hand.
#include "evaluation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace kova_cli {
namespace {

// A feature whose inner product with the first axis is `x`, of unit length.
Feature AtAngle(double x) {
    Feature feature = {};
    feature[0] = static_cast<float>(x);
    feature[1] = static_cast<float>(std::sqrt(1 - x * x));
    return feature;
}

// Random directions around one for each person.
Trial RandomTrial(uint32_t people, uint32_t each, double spread, uint32_t seed) {
    std::mt19937 random(seed);
    std::normal_distribution<float> normal;
    Trial trial;
    trial.people = people;
    for (uint32_t p = 0; p < people; ++p) {
        Feature centre;
        std::generate(centre.begin(), centre.end(), [&] { return normal(random); });
        for (uint32_t i = 0; i < each; ++i) {
            Feature feature = centre;
            float square = 0;
            for (float& value : feature) {
                value += static_cast<float>(spread) * normal(random);
                square += value * value;
            }
            for (float& value : feature) {
                value /= std::sqrt(square);
            }
            trial.features.push_back(feature);
            trial.person.push_back(p);
        }
    }
    return trial;
}

double CountedAccept(const std::vector<float>& distances, float threshold) {
    const auto accepted = std::count_if(distances.begin(), distances.end(),
                                        [threshold](float d) { return d >= threshold; });
    return static_cast<double>(accepted) / static_cast<double>(distances.size());
}

TEST(Evaluation, EveryPictureIsComparedWithEveryOtherOnce) {
    const Trial trial = RandomTrial(7, 3, 1, 1);
    const Scores scores = Compare(trial);
    EXPECT_EQ(scores.same.size(), 7u * 3);
    EXPECT_EQ(scores.different.size(), 21u * 20 / 2 - 21);
    EXPECT_TRUE(std::is_sorted(scores.same.begin(), scores.same.end()));
    EXPECT_TRUE(std::is_sorted(scores.different.begin(), scores.different.end()));
}

TEST(Evaluation, AListComparesItsPairsOnly) {
    Trial trial;
    trial.features = {AtAngle(1), AtAngle(0.5), AtAngle(-1)};
    trial.pairs = {{0, 1, true}, {0, 2, false}};
    const Scores scores = Compare(trial);
    EXPECT_EQ(scores.same, std::vector<float>{0.5f});
    EXPECT_EQ(scores.different, std::vector<float>{-1.0f});
}

TEST(Evaluation, RatesAgreeWithCounting) {
    const Scores scores = Compare(RandomTrial(20, 4, 1.5, 2));
    for (float threshold = -1; threshold <= 1; threshold += 0.01f) {
        EXPECT_EQ(FalseAcceptRate(scores, threshold), CountedAccept(scores.different, threshold));
        EXPECT_DOUBLE_EQ(FalseRejectRate(scores, threshold),
                         1 - CountedAccept(scores.same, threshold));
    }
}

TEST(Evaluation, ADistanceEqualToTheThresholdIsAccepted) {
    const Scores scores = {{0.5f, 0.75f}, {0.25f, 0.5f}};
    EXPECT_EQ(FalseAcceptRate(scores, 0.5f), 0.5);
    EXPECT_EQ(FalseRejectRate(scores, 0.5f), 0);
    EXPECT_EQ(FalseRejectRate(scores, std::nextafter(0.5f, 1.0f)), 0.5);
}

TEST(Evaluation, ThresholdKeepsTheRateAndIsTheLowestThatDoes) {
    const Scores scores = Compare(RandomTrial(30, 4, 1.5, 3));
    for (const double rate : {0.5, 0.1, 0.01, 0.001, 0.0001}) {
        const float threshold = ThresholdAt(scores, rate);
        EXPECT_LE(CountedAccept(scores.different, threshold), rate);
        // The next lower distance would be one too many.
        const auto below =
            std::lower_bound(scores.different.begin(), scores.different.end(), threshold);
        ASSERT_NE(below, scores.different.begin());
        EXPECT_GT(CountedAccept(scores.different, *(below - 1)), rate);
    }
}

TEST(Evaluation, ThresholdStaysAboveTies) {
    const Scores scores = {{0.9f}, {0.1f, 0.4f, 0.4f, 0.4f}};
    // One in four is allowed, but the largest three are equal.
    EXPECT_EQ(FalseAcceptRate(scores, ThresholdAt(scores, 0.25)), 0);
    EXPECT_EQ(FalseAcceptRate(scores, ThresholdAt(scores, 0.75)), 0.75);
    EXPECT_EQ(ThresholdAt(scores, 1), -1.0f);
    EXPECT_GT(ThresholdAt({{}, {0.3f, 0.3f}}, 0), 0.3f);
}

TEST(Evaluation, ARateNeedsThreeExpectedPairs) {
    Scores scores;
    scores.different.resize(299);
    EXPECT_FALSE(Supports(scores, 1e-2));
    scores.different.resize(300);
    EXPECT_TRUE(Supports(scores, 1e-2));
}

TEST(Evaluation, EqualErrorRateByHand) {
    // Apart: no errors. Mixed up completely: all errors.
    EXPECT_EQ(EqualErrorRate({{0.8f, 0.9f}, {0.1f, 0.2f}}), 0);
    EXPECT_EQ(EqualErrorRate({{0.1f, 0.2f}, {0.8f, 0.9f}}), 1);
    // From 0.5 on one of four strangers is accepted and one of four friends is not.
    EXPECT_DOUBLE_EQ(EqualErrorRate({{0.3f, 0.6f, 0.7f, 0.8f}, {0.1f, 0.2f, 0.25f, 0.5f}}), 0.25);
    // All the same: half of each.
    EXPECT_DOUBLE_EQ(EqualErrorRate({{0.5f, 0.5f}, {0.5f, 0.5f}}), 0.5);
}

TEST(Evaluation, AreaUnderTheCurveCountsPairsInOrder) {
    const Scores scores = Compare(RandomTrial(12, 4, 2, 4));
    double right = 0;
    for (const float same : scores.same) {
        for (const float different : scores.different) {
            right += same > different ? 1 : same == different ? 0.5 : 0;
        }
    }
    const double all = static_cast<double>(scores.same.size() * scores.different.size());
    EXPECT_NEAR(AreaUnderCurve(scores), right / all, 1e-12);
    EXPECT_DOUBLE_EQ(AreaUnderCurve({{0.5f}, {0.5f}}), 0.5);
}

TEST(Evaluation, AccuracyOfPeopleWhoAreApartIsOne) {
    EXPECT_EQ(VerificationAccuracy(RandomTrial(20, 3, 0.1, 5)), 1.0);
    const std::optional<double> hard = VerificationAccuracy(RandomTrial(40, 4, 2, 5));
    ASSERT_TRUE(hard);
    EXPECT_GT(*hard, 0.5);
    EXPECT_LT(*hard, 1.0);
}

TEST(Evaluation, AccuracyNeedsPeopleAndPairsInEveryFold) {
    EXPECT_FALSE(VerificationAccuracy(RandomTrial(3, 5, 1, 6)));
    EXPECT_FALSE(VerificationAccuracy(RandomTrial(20, 1, 1, 6)));
}

TEST(Evaluation, RankOneCountsTheEnrolledPersonWhoComesFirst) {
    EXPECT_EQ(RankOne(RandomTrial(10, 3, 0.1, 7)), 1.0);
    EXPECT_FALSE(RankOne(RandomTrial(10, 1, 0.1, 7)));
    // Two pictures of the first person look like the second person's only one. Enrolled by the one
    // or the other, the second is never asked for and the first is never found.
    Trial trial;
    trial.people = 2;
    trial.person = {0, 0, 1};
    trial.features = {AtAngle(1), AtAngle(-1), AtAngle(-0.99)};
    // Round 1 enrolls picture 0: picture 1 is nearest to the stranger. Round 2 enrolls picture 1:
    // picture 0 is nearest to the stranger, by a little.
    EXPECT_EQ(RankOne(trial), 0.0);
    trial.features[2] = AtAngle(0);
    EXPECT_EQ(RankOne(trial), 0.0);
    trial.features = {AtAngle(1), AtAngle(0.9), AtAngle(0)};
    EXPECT_EQ(RankOne(trial), 1.0);
}

TEST(Evaluation, IntervalsHoldTheRateAndNarrowWithMorePeople) {
    const std::vector<float> thresholds = {0.2f};
    const Operation few = OperationsAt(RandomTrial(20, 4, 1.5, 8), thresholds)[0];
    const Operation many = OperationsAt(RandomTrial(200, 4, 1.5, 8), thresholds)[0];
    for (const Rate& rate :
         {few.falseAccept, few.falseReject, many.falseAccept, many.falseReject}) {
        EXPECT_LE(rate.interval.low, rate.value);
        EXPECT_GE(rate.interval.high, rate.value);
    }
    const auto width = [](const Rate& rate) { return rate.interval.high - rate.interval.low; };
    EXPECT_LT(width(many.falseAccept), width(few.falseAccept));
    EXPECT_LT(width(many.falseReject), width(few.falseReject));
}

TEST(Evaluation, IntervalsCoverTheRateOfManyMoreInMostSamples) {
    const std::vector<float> thresholds = {0.3f};
    const Operation truth = OperationsAt(RandomTrial(600, 3, 1.3, 9), thresholds)[0];
    int acceptsCovered = 0, rejectsCovered = 0;
    constexpr int kSamples = 100;
    for (int i = 0; i < kSamples; ++i) {
        const Operation sample =
            OperationsAt(RandomTrial(25, 3, 1.3, 100 + static_cast<uint32_t>(i)), thresholds)[0];
        const auto covers = [](const Rate& rate, double value) {
            return rate.interval.low <= value && value <= rate.interval.high;
        };
        acceptsCovered += covers(sample.falseAccept, truth.falseAccept.value) ? 1 : 0;
        rejectsCovered += covers(sample.falseReject, truth.falseReject.value) ? 1 : 0;
    }
    EXPECT_GE(acceptsCovered, 85);
    EXPECT_GE(rejectsCovered, 85);
}

TEST(Evaluation, NoErrorsStillLeaveAnUpperLimit) {
    const Operation none = OperationsAt(RandomTrial(50, 3, 0.1, 10), {0.6f})[0];
    EXPECT_EQ(none.falseAccept.value, 0);
    EXPECT_EQ(none.falseReject.value, 0);
    // Of 1225 pairs of people and of 50 people: Wilson's limit for none is z^2 / (n + z^2).
    EXPECT_NEAR(none.falseAccept.interval.high, 3.8415 / (1225 + 3.8415), 1e-6);
    EXPECT_NEAR(none.falseReject.interval.high, 3.8415 / (50 + 3.8415), 1e-5);
}

TEST(Evaluation, CurveGoesFromNoneToAllAndOnlyForwards) {
    const Scores scores = Compare(RandomTrial(40, 4, 1.5, 11));
    const std::vector<CurvePoint> curve = Curve(scores, 400);
    EXPECT_LT(curve.size(), 1200u);
    EXPECT_EQ(curve.front().falseAccept, 0);
    EXPECT_EQ(curve.front().falseReject, 1);
    EXPECT_EQ(curve.back().falseAccept, 1);
    EXPECT_EQ(curve.back().falseReject, 0);
    for (size_t i = 1; i < curve.size(); ++i) {
        EXPECT_GE(curve[i].falseAccept, curve[i - 1].falseAccept);
        EXPECT_LE(curve[i].falseReject, curve[i - 1].falseReject);
    }
}

} // namespace
} // namespace kova_cli
