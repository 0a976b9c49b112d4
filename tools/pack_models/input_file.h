// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace orvo::pack {

// Reads a whole file up to a bound, so that a device or a pipe given by mistake ends too.
std::vector<uint8_t> ReadFile(const std::string& path, size_t mostBytes);

} // namespace orvo::pack
