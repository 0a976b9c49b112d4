// SPDX-License-Identifier: MIT
//
// The library for JavaScript: a picture in, its faces with their features out, or the feature of a
// picture that one face fills. library.js calls it. The grey levels and the scaling are those of
// kova-fr, so that the same picture gives the same feature.
#include <array>
#include <cstdlib>
#include <cstring>

#include "device_api/frame_size.h"
#include "fr_demo/locate_face.h"
#include "grey/luma.h"
#include "grey/scale_plane.h"
#include "grey/structure.h"
#include "orvo/orvo_find.h"
#include "orvo/orvo_fr.h"

#define ORVO_WEB extern "C" __attribute__((used, visibility("default")))

namespace {

constexpr uint32_t kFrameSize = ORVO_FR_IMAGE_SIZE;
constexpr int32_t kMostFaces = 64;

// What library.js reads, in this order.
constexpr uint32_t kFaceNumbers = 19;
static_assert(sizeof(OrvoFindFace) == kFaceNumbers * 4);
using Crop = std::array<uint8_t, ORVO_FR_CROP_SIZE * ORVO_FR_CROP_SIZE>;
struct Whole {
    std::array<float, ORVO_FR_FEATURE_LENGTH> feature;
    std::array<int32_t, 4> box; // left, top, right, bottom in the frame
    Crop crop;
};
static_assert(int{ORVO_FIND_CROP_SIZE} == ORVO_FR_CROP_SIZE &&
              int{ORVO_FIND_FEATURE_LENGTH} == ORVO_FR_FEATURE_LENGTH);

// Answers beside 0, success, and what is not negative, a count.
enum : int32_t {
    kWrongSize = -1,
    kNoStructure = -2,
    kNoMemory = -3,
    kTooNarrow = -4,
    kFailed = -5,
};

// Memory that grows and is kept. Where there is no more, the module says so and lives on.
class Block {
  public:
    uint8_t* Reserve(size_t size) {
        if (size > size_) {
            std::free(bytes_);
            bytes_ = static_cast<uint8_t*>(std::malloc(size));
            size_ = bytes_ == nullptr ? 0 : size;
        }
        return bytes_;
    }
    uint8_t* bytes() const { return bytes_; }
    size_t size() const { return size_; }

  private:
    uint8_t* bytes_ = nullptr;
    size_t size_ = 0;
};

alignas(64) uint8_t g_memory[ORVO_FR_MEMORY_SIZE];
Block g_findMemory;
Block g_pixels;            // as JavaScript wrote them, then as grey levels
OrvoFindPicture g_picture; // the grey levels; width 0: none
std::array<OrvoFindFace, kMostFaces> g_faces;
std::array<float, kMostFaces * ORVO_FR_FEATURE_LENGTH> g_features; // of g_faces
int32_t g_faceCount;
Crop g_upright;
Whole g_whole;

bool IsSide(uint32_t side) { return side >= 1 && side <= ORVO_FIND_MOST_SIDE; }

bool IsPicture(uint32_t width, uint32_t height, uint32_t channels) {
    return IsSide(width) && IsSide(height) && (channels == 1 || channels == 3 || channels == 4);
}

uint8_t Grey(const uint8_t* pixel, uint32_t channels) {
    const uint8_t luma = orvo_grey::Luma(pixel[0], pixel[1], pixel[2]);
    return channels == 4 ? orvo_grey::OverBlack(luma, pixel[3]) : luma;
}

bool GiveFindMemory(uint32_t size) {
    return g_findMemory.size() >= size || (g_findMemory.Reserve(size) != nullptr &&
                                           OrvoFindSetMemory(g_findMemory.bytes(), size) == 0);
}

// The smallest face that can be looked for: from ORVO_FIND_SMALLEST on twice as large until the
// picture is not too large for it; 0 if no size is.
int32_t SmallestThatCanBeFound() {
    for (int32_t side = ORVO_FIND_SMALLEST; side < 2 * ORVO_FIND_MOST_SIDE; side *= 2) {
        if (OrvoFindGetMemorySize(g_picture.width, g_picture.height, side) != 0) {
            return side;
        }
    }
    return 0;
}

// The library does not keep what lies between a frame and its feature; asked again it is the same.
void LookAtFace(const FrImage& frame) {
    uint8_t small[ORVO_FR_ALIGN_SIZE * ORVO_FR_ALIGN_SIZE];
    const orvo::FaceBox box = orvo::LocateFace(frame, small);
    g_whole.box = {box.left, box.top, box.right, box.bottom};
    orvo::CropFace(frame, box, g_whole.crop.data());
}

} // namespace

// To be called once, before all else; 0 is success.
ORVO_WEB int32_t OrvoWebInit() {
    int32_t status = OrvoFrInit();
    if (status == ORVO_FR_OK) {
        status = OrvoFrSetMemory(g_memory, sizeof g_memory);
    }
    return status != ORVO_FR_OK ? status : OrvoFindInit();
}

// Where JavaScript writes a picture of this size, row by row; null where there is no memory for it
// or a side is out of range. The picture before is gone.
ORVO_WEB uint8_t* OrvoWebPixels(uint32_t width, uint32_t height, uint32_t channels) {
    g_picture = {};
    g_faceCount = 0;
    if (!IsPicture(width, height, channels)) {
        return nullptr;
    }
    return g_pixels.Reserve(size_t{width} * height * channels);
}

