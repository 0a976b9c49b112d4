// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "picture_files.h"

namespace kova_fr_test {

// The path of a sample face, 256 x 256.
std::string Sample(const std::string& name);

// Where a sample, enlarged, has its corner in a photograph.
struct Placed {
    uint32_t left, top, scale;
};

// Samples on a grey photograph of 1200 x 800.
Grey Photograph(const std::vector<std::pair<std::string, Placed>>& people);

// A sample at a sixth of its size on a grey ground: a face that is found, and too small to be good.
Grey FarAway(const std::string& name);

} // namespace kova_fr_test
