// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "evaluation/statistics/figures.h"

namespace kova_cli {

// The pairs inside a group, at the thresholds that are recommended for all.
struct GroupErrors {
    std::string name;
    size_t pictures = 0;
    uint32_t people = 0;
    uint64_t samePairs = 0;
    uint64_t differentPairs = 0;
    std::vector<kova_statistics::ErrorsAt> errors; // of each threshold that there is
};

// What was measured, and with which result.
struct Evaluation {
    size_t pictures = 0;
    uint32_t people = 0;
    bool hasPeople = true;            // they were named, not found from a list of pairs
    std::vector<std::string> leftOut; // pictures that cannot be used, each with its reason
    size_t pairsLeftOut = 0;          // of a list, since a picture of theirs was
    size_t repeatedPairs = 0;         // of a list
    std::vector<std::string> copies;  // the first few, "a and b"
    uint64_t copiesOfOne = 0;         // pairs of one person with the same feature
    uint64_t copiesOfTwo = 0;         // pairs of two people
    uint32_t rounds = 0;              // of redrawn people
    uint64_t seed = 0;
    bool isCrops = false; // the pictures were crops, so that nobody looked for faces
    std::vector<kova_statistics::AcceptedAt> strangers; // the highest scores of two people
    kova_statistics::Figures figures;
    std::string groupColumn; // empty: nobody asked for groups
    std::vector<GroupErrors> groups;
    size_t withoutGroup = 0; // pictures or, of a list, pairs
};

// For people, in 80 columns.
std::string EvaluationText(const Evaluation& evaluation);

// One line. What cannot be said is null.
std::string EvaluationJson(const Evaluation& evaluation);

} // namespace kova_cli
