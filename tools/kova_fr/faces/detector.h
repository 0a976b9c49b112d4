// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "faces/media_frame.h"

namespace kova_cli {

// The frames of the faces in a photograph, from the largest face to the smallest: squares around
// the faces, as much larger as the alignment network was trained on. At least one; a photograph
// without a face is a Failure that names it, and so is a program without a detector.
std::vector<Box> DetectFaces(const std::string& path);

} // namespace kova_cli
