// SPDX-License-Identifier: MIT
//
// What the page calls: one picture in, its frame, face box, crop and feature out. The grey levels
// and the scaling are those of kova-fr, so that the same picture gives the same feature.
#include <cstring>
#include <vector>

#include "fr_demo/face_box.h"
#include "grey/structure.h"
#include "orvo/image_tools.h"
#include "orvo/orvo_fr.h"
#include "platform/host/resample.h"

#define ORVO_WEB extern "C" __attribute__((used, visibility("default")))

namespace {

constexpr uint32_t kFrameSize = ORVO_FR_IMAGE_SIZE;
constexpr uint32_t kCropSize = ORVO_FR_CROP_SIZE;
constexpr uint32_t kMinWidth = 16, kMinHeight = 12; // as the device API asks of a frame

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
    const uint32_t luma = (77u * pixel[0] + 150u * pixel[1] + 29u * pixel[2] + 128) >> 8;
    return static_cast<uint8_t>((luma * pixel[3] + 127) / 255); // over black
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

// The networks share their memory, so the alignment network is asked once more.
void LocateFace() {
    ImageResizeBilin(g_result.frame, g_frInnerImage, kFrameSize, kFrameSize, kFrameSize,
                     ORVO_FR_ALIGN_SIZE, ORVO_FR_ALIGN_SIZE);
    AlignRun(g_frInnerImage);
    const orvo::FaceBox box = orvo::BoxOfAnswer(AlignGetOutput());
    const int32_t sides[] = {box.left, box.top, box.right, box.bottom};
    std::memcpy(g_result.box, sides, sizeof sides);
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
    if (!isInside || width < kMinWidth || height < kMinHeight) {
        return -1;
    }
    const std::vector<uint8_t> grey = GreyPart(pictureWidth, left, top, width, height);
    if (orvo_grey::Structure(grey.data(), width, height, width) < orvo_grey::kLeastStructure) {
        return -2;
    }
    kova_host::ScalePlane({grey.data(), width, height, width},
                          {g_result.frame, kFrameSize, kFrameSize, kFrameSize});
    const FrImage image = {g_result.frame, kFrameSize, kFrameSize, kFrameSize};
    const int32_t status = OrvoFrRun(&image, g_result.feature, sizeof g_result.feature);
    // The recognition network turned the crop into Q7 where it lies: grey level XOR 0x80.
    for (uint32_t i = 0; i < sizeof g_result.crop; ++i) {
        g_result.crop[i] = g_frInnerImage[i] ^ 0x80;
    }
    LocateFace();
    return status;
}

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
