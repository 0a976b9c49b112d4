// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "evaluation/statistics/comparisons.h"

namespace kova_cli {

// Single pairs of an evaluation: what the figures are made of.

struct PairScore {
    uint32_t first;
    uint32_t second;
    bool isSame; // one person
    float score;
};

// All pairs that are compared, in order.
void ForEachPair(const kova_statistics::Comparisons& comparisons,
                 const std::function<void(const PairScore&)>& take);

struct WorstPairs {
    std::vector<PairScore> same;      // of one person, the least alike first
    std::vector<PairScore> different; // of two, the most alike first
};

WorstPairs FindWorstPairs(const kova_statistics::Comparisons& comparisons, size_t ofEach);

// A table of all pairs: first, second, one person (1) or two (0), score. `names` are those of the
// pictures. The file is for its owner alone.
void WritePairScores(const kova_statistics::Comparisons& comparisons,
                     const std::vector<std::string>& names, const std::string& path);

} // namespace kova_cli
