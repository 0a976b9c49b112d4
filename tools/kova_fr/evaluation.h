// SPDX-License-Identifier: MIT
//
// What the distances of many pairs of pictures say about a recognition: rates of error, thresholds,
// intervals. A pair is accepted if its distance is at least the threshold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "face.h"

namespace kova_cli {

// A pair of pictures by their numbers.
struct Pair {
    uint32_t a, b;
    bool isSame;
};

// What is evaluated: features and who they belong to. With `pairs` only these are compared; the
// people are then unknown and `person` is empty. Without, every picture is compared with every
// other.
struct Trial {
    std::vector<Feature> features;
    std::vector<uint32_t> person;
    uint32_t people = 0;
    std::vector<Pair> pairs;
};

// Distances in ascending order.
struct Scores {
    std::vector<float> same, different;
};

Scores Compare(const Trial& trial);

// 95 %.
struct Interval {
    double low = 0, high = 1;
};

struct Rate {
    double value = 0;
    Interval interval;
};

struct Operation {
    float threshold = 0;
    Rate falseAccept, falseReject;
};

double FalseAcceptRate(const Scores& scores, float threshold);
double FalseRejectRate(const Scores& scores, float threshold);

// The lowest threshold, as far as there is one below the largest float, with a false accept rate of
// at most `rate`. It lies midway between two distances of different people, so that it does not
// hang on the last digit of one.
float ThresholdAt(const Scores& scores, double rate);

// Whether there are enough pairs of different people to see a false accept rate: at least 3 are
// expected among them (fewer can be none by chance in one of 20 trials).
bool Supports(const Scores& scores, double rate);

// The rates at each threshold. The intervals hold for other people like these: pairs that share a
// person are not independent, so the spread is found by leaving out one person at a time
// (jackknife), and the interval is Wilson's for as many independent pairs as would spread as much.
// Where no error was seen, each pair of people counts as one trial (each person, for rejects). The
// pairs of a list are taken to be independent.
std::vector<Operation> OperationsAt(const Trial& trial, const std::vector<float>& thresholds);

// Where the rates of false accepts and false rejects meet, between the two nearest thresholds.
double EqualErrorRate(const Scores& scores);

// How often a pair of the same person has the larger distance than a pair of different people;
// equal ones count half.
double AreaUnderCurve(const Scores& scores);

// Mean of the two rates of right answers in folds of different people, at the threshold that suits
// the other folds best; up to 10 folds, fewer for few people. Nothing for fewer than 4 people or
// where a fold has no pairs of a kind.
std::optional<double> VerificationAccuracy(const Trial& trial);

// One picture of each person is enrolled, all others are looked up; how often the right person
// comes first, averaged over up to ten rounds that enroll each person's first, second, ... picture.
// Nothing without people, or when nobody has two pictures.
std::optional<double> RankOne(const Trial& trial);

// Points of the curve for drawing: at most `most`, from the strictest threshold.
struct CurvePoint {
    double falseAccept, falseReject;
};
std::vector<CurvePoint> Curve(const Scores& scores, size_t most);

} // namespace kova_cli
