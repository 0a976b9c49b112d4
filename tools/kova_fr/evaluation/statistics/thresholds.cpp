// SPDX-License-Identifier: MIT
#include "evaluation/statistics/thresholds.h"

#include <cmath>
#include <stdexcept>

namespace kova_statistics {

double ThresholdNumber(size_t rank) {
    return (static_cast<double>(rank) - kLastThreshold) / kThresholdsPerUnit;
}

float ThresholdAt(size_t rank) { return static_cast<float>(ThresholdNumber(rank)); }

size_t RankOf(float score) {
    if (!(std::fabs(score) < ThresholdAt(kThresholds - 1))) {
        throw std::domain_error("a score is not between -1 and 1; report this");
    }
    // Rounded, this may be one too high or too low where the score is next to a threshold.
    const double steps = std::floor(static_cast<double>(score) * kThresholdsPerUnit);
    auto rank = static_cast<size_t>(steps + kLastThreshold);
    while (score < ThresholdAt(rank)) {
        --rank;
    }
    while (score >= ThresholdAt(rank + 1)) {
        ++rank;
    }
    return rank;
}

} // namespace kova_statistics
