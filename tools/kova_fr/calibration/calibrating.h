// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include "calibration/calibration.h"

namespace kova_cli {

struct CalibratingOptions {
    uint32_t rounds = 400; // of redrawn people, for the intervals
    uint64_t seed = 0;
};

// Calibrates on pictures of people, of whom there are two at least.
//
// The mean is that over people of the mean over their pictures. The scores behind thresholds and
// rarities are those that other people of the same population would get: people are dealt into
// folds, and each pair is scored with a mean and a cohort that both people had no part in.
// `progress` hears how much of how much is done.
Calibration Calibrate(const kova_statistics::Comparisons& comparisons,
                      const CalibratingOptions& options,
                      const std::function<void(size_t, size_t)>& progress);

} // namespace kova_cli
