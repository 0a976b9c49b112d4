// SPDX-License-Identifier: MIT
#include "evaluation/statistics/error_rates.h"

#include <algorithm>

#include <cmath>
#include <numeric>

namespace kova_statistics {
namespace {

std::vector<uint64_t> SumsFromAbove(const std::vector<uint64_t>& counts) {
    std::vector<uint64_t> sums(counts.size());
    std::partial_sum(counts.rbegin(), counts.rend(), sums.rbegin());
    return sums;
}

double Share(uint64_t count, uint64_t total) {
    return static_cast<double>(count) / static_cast<double>(total);
}

} // namespace

Acceptance::Acceptance(const Histogram& histogram)
    : same_(SumsFromAbove(histogram.same)), different_(SumsFromAbove(histogram.different)) {}

double Acceptance::FalseAccepts(size_t rank) const {
    return Share(different_[rank], DifferentPairs());
}

double Acceptance::FalseRejects(size_t rank) const {
    return Share(SamePairs() - same_[rank], SamePairs());
}

std::vector<AcceptedAt> DifferentFromTheHighest(const Acceptance& acceptance) {
    constexpr uint64_t kSteps = 5;
    std::vector<AcceptedAt> accepted;
    uint64_t last = 0;
    uint64_t wanted = 1;
    for (size_t rank = kThresholds; rank-- > 0;) {
        const uint64_t pairs = acceptance.AcceptedDifferent(rank);
        const bool isAll = pairs == acceptance.DifferentPairs();
        if (pairs > last && (pairs >= wanted || isAll)) {
            accepted.push_back({pairs, rank});
            wanted = pairs + std::max<uint64_t>(1, pairs / kSteps);
        }
        last = pairs;
    }
    return accepted;
}

std::optional<double> EqualErrorRate(const Acceptance& acceptance) {
    if (!acceptance.HasBoth()) {
        return std::nullopt;
    }
    // Above all scores nothing is accepted.
    double accepts = 0;
    double gap = -1;
    for (size_t rank = kThresholds; rank-- > 0;) {
        const double nextAccepts = acceptance.FalseAccepts(rank);
        const double nextGap = nextAccepts - acceptance.FalseRejects(rank);
        if (nextGap >= 0) {
            return accepts + -gap / (nextGap - gap) * (nextAccepts - accepts);
        }
        accepts = nextAccepts;
        gap = nextGap;
    }
    return 1.0; // not reached: the lowest threshold accepts all pairs
}

std::optional<double> AreaUnderCurve(const Acceptance& acceptance) {
    if (!acceptance.HasBoth()) {
        return std::nullopt;
    }
    double area = 0;
    double accepts = 0;
    double rejects = 1;
    for (size_t rank = kThresholds; rank-- > 0;) {
        const double nextAccepts = acceptance.FalseAccepts(rank);
        const double nextRejects = acceptance.FalseRejects(rank);
        area += (nextAccepts - accepts) * (1 - (rejects + nextRejects) / 2);
        accepts = nextAccepts;
        rejects = nextRejects;
    }
    return area;
}

std::optional<size_t> LoosestThreshold(const Acceptance& acceptance, double mostFalseAccepts) {
    if (acceptance.DifferentPairs() == 0) {
        return std::nullopt;
    }
    size_t rank = 0;
    for (size_t above = kThresholds - 1; rank < above;) {
        const size_t middle = (rank + above) / 2;
        if (acceptance.FalseAccepts(middle) <= mostFalseAccepts) {
            above = middle;
        } else {
            rank = middle + 1;
        }
    }
    return rank;
}

uint64_t FewestPairsFor(double rate) { return static_cast<uint64_t>(std::llround(3 / rate)); }

} // namespace kova_statistics
