// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "calibration/calibration.h"

namespace kova_cli {

// A calibration on disk is one object of JSON, so that other programs can use it, too:
//
//   "kova_fr_calibration"  version, 1
//   "models"               SHA-256 of the models whose features it is for
//   "pictures", "people", "labelled"
//   "faces"                "found" in whole pictures, or "crops"; a file of an earlier program does not say
//   "mean"                 128 numbers, to be subtracted from a feature
//   "cohort"               arrays of 128 numbers: features less the mean, of unit length
//   "most_alike"           of how many of its highest scores with the cohort, but for the very highest, a
//                          face's mean is made
//   "stranger_pairs", "strangers"   pairs [rank, score]: so many pairs of strangers score at least that
//   "thresholds"           of the normalised score, in the form of models/thresholds.json
//
// The score of two faces is the inner product of their features less the mean, at unit length; the
// normalised score is that less half the sum of both faces' means.
std::string CalibrationText(const Calibration& calibration);

// The Failure names the file. `models` are those of this program.
Calibration LoadCalibration(const std::string& path, const Sha256& models);

} // namespace kova_cli
