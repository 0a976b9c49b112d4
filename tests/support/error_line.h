// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace orvo_test {

// Whether `text` is exactly one diagnostic of the core or a kernel: "[ERR] <unit>:<line>
// <message>", with any line number and the message's own line ends.
inline bool IsErrorLine(const std::string& text, const std::string& unit,
                        const std::string& message) {
    const std::string start = "[ERR] " + unit + ":";
    if (text.compare(0, start.size(), start) != 0) {
        return false;
    }
    const size_t afterLine = text.find_first_not_of("0123456789", start.size());
    return afterLine != std::string::npos && afterLine > start.size() &&
           text.substr(afterLine) == " " + message;
}

} // namespace orvo_test
