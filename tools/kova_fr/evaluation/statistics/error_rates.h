// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "evaluation/statistics/thresholds.h"

namespace kova_statistics {

// How many pairs lie at each rank (RankOf).
struct Histogram {
    std::vector<uint64_t> same = std::vector<uint64_t>(kThresholds);
    std::vector<uint64_t> different = std::vector<uint64_t>(kThresholds);

    void Add(bool isSame, size_t rank, uint64_t count = 1) {
        (isSame ? same : different)[rank] += count;
    }
};

// How many pairs each threshold accepts. Rates are shares of the pairs; without pairs of that kind
// they are no numbers, and what follows from them is empty.
class Acceptance {
  public:
    explicit Acceptance(const Histogram& histogram);

    uint64_t SamePairs() const { return same_[0]; }
    uint64_t DifferentPairs() const { return different_[0]; }
    uint64_t AcceptedSame(size_t rank) const { return same_[rank]; }
    uint64_t AcceptedDifferent(size_t rank) const { return different_[rank]; }
    bool HasBoth() const { return SamePairs() > 0 && DifferentPairs() > 0; }

    double FalseAccepts(size_t rank) const;
    double FalseRejects(size_t rank) const;

  private:
    std::vector<uint64_t> same_;
    std::vector<uint64_t> different_;
};

// How many of the different pairs a threshold accepts.
struct AcceptedAt {
    uint64_t pairs = 0;
    size_t rank = 0;
};

// The scores of the different pairs, the highest first, as some thresholds that have a pair right at
// them: each accepts about a fifth more pairs than the one before, the last one all.
std::vector<AcceptedAt> DifferentFromTheHighest(const Acceptance& acceptance);

// Where the straight line between neighbouring points of the curve has as many false accepts as
// false rejects.
std::optional<double> EqualErrorRate(const Acceptance& acceptance);

// The share of (same, different) couples in which the same pair scores higher; equal ones count
// half, and those between the same two thresholds are equal.
std::optional<double> AreaUnderCurve(const Acceptance& acceptance);

// The lowest threshold that accepts at most this share of the different pairs.
std::optional<size_t> LoosestThreshold(const Acceptance& acceptance, double mostFalseAccepts);

// The rule of three: with n independent trials and no error among them, the error rate is below 3/n
// with 95 % confidence. So a rate cannot be claimed from fewer than 3/rate trials.
uint64_t FewestPairsFor(double rate);

} // namespace kova_statistics
