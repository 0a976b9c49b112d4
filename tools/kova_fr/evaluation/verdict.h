// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace kova_cli {

// What the distance of two faces says, by the thresholds that were measured for this build's models,
// on found faces or on crops.

// "Perhaps the same person: as alike as 1 in 400 pairs of strangers", and who those strangers were.
// Lines of at most 80 columns; empty where nothing was measured.
std::string VerdictText(float distance, bool isCrop);

// {"verdict": "perhaps", "one_in": 400, "beyond": false}; null where nothing was measured.
nlohmann::ordered_json VerdictJson(float distance, bool isCrop);

} // namespace kova_cli
