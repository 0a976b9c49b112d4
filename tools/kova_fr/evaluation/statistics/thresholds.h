// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace kova_statistics {

// Scores are counted between thresholds that are the multiples of 0.0001 from -1.0001 to 1.0001, as
// the float nearest to each: what a program has that says `distance >= 0.4523f`. So the counts at a
// threshold are exact, and a threshold can be written down in four decimals without changing them.
// A score that equals a threshold is accepted by it.
inline constexpr int kThresholdsPerUnit = 10000;
inline constexpr int kLastThreshold = kThresholdsPerUnit + 1;
inline constexpr size_t kThresholds = 2 * static_cast<size_t>(kLastThreshold) + 1;

// Ranks count the thresholds from the lowest.
float ThresholdAt(size_t rank);

// The four decimals that it is written with, not those of the float nearest to it.
double ThresholdNumber(size_t rank);

// The highest threshold that accepts the score, which may exceed 1 and -1 by rounding. A score that
// is no number, or no inner product of unit vectors, throws std::domain_error.
size_t RankOf(float score);

// The rank of a threshold given in ten-thousandths.
constexpr size_t RankOfSteps(int steps) { return static_cast<size_t>(steps + kLastThreshold); }

} // namespace kova_statistics
