// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "evaluation/statistics/bootstrap.h"
#include "evaluation/statistics/folds.h"

namespace kova_statistics {

// A figure of merit. The interval is empty where people cannot be redrawn.
struct Figure {
    double value = 0;
    std::optional<Interval> interval;
};

// A share of pairs. The interval holds that over redrawn people and Wilson's of so many independent
// pairs, as the true one is not narrower. Where no error was seen, or nothing else, redrawing shows
// nothing: there each person counts as one trial, or each two people, as if their pairs always went
// the same way.
struct Rate {
    uint64_t count = 0;
    uint64_t total = 0;
    Interval interval;

    double value() const { return static_cast<double>(count) / static_cast<double>(total); }
};

// Empty without pairs of that kind.
struct ErrorsAt {
    size_t rank = 0;
    std::optional<Rate> falseAccepts;
    std::optional<Rate> falseRejects;

    float threshold() const { return ThresholdAt(rank); }
};

// The lowest threshold with at most a wanted rate of false accepts; none where there are too few
// different pairs to claim that rate, see FewestPairsFor().
struct Recommendation {
    double wanted = 0;
    uint64_t fewestPairs = 0;
    std::optional<ErrorsAt> errors;
    // By the rule of thirty: a rate is known within about 30 % once 30 errors were counted.
    bool isRough = false;
};

// True accepts where the share of false accepts is this.
struct CurvePoint {
    double falseAccepts = 0;
    double trueAccepts = 0;
    std::optional<Interval> interval;
};

struct Figures {
    uint64_t samePairs = 0;
    uint64_t differentPairs = 0;
    std::optional<Figure> equalErrorRate;
    std::optional<Figure> area;
    std::optional<Accuracy> accuracy;
    std::optional<Figure> rank1;
    std::vector<ErrorsAt> table;
    std::vector<Recommendation> recommendations;
    std::vector<CurvePoint> curve; // down to the lowest rate that one different pair can show
};

Figures ComputeFigures(const Scores& scores, uint32_t people, uint32_t rounds, uint64_t seed,
                       const std::function<void(size_t, size_t)>& progress);

// The errors at thresholds that come from elsewhere, such as those that were chosen on more people.
std::vector<ErrorsAt> ErrorsAtRanks(const Scores& scores, uint32_t people,
                                    const std::vector<size_t>& ranks, uint32_t rounds,
                                    uint64_t seed);

} // namespace kova_statistics
