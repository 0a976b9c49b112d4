// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kova_cli {

// A file to be written. One that the user named may replace what was there; a name that the program
// made up may not.
struct OutputFile {
    std::string path;
    bool mayReplace = true;
    std::vector<uint8_t> bytes;
    bool isPrivate = false; // a new one is readable by its owner alone
};

// Refuses what would only fail after the work: files that exist and may not be replaced, and files
// that are one of `inputs`.
void CheckOutputs(const std::vector<OutputFile>& files, const std::vector<std::string>& inputs);

// Writes all files beside their places first and moves them there after that, so that a full disk
// leaves no half-written file and harms no earlier one. What killed programs left beside a place is
// removed on the way. A pipe or a device is written directly.
void WriteFiles(const std::vector<OutputFile>& files);

// Writes to standard output, and fails where a plain print would lose text silently.
void WriteStandardOutput(const std::string& text);

} // namespace kova_cli
