// SPDX-License-Identifier: MIT
#include "evaluation/statistics/folds.h"

#include <algorithm>
#include <cmath>

namespace kova_statistics {
namespace {

void Add(Histogram& sum, const Histogram& part) {
    for (size_t rank = 0; rank < kThresholds; ++rank) {
        sum.same[rank] += part.same[rank];
        sum.different[rank] += part.different[rank];
    }
}

double RightDecisions(const Acceptance& acceptance, size_t rank) {
    return 1 - (acceptance.FalseAccepts(rank) + acceptance.FalseRejects(rank)) / 2;
}

size_t BestThreshold(const Acceptance& acceptance) {
    // In whole numbers, so that equally good thresholds are found to be equal.
    const auto gain = [&acceptance](size_t rank) {
        const auto same = static_cast<int64_t>(acceptance.AcceptedSame(rank));
        const auto different = static_cast<int64_t>(acceptance.AcceptedDifferent(rank));
        return same * static_cast<int64_t>(acceptance.DifferentPairs()) -
               different * static_cast<int64_t>(acceptance.SamePairs());
    };
    std::vector<size_t> best = {0};
    for (size_t rank = 1; rank < kThresholds; ++rank) {
        const int64_t more = gain(rank) - gain(best.front());
        if (more > 0) {
            best.clear();
        }
        if (more >= 0) {
            best.push_back(rank);
        }
    }
    return best[best.size() / 2];
}

Accuracy MeanOf(const std::vector<double>& results) {
    const auto count = static_cast<double>(results.size());
    double mean = 0;
    for (const double result : results) {
        mean += result / count;
    }
    double squares = 0;
    for (const double result : results) {
        squares += (result - mean) * (result - mean);
    }
    const double error = 1.96 * std::sqrt(squares / (count - 1) / count);
    return {mean, {std::max(0.0, mean - error), std::min(1.0, mean + error)}, results.size()};
}

} // namespace

std::optional<Accuracy> VerificationAccuracy(const std::vector<Histogram>& folds) {
    std::vector<const Histogram*> useful;
    for (const Histogram& fold : folds) {
        if (Acceptance(fold).HasBoth()) {
            useful.push_back(&fold);
        }
    }
    if (useful.size() < 2) {
        return std::nullopt;
    }
    std::vector<double> results;
    for (const Histogram* judged : useful) {
        Histogram others;
        for (const Histogram* other : useful) {
            if (other != judged) {
                Add(others, *other);
            }
        }
        results.push_back(RightDecisions(Acceptance(*judged), BestThreshold(Acceptance(others))));
    }
    return MeanOf(results);
}

} // namespace kova_statistics
