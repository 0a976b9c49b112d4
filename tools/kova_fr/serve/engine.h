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

struct SeenFace {
    OrvoFindFace found;
    Feature feature;
};

// What the service needs of the rest of the program to look at pictures. Only one thread at a time
// calls `look`: the library keeps its state in module-level variables. Failures name no file.
struct FaceEngine {
    // The faces of a picture, best first, at most so many; without a smallest side the smallest that
    // can be found.
    std::function<std::vector<SeenFace>(const GreyPicture&, std::optional<int32_t> smallest,
                                        int32_t most)>
        look;
    std::function<nlohmann::ordered_json(const OrvoFindFace&)> describe;
    std::function<std::vector<std::string>(uint32_t reasons)> reasonWords;
    nlohmann::ordered_json about; // version, models and thresholds
    Sha256 models;
    int32_t leastQuality; // of a face that is compared, unless the request says otherwise
};

} // namespace kova_cli
