// SPDX-License-Identifier: MIT
#include "terminal/json_line.h"

namespace kova_cli {

std::string JsonLine(const nlohmann::ordered_json& json) {
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

} // namespace kova_cli
