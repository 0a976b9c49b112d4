// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace orvo::pack {

struct OutputFile {
    std::string name;
    std::string text;
};

// Writes all files into a folder, which is made if it does not exist, or none of them: each is
// written under a temporary name, and they take their names once all are complete.
void WriteOutputFiles(const std::string& folder, const std::vector<OutputFile>& files);

} // namespace orvo::pack
