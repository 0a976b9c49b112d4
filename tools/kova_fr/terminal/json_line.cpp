// SPDX-License-Identifier: MIT
#include "terminal/json_line.h"

#include <cstdint>
#include <cstdio>

namespace kova_cli {
namespace {

// JSON escapes the controls below the space. The other ones, DEL and U+0080 to U+009F, may stand as
// they are, but some terminals obey them, too. Outside strings there are none.
std::string WithoutControls(const std::string& json) {
    const auto byte = [&json](size_t i) { return static_cast<uint8_t>(json[i]); };
    std::string text;
    for (size_t i = 0; i < json.size(); ++i) {
        const bool isHigh = byte(i) == 0xC2 && byte(i + 1) < 0xA0;
        if (isHigh || byte(i) == 0x7F) {
            char escape[8];
            i += isHigh ? 1 : 0;
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(byte(i)));
            text += escape;
        } else {
            text += json[i];
        }
    }
    return text;
}

} // namespace

std::string JsonLine(const nlohmann::ordered_json& json) {
    using Handler = nlohmann::ordered_json::error_handler_t;
    return WithoutControls(json.dump(-1, ' ', false, Handler::replace)) + "\n";
}

} // namespace kova_cli
