// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "faces/digest.h"
#include "faces/face.h"
#include "orvo/orvo_find.h"
#include "pictures/picture_io.h"

namespace kova_cli {

// How a picture is to be looked at.
struct Looking {
    bool isCrop = false;             // one face fills it
    std::optional<int32_t> smallest; // side of the smallest face; none: what can be found
    int32_t most = 0;                // the best so many faces
};

// What the service needs of the rest of the program to look at pictures. Only one thread at a time
// calls `find` or `look`: the library keeps its state in module-level variables. Failures name no
// file.
struct FaceEngine {
    // The faces of a picture, best first.
    std::function<std::vector<OrvoFindFace>(const GreyPicture&, const Looking&)> find;
    // The same with their features; their boxes are what the recogniser saw.
    std::function<std::vector<Face>(const GreyPicture&, const Looking&)> look;
    std::function<nlohmann::ordered_json(const OrvoFindFace&)> describe;
    std::function<std::vector<std::string>(uint32_t reasons)> reasonWords;
    nlohmann::ordered_json about; // version, models and thresholds
    Sha256 models;
    int32_t leastQuality; // of a face that is compared, unless the request says otherwise
};

} // namespace kova_cli
