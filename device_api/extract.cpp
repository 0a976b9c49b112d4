// SPDX-License-Identifier: MIT
//
// From a frame in media memory to the feature of its face.
#include "device_api/diagnostics.h"
#include "device_api/frame.h"
#include "device_api/state.h"
#include "orvo/kova_fr.h"
#include "orvo/orvo_fr.h"

namespace {

FrImage ToCoreImage(const obj_img& inner) {
    return {static_cast<const uint8_t*>(orvo::ToPointer(inner.vir_addr)),
            static_cast<int32_t>(inner.height), static_cast<int32_t>(inner.width),
            static_cast<int32_t>(inner.stride)};
}

} // namespace

uint32_t kova_fr_extract_obj_feature(const obj_img* img, uint32_t feature_len, float* feature) {
    const uint32_t checkStatus = orvo::fr_check_image(img);
    if (checkStatus != KOVA_FR_OK) {
        KOVA_FR_INFO("check image failed!\n");
        return checkStatus;
    }
    if (feature == nullptr) {
        KOVA_FR_INFO("Error: feature null!\n");
        return KOVA_FR_ERR_NULL_PTR;
    }
    if (feature_len != KOVA_FR_FEATURE_LEN) {
        KOVA_FR_INFO("Error: feature_len(%d) must be %d!\n", static_cast<int>(feature_len),
                     KOVA_FR_FEATURE_LEN);
        return KOVA_FR_ERR_ILLEGAL_PARAM;
    }
    const orvo::ApiLock lock;
    if (!orvo::ApiIsInited()) {
        KOVA_FR_INFO("fr already deinited\n");
        return KOVA_FR_ERR_UNEXIST;
    }
    obj_img inner{};
    const uint32_t createStatus = orvo::fr_create_img(*img, inner);
    if (createStatus != KOVA_FR_OK) {
        KOVA_FR_INFO("fr_create_img failed, ret:0x%x\n", createStatus);
        return createStatus;
    }
    const FrImage image = ToCoreImage(inner);
    const int32_t runStatus = orvo::IsWholeFrameMapped(*img)
                                  ? OrvoFrRun(&image, feature, ORVO_FR_FEATURE_BYTES)
                                  : int32_t{ORVO_FR_WRONG_SIZE};
    if (runStatus != ORVO_FR_OK) {
        KOVA_FR_INFO("fr extract obj feature fail,Error:%d\n", runStatus);
    }
    (void)orvo::fr_destory_img(*img, inner);
    return runStatus == ORVO_FR_OK ? KOVA_FR_OK : KOVA_FR_ERR_RUN;
}
