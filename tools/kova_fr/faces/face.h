// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "faces/media_frame.h"
#include "fr_demo/face_box.h"
#include "orvo/orvo_find.h"
#include "orvo/orvo_fr.h"

namespace kova_cli {

using Feature = std::array<float, KOVA_FR_FEATURE_LEN>;

// A face of a picture, ready to be compared.
struct Face {
    std::string path; // as messages name it
    uint32_t pictureWidth = 0;
    uint32_t pictureHeight = 0;
    // Where it was found, with landmarks and quality; none where the picture, or a box in it, was
    // said to be the face.
    std::optional<OrvoFindFace> found;
    Box box; // without `found`: the part of the picture that was the frame
    Feature feature = {};
    // What the recognition network saw, kCropSize rows and columns; empty unless it was asked for.
    std::vector<uint8_t> crop;
};

inline constexpr uint32_t kCropSize = ORVO_FR_CROP_SIZE;
inline constexpr uint32_t kFrameSize = ORVO_FR_IMAGE_SIZE;

// A picture that one face fills, with what lies between it and the feature.
struct Inspection {
    Face face;
    std::vector<uint8_t> frame; // what the library looked at, kFrameSize rows and columns
    orvo::FaceBox faceBox;      // in the frame, whose left border it may cross
};

// The device API, from its initialisation to its end.
class Recogniser {
  public:
    Recogniser();
    ~Recogniser();
    Recogniser(const Recogniser&) = delete;
    Recogniser& operator=(const Recogniser&) = delete;

    // The face that fills the picture or the box in it; the alignment network looks where exactly.
    // No Failure names the picture.
    Face Recognise(const GreyPicture& picture, const std::optional<Box>& box) const;
    Inspection Inspect(const GreyPicture& picture, const std::optional<Box>& box) const;
    float Distance(const Feature& a, const Feature& b) const;
};

} // namespace kova_cli
