// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "evaluation/statistics/comparisons.h"
#include "evaluation/statistics/interval.h"

namespace kova_statistics {

// Pairs are not independent of one another: a person who is hard to recognise spoils all pairs of
// theirs. So intervals come from redrawing people: as many as there are, with replacement, many
// times. A pair of different people counts as often as both were drawn, the product; a person drawn
// twice is still one person, whose same pairs count as often as the person was drawn.
struct Bootstrap {
    uint32_t rounds = 400;
    uint64_t seed = 0;
    std::vector<size_t> thresholds; // whose error rates are wanted
    std::vector<double> rates;      // of false accepts, where the true accepts are wanted
};

// Intervals over the rounds in which there were pairs to count; empty where there were none.
struct Spread {
    std::optional<Interval> equalErrorRate;
    std::optional<Interval> area;
    std::optional<Interval> rank1;
    std::vector<std::optional<Interval>> falseAccepts; // at each threshold
    std::vector<std::optional<Interval>> falseRejects;
    std::vector<std::optional<Interval>> trueAccepts; // at each rate
};

Spread BootstrapPeople(const Scores& scores, uint32_t people, const Bootstrap& bootstrap,
                       const std::function<void(size_t, size_t)>& progress);

// The share of searches that found the right person; empty without any.
std::optional<double> Rank1(const std::vector<Found>& found);

} // namespace kova_statistics
