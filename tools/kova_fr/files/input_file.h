// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kova_cli {

// All of a file or pipe, if it is not larger than `limit`. The Failure does not name the file.
std::vector<uint8_t> ReadWholeFile(const std::string& path, uint64_t limit);

} // namespace kova_cli
