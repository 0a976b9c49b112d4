// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace orvo_bench {

// The row that the others are set against.
inline constexpr char kPeakRow[] = "register peak";
inline constexpr char kAlignRow[] = "AlignRun";
inline constexpr char kRecognitionRow[] = "FrRun";

struct TableOptions {
    std::vector<std::string> paths;
    std::string filter;
    std::string commit = "unknown";
    bool json = false;
};

// Runs this program once for each path and prints the results of all side by side.
void PrintPathTable(const TableOptions& options);

} // namespace orvo_bench