// What was written there becomes the picture: grey levels, red, green and blue, or these and alpha
// (over black). The arguments are those of OrvoWebPixels().
ORVO_WEB int32_t OrvoWebTake(uint32_t width, uint32_t height, uint32_t channels) {
    const size_t pixels = size_t{width} * height;
    if (!IsPicture(width, height, channels) || g_pixels.size() < pixels * channels) {
        return kWrongSize;
    }
    uint8_t* const bytes = g_pixels.bytes();
    for (size_t i = 0; channels != 1 && i < pixels; ++i) {
        bytes[i] =
            Grey(bytes + i * channels, channels); // never in front of what is still to be read
    }
    const auto rowBytes = static_cast<int32_t>(width);
    g_picture = {bytes, rowBytes, static_cast<int32_t>(height), rowBytes};
    return 0;
}

// The faces of the picture, best first: how many there are, or why there can be none.
//
// smallest      side of the smallest that is looked for; 0: the smallest that can be
// most          faces that are wanted
// withFeatures  0: OrvoWebFeatures() has none afterwards
ORVO_WEB int32_t OrvoWebFind(int32_t smallest, int32_t most, int32_t withFeatures) {
    g_faceCount = 0;
    if (g_picture.width < ORVO_FIND_LEAST_SIDE || g_picture.height < ORVO_FIND_LEAST_SIDE ||
        smallest < 0 || most < 1 || most > kMostFaces) {
        return kWrongSize;
    }
    const int32_t least = smallest != 0 ? smallest : SmallestThatCanBeFound();
    const uint32_t size = OrvoFindGetMemorySize(g_picture.width, g_picture.height, least);
    if (size == 0) {
        return kTooNarrow;
    }
    if (!GiveFindMemory(size)) {
        return kNoMemory;
    }
    const int32_t status = withFeatures != 0
                               ? OrvoFindMirroredFeatures(&g_picture, least, g_faces.data(),
                                                          g_features.data(), most, &g_faceCount)
                               : OrvoFindRun(&g_picture, least, g_faces.data(), most, &g_faceCount);
    return status == ORVO_FIND_OK ? g_faceCount : kFailed;
}

ORVO_WEB const OrvoFindFace* OrvoWebFaces() { return g_faces.data(); }

ORVO_WEB const float* OrvoWebFeatures() { return g_features.data(); }

// One of the faces of the last OrvoWebFind() turned upright, 96 x 96; null where there is none.
ORVO_WEB const uint8_t* OrvoWebUpright(int32_t number) {
    if (number < 0 || number >= g_faceCount ||
        OrvoFindUpright(&g_picture, &g_faces[static_cast<size_t>(number)], g_upright.data()) != 0) {
        return nullptr;
    }
    return g_upright.data();
}

// The feature of a part of the picture that one face fills; an odd last column or row is left out.
ORVO_WEB int32_t OrvoWebExtract(uint32_t left, uint32_t top, uint32_t width, uint32_t height) {
    const auto pictureWidth = static_cast<uint32_t>(g_picture.width);
    const auto pictureHeight = static_cast<uint32_t>(g_picture.height);
    width -= width % 2;
    height -= height % 2;
    const bool isInside = left < pictureWidth && width <= pictureWidth - left &&
                          top < pictureHeight && height <= pictureHeight - top;
    if (!isInside || width < orvo::kMinFrameWidth || height < orvo::kMinFrameHeight) {
        return kWrongSize;
    }
    const uint8_t* const grey = g_picture.addr + size_t{top} * pictureWidth + left;
    if (orvo_grey::Structure(grey, width, height, pictureWidth) < orvo_grey::kLeastStructure) {
        return kNoStructure;
    }
    static uint8_t frame[kFrameSize * kFrameSize];
    orvo_grey::ScalePlane({grey, width, height, pictureWidth},
                          {frame, kFrameSize, kFrameSize, kFrameSize});
    const FrImage image = {frame, kFrameSize, kFrameSize, kFrameSize};
    if (OrvoFrRun(&image, g_whole.feature.data(), ORVO_FR_FEATURE_BYTES) != ORVO_FR_OK) {
        return kFailed;
    }
    LookAtFace(image);
    return 0;
}

ORVO_WEB const Whole* OrvoWebWhole() { return &g_whole; }

// The least width times 65536, plus the least height, of such a part.
ORVO_WEB uint32_t OrvoWebSmallest() { return orvo::kMinFrameWidth << 16 | orvo::kMinFrameHeight; }

// Where JavaScript writes two features, one behind the other.
ORVO_WEB float* OrvoWebPair() {
    static float pair[2 * ORVO_FR_FEATURE_LENGTH];
    return pair;
}

ORVO_WEB float OrvoWebDistance() {
    const float* pair = OrvoWebPair();
    return OrvoFrGetDistance(pair, ORVO_FR_FEATURE_BYTES, pair + ORVO_FR_FEATURE_LENGTH,
                             ORVO_FR_FEATURE_BYTES);
}
