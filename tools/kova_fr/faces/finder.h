// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "faces/face.h"
#include "orvo/orvo_find.h"
#include "pictures/picture_io.h"

namespace kova_cli {

// libkova_find with memory of the size that the picture needs.
class Finder {
  public:
    Finder();

    // The faces in a picture, best first, at most `most`. Without `smallest` the smallest that can
    // be found in a picture of that size. Places are those of the picture given, also where it had
    // to be halved for the library. The Failure does not name the picture.
    std::vector<OrvoFindFace> Find(const GreyPicture& picture, std::optional<int32_t> smallest,
                                   int32_t most);

    // The same with a feature of each, for which a Recogniser must live.
    struct Features {
        std::vector<OrvoFindFace> faces;
        std::vector<Feature> features;
    };
    Features FindFeatures(const GreyPicture& picture, std::optional<int32_t> smallest,
                          int32_t most);

    // A face of this picture turned upright: ORVO_FIND_CROP_SIZE rows and columns.
    std::vector<uint8_t> Upright(const GreyPicture& picture, const OrvoFindFace& face);

  private:
    void MakeMemory(uint32_t size);
    Features Look(const GreyPicture& picture, std::optional<int32_t> smallest, int32_t most,
                  bool withFeatures);

    std::vector<uint8_t> memory_;
};

// Why a face is not good to be recognised, as words: "small", "blurred" and so on.
std::vector<std::string> ReasonWords(uint32_t reasons);

} // namespace kova_cli
