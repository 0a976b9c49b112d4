// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "calibration/calibration.h"

namespace kova_cli {

// "as alike as 1 in 400 pairs of strangers", rounded down to two digits.
std::string RarityWords(const Rarity& rarity);

// {"one_in": 400, "beyond": false}
nlohmann::ordered_json RarityJson(const Rarity& rarity);

// On whom it was made, and its thresholds, in lines of at most 80 columns.
std::string CalibrationWords(const Calibration& calibration);

} // namespace kova_cli
