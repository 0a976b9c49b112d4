// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kova_cli {

// A field of a table with commas, in quotes where it must be (RFC 4180).
inline std::string CsvField(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
        return std::string(text);
    }
    std::string field = "\"";
    for (const char character : text) {
        field += character == '"' ? "\"\"" : std::string(1, character);
    }
    return field + "\"";
}

} // namespace kova_cli
