// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "faces/face.h"
#include "faces/finder.h"

namespace kova_cli {

inline constexpr int32_t kMostFaces = 100;

// What is to be said where there is none.
inline constexpr const char* kNoFace =
    "no face was found; if one face fills the picture, say so by --crop";

// How the faces of a picture are to be read.
struct FaceReading {
    bool isCrop = false; // one face fills the picture, or the box in it: nobody looks for faces
    std::optional<Box> box = std::nullopt; // of a crop; none: all of the picture
    bool withCrops = false;                // fill Face::crop
    int32_t most = kMostFaces;             // the best so many faces
};

// From a picture to faces that can be compared: the one way of all commands. The faces of a whole
// photograph are found and turned upright, best score first, and there may be none; a crop gives
// exactly one face. Paths are left empty, and no Failure names the picture.
std::vector<Face> FacesOf(const Recogniser& recogniser, Finder& finder, const GreyPicture& picture,
                          const FaceReading& reading);

// Below this a found face is not worth comparing: it would be like too many others, or not even like
// itself.
inline constexpr int32_t kLeastQuality = ORVO_FIND_GOOD;

// Of a crop nobody knows better.
bool IsGood(const Face& face);

// The rank of the largest among the good faces, of all where none is good. There is one at least.
size_t LargestGood(const std::vector<Face>& faces);

// "quality 12 of 100, too little: small, blurred"
std::string QualityWords(const OrvoFindFace& face);

} // namespace kova_cli
