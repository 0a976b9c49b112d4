// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "evaluation/statistics/error_rates.h"
#include "orvo/orvo_fr.h"

namespace kova_statistics {

using Feature = std::array<float, ORVO_FR_FEATURE_LENGTH>;

struct Pair {
    uint32_t first;
    uint32_t second;
};

// Pictures of people, and which of them are compared.
struct Comparisons {
    std::vector<Feature> features;
    std::vector<uint32_t> person; // of each picture, numbered from 0
    uint32_t people = 0;
    std::optional<std::vector<Pair>> pairs; // without: all of them
    // Of two pictures, from -1 to 1. Without: OrvoFrGetDistance() of their features.
    std::function<float(uint32_t, uint32_t)> score;
};

struct ScoredPair {
    uint32_t firstPerson;
    uint32_t secondPerson;
    uint32_t rank;
};

// For each person over their pictures: how often the picture was looked for, and how often it was
// found, as shares of the rounds in which it was.
struct Found {
    double asked = 0;
    double right = 0;
};

// What one pass over all pairs leaves.
struct Scores {
    Histogram all;
    // Pairs of which both people belong to the fold. Two folds at least, or none.
    std::vector<Histogram> folds;
    // For redrawing people: all pairs, or an evenly drawn part of those of one kind.
    std::vector<ScoredPair> drawn;
    std::vector<Found> found; // a person each; empty if only some pairs are compared
    // Pairs with one and the same feature: copies of a picture, most likely.
    uint64_t copiesOfOne = 0; // person
    uint64_t copiesOfTwo = 0;
    std::vector<Pair> firstCopies;
};

struct ScoringLimits {
    uint64_t mostDrawn = 2'000'000; // of each kind
    size_t mostCopies = 5;          // listed
    uint32_t folds = 10;
    uint32_t searchRounds = 10;
    uint64_t seed = 0;
};

// `progress` hears how many of how many rows of pairs are done.
Scores ScorePairs(const Comparisons& comparisons, const ScoringLimits& limits,
                  const std::function<void(size_t, size_t)>& progress);

} // namespace kova_statistics
