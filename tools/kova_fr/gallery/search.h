// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "calibration/calibration.h"
#include "gallery/gallery_file.h"

namespace kova_cli {

struct Match {
    size_t entry = 0;
    float distance = 0;
    float score = 0; // by which it is ranked
    std::string name;
};

// For each feature the best entry of each of the `count` most alike names, from the most alike; of
// equal ones the earlier first. A distance that is no finite number matches nothing.
//
// Exact: every entry is compared, with the bits that `compare` prints. The gallery is read once for
// all features, and neither its entries nor their distances are kept. docs/SPEED.md has the times.
std::vector<std::vector<Match>> Search(const GalleryFile& gallery,
                                       const std::vector<Feature>& features, size_t count);

// The same by the normalised score of a calibration, in which every entry is compared with the cohort.
std::vector<std::vector<Match>> Search(const GalleryFile& gallery,
                                       const std::vector<Feature>& features, size_t count,
                                       const Calibration& calibration);

} // namespace kova_cli
