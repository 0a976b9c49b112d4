// SPDX-License-Identifier: MIT
#pragma once

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "hex.h"

namespace orvo_test {

// An entry of the key file that the library under test was packed with.
inline std::vector<uint8_t> PackingKey(const std::string& name) {
    std::ifstream file(ORVO_KEY_FILE);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string key;
        std::string equals;
        std::string value;
        if (words >> key >> equals >> value && key == name && equals == "=") {
            return Hex(value);
        }
    }
    return {};
}

} // namespace orvo_test
