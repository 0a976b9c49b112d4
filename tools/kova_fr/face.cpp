// SPDX-License-Identifier: MIT
#include "face.h"

#include "failure.h"

namespace kova_cli {
namespace {

// The recognition network turned the crop into Q7 where it lies: grey level XOR 0x80.
std::vector<uint8_t> CopyCrop() {
    std::vector<uint8_t> crop(g_frInnerImage, g_frInnerImage + kCropSize * kCropSize);
    for (uint8_t& pixel : crop) {
        pixel ^= 0x80;
    }
    return crop;
}

void Extract(const GreyPicture& picture, const std::optional<Box>& box, Face& face) {
    face.pictureWidth = picture.width;
    face.pictureHeight = picture.height;
    face.box = FrameBox(picture, box);
    const MediaFrame frame(picture, face.box);
    const uint32_t status = kova_fr_extract_obj_feature(
        &frame.image(), static_cast<uint32_t>(face.feature.size()), face.feature.data());
    if (status != KOVA_FR_OK) {
        throw Failure("the feature could not be computed (" + StatusText(status) +
                      "); report this status");
    }
    face.crop = CopyCrop();
}

} // namespace

Recogniser::Recogniser() {
    const uint32_t status = kova_fr_init();
    if (status != KOVA_FR_OK) {
        throw Failure("the face library could not be started (" + StatusText(status) +
                      "); report this status");
    }
}

Recogniser::~Recogniser() { kova_fr_deinit(); }

Face Recogniser::Recognise(const std::string& path, const std::optional<Box>& box) const {
    Face face;
    face.path = path;
    const GreyPicture picture = LoadPicture(path);
    try {
        Extract(picture, box, face);
    } catch (const Failure& failure) {
        throw Failure(path + ": " + failure.what());
    }
    return face;
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
