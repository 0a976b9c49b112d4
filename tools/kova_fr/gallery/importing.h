// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "gallery/gallery_file.h"

namespace kova_cli {

// What exporting.h writes, read again, for galleries. What is no feature and what is no name is
// refused. The files do not say which models made the features: whoever imports them must know. The
// Failure names the file.

struct ImportedEntries {
    std::vector<Feature> features;
    std::vector<std::string> names;
};

ImportedEntries ImportCsv(const std::string& path);

ImportedEntries ImportNpy(const std::string& path, const std::string& namesPath);

} // namespace kova_cli
