// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "evaluation/pair_scores.h"

namespace kova_cli {

// A face's crop, kCropSize rows and columns; empty where it cannot be had.
using CropOf = std::function<std::vector<uint8_t>(const std::string& path)>;

// A PNG picture with the worst pairs: on the left two people that look most alike, on the right one
// person that looks least alike, each with the score and the pictures' names.
std::vector<uint8_t> ContactSheet(const WorstPairs& worst, const std::vector<std::string>& paths,
                                  const CropOf& cropOf);

} // namespace kova_cli
