// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "orvo/orvo_find.h"
#include "pictures/picture_io.h"

namespace kova_cli {

// Faces that were found in a picture, as commands print them: one line a face, an object a face, and
// a picture with the boxes, the landmarks and the quality on it, in colours from red to green.
std::string FaceLine(const OrvoFindFace& face);
nlohmann::ordered_json FaceJson(const OrvoFindFace& face);
std::vector<uint8_t> DrawFaces(const GreyPicture& picture, const std::vector<OrvoFindFace>& faces);

} // namespace kova_cli
