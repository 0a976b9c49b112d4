// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <vector>

#include "evaluation/statistics/error_rates.h"
#include "evaluation/statistics/interval.h"

namespace kova_statistics {

struct Accuracy {
    double value = 0;
    Interval interval; // 1.96 standard errors over the folds
    size_t folds = 0;
};

// The share of right decisions, same and different pairs counting alike, when each fold is judged
// with the threshold that suits the others best; of several such the middle one. Folds without
// pairs of both kinds are left out; nothing is said with fewer than two others.
std::optional<Accuracy> VerificationAccuracy(const std::vector<Histogram>& folds);

} // namespace kova_statistics
