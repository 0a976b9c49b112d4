// SPDX-License-Identifier: MIT
#include "faces/face.h"

#include <utility>

#include "files/failure.h"
#include "fr_demo/locate_face.h"
#include "grey/structure.h"

namespace kova_cli {
namespace {

void Extract(const MediaFrame& frame, Face& face) {
    const uint32_t status = kova_fr_extract_obj_feature(
        &frame.image(), static_cast<uint32_t>(face.feature.size()), face.feature.data());
    if (status != KOVA_FR_OK) {
        throw Failure("the feature could not be computed (" + StatusText(status) +
                      "); report this status");
    }
}

// The library does not keep what lies between a frame and its feature; asked again it is the same.
void Look(Inspection& seen) {
    const FrImage picture = {seen.frame.data(), kFrameSize, kFrameSize, kFrameSize};
    uint8_t small[ORVO_FR_ALIGN_SIZE * ORVO_FR_ALIGN_SIZE];
    seen.faceBox = orvo::LocateFace(picture, small);
    seen.face.crop.resize(size_t{kCropSize} * kCropSize);
    orvo::CropFace(picture, seen.faceBox, seen.face.crop.data());
}

// There is no measure of whether a part shows a face, only of whether it shows anything.
void CheckStructure(const GreyPicture& picture, const Box& box) {
    const uint8_t* const corner = picture.pixels.data() + size_t{box.y} * picture.width + box.x;
    if (orvo_grey::Structure(corner, box.width, box.height, picture.width) <
        orvo_grey::kLeastStructure) {
        throw Failure(
            "the face shows no structure, as a wall or a covered lens does; give a "
            "picture or a box with a face in it");
    }
}

// Hands the frame of the picture to `use`, with a face that knows where it comes from.
template <typename Use>
void WithFrame(const GreyPicture& picture, const std::optional<Box>& box, const Use& use) {
    Face face;
    face.pictureWidth = picture.width;
    face.pictureHeight = picture.height;
    face.box = FrameBox(picture, box);
    CheckStructure(picture, face.box);
    use(MediaFrame(picture, face.box), face);
}

} // namespace

Recogniser::Recogniser() {
    const uint32_t status = kova_fr_init();
    if (status == KOVA_FR_ERR_NOMEM) {
        throw Failure("the face library could not be started (" + StatusText(status) +
                      "): there is no memory for it; close other programs or raise the limit "
                      "(ulimit -v)");
    }
    if (status != KOVA_FR_OK) {
        throw Failure("the face library could not be started (" + StatusText(status) +
                      "); report this status");
    }
}

Recogniser::~Recogniser() { kova_fr_deinit(); }

Face Recogniser::Recognise(const GreyPicture& picture, const std::optional<Box>& box) const {
    Face result;
    WithFrame(picture, box, [&result](const MediaFrame& frame, Face& face) {
        Extract(frame, face);
        result = std::move(face);
    });
    return result;
}

Inspection Recogniser::Inspect(const GreyPicture& picture, const std::optional<Box>& box) const {
    Inspection result;
    WithFrame(picture, box, [&result](const MediaFrame& frame, Face& face) {
        Extract(frame, face);
        result.face = std::move(face);
        result.frame = ScaledFrame(frame.image());
        Look(result);
    });
    return result;
}

float Recogniser::Distance(const Feature& a, const Feature& b) const {
    const auto length = static_cast<int32_t>(a.size());
    float distance = 0;
    const uint32_t status = kova_fr_get_distance(a.data(), length, b.data(), length, &distance);
    if (status != KOVA_FR_OK) {
        throw Failure("the distance could not be computed (" + StatusText(status) +
                      "); report this status");
    }
    return distance;
}

} // namespace kova_cli
