// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace orvo_bench {

// Runs this program once more, with ORVO_FR_PATH set to the path, and returns what it prints: a
// process chooses its path once. Throws std::runtime_error if it cannot be started.
std::string RunThisProgram(const std::string& path, const std::vector<std::string>& arguments);

} // namespace orvo_bench
