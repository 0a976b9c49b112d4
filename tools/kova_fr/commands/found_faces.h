// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "orvo/orvo_find.h"
#include "pictures/canvas.h"
#include "pictures/picture_io.h"

namespace kova_cli {

// Faces that were found in a picture, as commands print them: one line a face, and an object a face.
std::string FaceLine(const OrvoFindFace& face);
nlohmann::ordered_json FaceJson(const OrvoFindFace& face);

// "blurred, dark", or "none".
std::string ReasonsText(uint32_t reasons);

// What is drawn of a face: box and landmarks in a colour from red to green, after the quality, and
// a label below the box.
struct LabelledFace {
    OrvoFindFace face;
    std::string label;
};
// The quality with what is wrong.
std::string QualityLabel(const OrvoFindFace& face);
// Box and landmarks of a face whose picture has its corner at left, top of the canvas, where each of
// its pixels is `scale` wide.
void DrawMarks(const OrvoFindFace& face, int32_t left, int32_t top, double scale, int32_t thickness,
               Canvas& canvas);
// The picture with all of them, as a PNG file. Faces stand best first.
std::vector<uint8_t> DrawFaces(const GreyPicture& picture, const std::vector<LabelledFace>& faces);

} // namespace kova_cli
