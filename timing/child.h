// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace orvo_timing {

// Runs a program with ORVO_FR_PATH set to the path, or as it is where that is empty, and returns
// what it prints: a process chooses its path once. Throws std::runtime_error if it cannot be
// started.
std::string RunProgram(const std::string& program, const std::string& path,
                       const std::vector<std::string>& arguments);

// This one once more.
std::string RunThisProgram(const std::string& path, const std::vector<std::string>& arguments);

// This one without what it says on standard error, such as that the machine lacks the path.
std::string AskThisProgram(const std::string& path, const std::vector<std::string>& arguments);

} // namespace orvo_timing
