// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace kova_cli {

// One line. Bytes of file names that are no UTF-8 are replaced; numbers that are not finite, which
// JSON cannot say, become null.
std::string JsonLine(const nlohmann::ordered_json& json);

} // namespace kova_cli
