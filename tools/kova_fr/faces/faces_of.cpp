// SPDX-License-Identifier: MIT
#include "faces/faces_of.h"

#include <algorithm>

namespace kova_cli {
namespace {

std::vector<Face> FoundFaces(Finder& finder, const GreyPicture& picture,
                             const FaceReading& reading) {
    const Finder::Features found = finder.FindFeatures(picture, std::nullopt, reading.most);
    std::vector<Face> faces(found.faces.size());
    for (size_t i = 0; i < faces.size(); ++i) {
        faces[i].pictureWidth = picture.width;
        faces[i].pictureHeight = picture.height;
        faces[i].found = found.faces[i];
        faces[i].feature = found.features[i];
        if (reading.withCrops) {
            faces[i].crop = finder.Upright(picture, found.faces[i]);
        }
    }
    return faces;
}

} // namespace

std::vector<Face> FacesOf(const Recogniser& recogniser, Finder& finder, const GreyPicture& picture,
                          const FaceReading& reading) {
    if (!reading.isCrop) {
        return FoundFaces(finder, picture, reading);
    }
    return {reading.withCrops ? recogniser.Inspect(picture, reading.box).face
                              : recogniser.Recognise(picture, reading.box)};
}

bool IsGood(const Face& face) { return !face.found || face.found->quality >= kLeastQuality; }

size_t LargestGood(const std::vector<Face>& faces) {
    const auto isLess = [](const Face& a, const Face& b) {
        const float sideA = a.found ? a.found->side : 0;
        const float sideB = b.found ? b.found->side : 0;
        return IsGood(a) == IsGood(b) ? sideA < sideB : IsGood(b);
    };
    return static_cast<size_t>(std::ranges::max_element(faces, isLess) - faces.begin());
}

std::string QualityWords(const OrvoFindFace& face) {
    std::string text = "quality " + std::to_string(face.quality) + " of 100";
    text += face.quality < kLeastQuality ? ", too little" : "";
    const char* separator = ": ";
    for (const std::string& word : ReasonWords(face.reasons)) {
        text += separator + word;
        separator = ", ";
    }
    return text;
}

} // namespace kova_cli
