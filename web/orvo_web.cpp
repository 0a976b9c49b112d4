// SPDX-License-Identifier: MIT
//
// What the page calls: one picture in, its frame, face box, crop and feature out. The grey levels
// and the scaling are those of kova-fr, so that the same picture gives the same feature.
#include <cstring>
#include <vector>

#include "device_api/frame_size.h"
#include "fr_demo/locate_face.h"
#include "grey/luma.h"
#include "grey/scale_plane.h"
#include "grey/structure.h"
#include "orvo/orvo_fr.h"

#define ORVO_WEB extern "C" __attribute__((used, visibility("default")))

namespace {

constexpr uint32_t kFrameSize = ORVO_FR_IMAGE_SIZE;
constexpr uint32_t kCropSize = ORVO_FR_CROP_SIZE;

// What the page reads, at these offsets.
struct Result {
    float feature[ORVO_FR_FEATURE_LENGTH];
    int32_t box[4]; // left, top, right, bottom in the frame
    uint8_t frame[kFrameSize * kFrameSize];
    uint8_t crop[kCropSize * kCropSize];
};
static_assert(sizeof(Result) == 512 + 16 + 65536 + 9216);

alignas(64) uint8_t g_memory[ORVO_FR_MEMORY_SIZE];
Result g_result;
std::vector<uint8_t> g_picture; // red, green, blue, alpha

uint8_t Grey(const uint8_t* pixel) {
    return orvo_grey::OverBlack(orvo_grey::Luma(pixel[0], pixel[1], pixel[2]), pixel[3]);
}

// The part of the picture, even in both directions, as grey levels.
std::vector<uint8_t> GreyPart(uint32_t pictureWidth, uint32_t left, uint32_t top, uint32_t width,
                              uint32_t height) {
    std::vector<uint8_t> grey;
    grey.reserve(size_t{width} * height);
    for (uint32_t y = 0; y < height; ++y) {
        const uint8_t* row = &g_picture[4 * ((size_t{top} + y) * pictureWidth + left)];
        for (uint32_t x = 0; x < width; ++x) {
            grey.push_back(Grey(row + 4 * size_t{x}));
        }
    }
    return grey;
}

// The library does not keep what lies between a frame and its feature; asked again it is the same.
void LookAtFace(const FrImage& frame) {
    uint8_t small[ORVO_FR_ALIGN_SIZE * ORVO_FR_ALIGN_SIZE];
    const orvo::FaceBox box = orvo::LocateFace(frame, small);
    const int32_t sides[] = {box.left, box.top, box.right, box.bottom};
    std::memcpy(g_result.box, sides, sizeof sides);
    orvo::CropFace(frame, box, g_result.crop);
}

} // namespace

// To be called once, before all else; 0 is success.
ORVO_WEB int32_t OrvoWebInit() {
    const int32_t status = OrvoFrInit();
    return status != ORVO_FR_OK ? status : OrvoFrSetMemory(g_memory, sizeof g_memory);
}

// Where the page writes a picture of this many pixels.
ORVO_WEB uint8_t* OrvoWebPicture(uint32_t pixels) {
    g_picture.resize(size_t{4} * pixels);
    return g_picture.data();
}

// The feature of a part of the picture; an odd last column or row is left out. 0 is success, -1 a
// part that is too small or leaves the picture, -2 one that shows no structure.
ORVO_WEB int32_t OrvoWebExtract(uint32_t pictureWidth, uint32_t pictureHeight, uint32_t left,
                                uint32_t top, uint32_t width, uint32_t height) {
    width -= width % 2;
    height -= height % 2;
    const bool isInside = left < pictureWidth && width <= pictureWidth - left &&
                          top < pictureHeight && height <= pictureHeight - top &&
                          g_picture.size() == size_t{4} * pictureWidth * pictureHeight;
    if (!isInside || width < orvo::kMinFrameWidth || height < orvo::kMinFrameHeight) {
        return -1;
    }
    const std::vector<uint8_t> grey = GreyPart(pictureWidth, left, top, width, height);
    if (orvo_grey::Structure(grey.data(), width, height, width) < orvo_grey::kLeastStructure) {
        return -2;
    }
    orvo_grey::ScalePlane({grey.data(), width, height, width},
                          {g_result.frame, kFrameSize, kFrameSize, kFrameSize});
    const FrImage image = {g_result.frame, kFrameSize, kFrameSize, kFrameSize};
    const int32_t status = OrvoFrRun(&image, g_result.feature, sizeof g_result.feature);
    LookAtFace(image);
    return status;
}

// The least width times 65536, plus the least height, of a part.
ORVO_WEB uint32_t OrvoWebSmallest() { return orvo::kMinFrameWidth << 16 | orvo::kMinFrameHeight; }

ORVO_WEB const Result* OrvoWebResult() { return &g_result; }

// Of two features that the page wrote behind each other.
ORVO_WEB float* OrvoWebPair() {
    static float pair[2 * ORVO_FR_FEATURE_LENGTH];
    return pair;
}

ORVO_WEB float OrvoWebDistance() {
    const float* pair = OrvoWebPair();
    return OrvoFrGetDistance(pair, ORVO_FR_FEATURE_BYTES, pair + ORVO_FR_FEATURE_LENGTH,
                             ORVO_FR_FEATURE_BYTES);
}
