// SPDX-License-Identifier: MIT
//
// The core API: working memory, the way from a picture to its feature, the distance of two
// features.
#include <cstddef>

#include "common/diagnostics.h"
#include "compute_a/routines.h"
#include "fr_demo/locate_face.h"
#include "orvo/bounded_memory.h"
#include "orvo/image_tools.h"
#include "orvo/orvo_fr.h"

uint32_t g_frInited;
uint8_t* g_frInnerImage;
uint32_t g_frInnerImageSize;

namespace {

constexpr char kUnit[] = "../fr_demo/fr_api";

constexpr int32_t kImageSize = ORVO_FR_IMAGE_SIZE;
constexpr int32_t kCropSize = ORVO_FR_CROP_SIZE;
constexpr uint32_t kPlaneBytes = kCropSize * kCropSize;

// The partition of the working memory. The alignment network's regions lie inside the recognition
// network's: it has run to completion and its answer has been read before the other writes
// anything. The inner image overlaps nothing, since both networks read their input from it.
constexpr uint32_t kFrWorkspaceBytes = 497668;
constexpr uint32_t kFrInnerBufBytes = 3 * 32 * 96 * 96;
constexpr uint32_t kAlignWorkspaceBytes = 38408;
constexpr uint32_t kFrInnerBufOffset = kFrWorkspaceBytes;
constexpr uint32_t kAlignInnerBufOffset = kAlignWorkspaceBytes;
constexpr uint32_t kInnerImageOffset = kFrInnerBufOffset + kFrInnerBufBytes;
static_assert(kInnerImageOffset + 3 * kPlaneBytes == ORVO_FR_MEMORY_SIZE);

// The recognition network takes three planes.
int DuplicatePlane() {
    for (uint32_t at = kPlaneBytes; at < 3 * kPlaneBytes; at += kPlaneBytes) {
        const int ret =
            memcpy_s(g_frInnerImage + at, g_frInnerImageSize - at, g_frInnerImage, kPlaneBytes);
        if (ret != 0) {
            return ret;
        }
    }
    return 0;
}

} // namespace

int32_t OrvoFrInit(void) {
    // A second pass over plain arrays would garble them.
    if (g_frInited != 0) {
        ORVO_ERR(kUnit, "Repeat init.\n");
        return ORVO_FR_REPEAT_INIT;
    }
    if (AlignDecrypt() != 0) {
        ORVO_ERR(kUnit, "AlignDecrypt failed.\n");
        return ORVO_FR_NOT_DECRYPTED;
    }
    if (FrDecrypt() != 0) {
        ORVO_ERR(kUnit, "FrDecrypt failed.\n");
        return ORVO_FR_NOT_DECRYPTED;
    }
    g_frInited = 1;
    return ORVO_FR_OK;
}

uint32_t OrvoFrGetMemorySize(void) { return ORVO_FR_MEMORY_SIZE; }

int32_t OrvoFrSetMemory(void* addr, uint32_t size) {
    if (addr == nullptr) {
        ORVO_ERR(kUnit, "OrvoFrSetMemory failed. Input addr is null!\n\n");
        return ORVO_FR_NULL_ADDRESS;
    }
    if (size != OrvoFrGetMemorySize()) {
        ORVO_ERR(kUnit, "OrvoFrSetMemory failed. Set memory size error: %u, expect: %u\n\n", size,
                 OrvoFrGetMemorySize());
        return ORVO_FR_WRONG_SIZE;
    }
    uint8_t* const block = static_cast<uint8_t*>(addr);
    FrSetWorkspace(block);
    FrSetInnerbuf(block + kFrInnerBufOffset);
    g_frInnerImage = block + kInnerImageOffset;
    g_frInnerImageSize = size - kInnerImageOffset;
    AlignSetWorkspace(block);
    AlignSetInnerbuf(block + kAlignInnerBufOffset);
    ImageResizeInit();
    // A path may need the operating system's leave. It is asked here, so that no run, not even the
    // first, makes a system call.
    (void)orvo::ChosenRoutines();
    return ORVO_FR_OK;
}

int32_t CheckInput(const FrImage* img, const void* result, uint32_t resultSize) {
    if (img == nullptr || result == nullptr || img->addr == nullptr || g_frInnerImage == nullptr) {
        ORVO_ERR(kUnit,
                 "CheckInput failed. The img or imgAddr or resultAddr or g_frInnerImage is "
                 "null!\n\n");
        return ORVO_FR_NULL_ADDRESS;
    }
    if (img->height != kImageSize) {
        ORVO_ERR(kUnit, "CheckInput failed. InImage height error: %d, expect: %d\n\n", img->height,
                 kImageSize);
        return ORVO_FR_WRONG_SIZE;
    }
    if (img->width != kImageSize) {
        ORVO_ERR(kUnit, "CheckInput failed. InImage weight error: %d, expect: %d\n\n", img->width,
                 img->height);
        return ORVO_FR_WRONG_SIZE;
    }
    if (img->stride < kImageSize) {
        ORVO_ERR(kUnit,
                 "CheckInput failed. InImage stride error: %d, expect greater than or equal to: "
                 "%d\n\n",
                 img->stride, img->width);
        return ORVO_FR_WRONG_SIZE;
    }
    if (resultSize != ORVO_FR_FEATURE_BYTES) {
        ORVO_ERR(kUnit, "CheckInput failed. Result buffer size error: %u, expect: %u\n\n",
                 resultSize, static_cast<unsigned>(ORVO_FR_FEATURE_BYTES));
        return ORVO_FR_WRONG_SIZE;
    }
    return ORVO_FR_OK;
}

int32_t OrvoFrRun(const FrImage* img, void* result, uint32_t resultSize) {
    const int32_t status = CheckInput(img, result, resultSize);
    if (status != ORVO_FR_OK) {
        return status;
    }
    // Box and crop go through the same place: the network is done with its input by then.
    const orvo::FaceBox box = orvo::LocateFace(*img, g_frInnerImage);
    orvo::CropFace(*img, box, g_frInnerImage);
    int ret = DuplicatePlane();
    if (ret != 0) {
        ORVO_ERR(kUnit, "Duplicate data for FR model failed, the memcpy_s ret: %d\n\n", ret);
        return ORVO_FR_WRONG_SIZE;
    }
    FrRun(g_frInnerImage);
    ret = memcpy_s(result, resultSize, FrGetOutput(), ORVO_FR_FEATURE_BYTES);
    if (ret != 0) {
        ORVO_ERR(kUnit, "Get FR model output failed, the memcpy_s ret: %d\n\n", ret);
        return ORVO_FR_WRONG_SIZE;
    }
    return ORVO_FR_OK;
}

float OrvoFrGetDistance(const float* a, uint32_t aSize, const float* b, uint32_t bSize) {
    if (b == nullptr || a == nullptr) {
        ORVO_ERR(kUnit, "Get distance failed, the input a is null or the input b is null!\n\n");
        return 0.0f;
    }
    if (aSize == 0 || aSize != bSize) {
        ORVO_ERR(kUnit, "Get distance failed, the size is invalid, aSize: %u, bSize: %u!\n\n",
                 aSize, bSize);
        return 0.0f;
    }
    return FrCompare(a, b);
}

const char* OrvoFrGetInstructionSet(void) { return orvo::ChosenRoutines().name; }
