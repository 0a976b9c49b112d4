// SPDX-License-Identifier: MIT
#include "device_api/frame.h"

#include "device_api/diagnostics.h"
#include "device_api/frame_size.h"
#include "device_api/state.h"
#include "orvo/kova_mpi.h"
#include "orvo/orvo_fr.h"

namespace orvo {
namespace {

constexpr uint32_t kInnerSize = ORVO_FR_IMAGE_SIZE;
constexpr uint32_t kMapped = 0;  // mem_type: the library maps the plane itself
constexpr uint32_t kVirtual = 1; // mem_type: the caller's address is usable

bool HasInnerSize(const obj_img& img) {
    return img.width == kInnerSize && img.height == kInnerSize;
}

uint64_t FrameBytes(const obj_img& img) { return uint64_t{img.stride} * kInnerSize; }

// In 32 bits, like the platform's lengths.
uint32_t MappedBytes(const obj_img& img) { return static_cast<uint32_t>(FrameBytes(img)); }

bool IsMapped(const obj_img& img) { return HasInnerSize(img) && img.mem_type == kMapped; }

kova_video_frame ToScalerFrame(const obj_img& img) {
    kova_video_frame frame{};
    frame.width = img.width;
    frame.height = img.height;
    frame.stride[0] = img.stride;
    frame.phy_addr[0] = img.phy_addr;
    frame.vir_addr[0] = img.vir_addr;
    // The same format on both sides: the scaler resamples and never converts.
    frame.pixel_format = KOVA_PIXEL_FORMAT_SINGLE_8BIT;
    frame.pool_id = img.pool_id;
    return frame;
}

// Has the hardware scaler resample the frame. Returns 0 or the platform's code; no job stays open.
uint32_t fr_resize(const obj_img& img, const obj_img& inner) {
    int32_t handle = -1;
    const int32_t beginStatus = KOVA_MPI_VGS_BeginJob(&handle);
    if (beginStatus != 0) {
        KOVA_FR_INFO("Error: KOVA_MPI_VGS_BeginJob failed,ret:0x%x\n",
                     static_cast<uint32_t>(beginStatus));
        return static_cast<uint32_t>(beginStatus);
    }
    kova_vgs_task task{};
    task.in = ToScalerFrame(img);
    task.out = ToScalerFrame(inner);
    const int32_t addStatus = KOVA_MPI_VGS_AddScaleTask(handle, &task, KOVA_VGS_SCALE_COEF_NORMAL);
    if (addStatus != 0) {
        KOVA_FR_INFO("Error(%#x), KOVA_MPI_VGS_AddScaleTask failed!\n",
                     static_cast<uint32_t>(addStatus));
        (void)KOVA_MPI_VGS_CancelJob(handle);
        return static_cast<uint32_t>(addStatus);
    }
    const int32_t endStatus = KOVA_MPI_VGS_EndJob(handle);
    if (endStatus != 0) {
        KOVA_FR_INFO("Error(%#x), KOVA_MPI_VGS_EndJob failed!\n", static_cast<uint32_t>(endStatus));
        (void)KOVA_MPI_VGS_CancelJob(handle);
    }
    return static_cast<uint32_t>(endStatus);
}

} // namespace

uint32_t fr_check_image(const obj_img* img) {
    if (img == nullptr) {
        KOVA_FR_INFO("Error: obj_img null!\n");
        return KOVA_FR_ERR_NULL_PTR;
    }
    if (img->phy_addr == 0) {
        KOVA_FR_INFO("Error: phy_addr cannot be zero!\n");
        return KOVA_FR_ERR_ILLEGAL_PARAM;
    }
    if (img->mem_type == kVirtual && img->vir_addr == 0) {
        KOVA_FR_INFO("Error: vir_addr cannot be zero!\n");
        return KOVA_FR_ERR_ILLEGAL_PARAM;
    }
    if (img->width < kMinFrameWidth) {
        KOVA_FR_INFO("Error: width(%u) can not less than %d!\n", img->width, int{kMinFrameWidth});
        return KOVA_FR_ERR_ILLEGAL_PARAM;
    }
    if (img->height < kMinFrameHeight) {
        KOVA_FR_INFO("Error: height(%u) can not less than %d!\n", img->height,
                     int{kMinFrameHeight});
        return KOVA_FR_ERR_ILLEGAL_PARAM;
    }
    if (img->width % 2 != 0) {
        KOVA_FR_INFO("Error(%#x), width(%u) should be an even number!\n", KOVA_FR_ERR_ILLEGAL_PARAM,
                     img->width);
        return KOVA_FR_ERR_ILLEGAL_PARAM;
    }
    if (img->height % 2 != 0) {
        KOVA_FR_INFO("Error(%#x), height(%u) should be an even number!\n",
                     KOVA_FR_ERR_ILLEGAL_PARAM, img->height);
        return KOVA_FR_ERR_ILLEGAL_PARAM;
    }
    if (img->width > img->stride) {
        KOVA_FR_INFO("stride(%d) can not less than width(%d)\n", static_cast<int>(img->stride),
                     static_cast<int>(img->width));
        return KOVA_FR_ERR_ILLEGAL_PARAM;
    }
    if (img->mem_type > kVirtual) {
        KOVA_FR_INFO("Error: mem_type(%d) should be [%d, %d]!\n", static_cast<int>(img->mem_type),
                     int{kMapped}, int{kVirtual});
        return KOVA_FR_ERR_ILLEGAL_PARAM;
    }
    return KOVA_FR_OK;
}

uint32_t fr_create_img(const obj_img& img, obj_img& inner) {
    if (HasInnerSize(img)) {
        inner = img;
        if (img.mem_type == kVirtual) {
            return KOVA_FR_OK;
        }
        const uint32_t length = MappedBytes(img);
        if (length == 0) {
            KOVA_FR_INFO("Error:image size can not be zero\n");
            return KOVA_FR_ERR_ILLEGAL_PARAM;
        }
        const void* mapping = KOVA_MPI_SYS_Mmap(img.phy_addr, length);
        if (mapping == nullptr) {
            KOVA_FR_INFO("Error: KOVA_MPI_SYS_Mmap failed\n");
            return KOVA_FR_ERR_NULL_PTR;
        }
        inner.vir_addr = ToAddress(mapping);
        return KOVA_FR_OK;
    }

    uint64_t phyAddr = 0;
    void* virAddr = nullptr;
    const int32_t allocStatus =
        KOVA_MPI_SYS_MmzAlloc(&phyAddr, &virAddr, "FR_RESIZE", nullptr, kInnerSize * kInnerSize);
    if (allocStatus != 0) {
        KOVA_FR_INFO("Error: KOVA_MPI_SYS_MmzAlloc failed, ret:0x%x\n",
                     static_cast<uint32_t>(allocStatus));
        return static_cast<uint32_t>(allocStatus);
    }
    inner = obj_img{};
    inner.phy_addr = phyAddr;
    inner.vir_addr = ToAddress(virAddr);
    inner.stride = kInnerSize;
    inner.width = kInnerSize;
    inner.height = kInnerSize;
    inner.mem_type = kVirtual;
    const uint32_t status = fr_resize(img, inner);
    if (status != KOVA_FR_OK && phyAddr != 0 && virAddr != nullptr) {
        (void)KOVA_MPI_SYS_MmzFree(phyAddr, virAddr);
    }
    return status;
}

bool IsWholeFrameMapped(const obj_img& img) {
    return !IsMapped(img) || FrameBytes(img) == MappedBytes(img);
}

uint32_t fr_destory_img(const obj_img& img, const obj_img& inner) {
    if (HasInnerSize(img)) {
        if (img.mem_type == kVirtual) {
            return KOVA_FR_OK;
        }
        const uint32_t length = MappedBytes(img);
        if (length == 0) {
            KOVA_FR_INFO("Error:image size can not be zero\n");
            return KOVA_FR_ERR_ILLEGAL_PARAM;
        }
        // The mapping is named by the low half of its physical address, which serves a platform that
        // maps media memory one to one. One that knows mappings by their own address, like the
        // stand-in, refuses, and the mapping goes when its block does.
        const int32_t status = KOVA_MPI_SYS_Munmap(ToPointer(img.phy_addr & 0xffffffffu), length);
        if (status != 0) {
            KOVA_FR_INFO("KOVA_MPI_SYS_Munmap failed, Error(0x%x)\n",
                         static_cast<uint32_t>(status));
        }
        return static_cast<uint32_t>(status);
    }
    if (inner.phy_addr == 0 || inner.vir_addr == 0) {
        return KOVA_FR_OK;
    }
    const int32_t status = KOVA_MPI_SYS_MmzFree(inner.phy_addr, ToPointer(inner.vir_addr));
    if (status != 0) {
        KOVA_FR_INFO("KOVA_MPI_SYS_MmzFree failed, Error(0x%x)\n", static_cast<uint32_t>(status));
    }
    return static_cast<uint32_t>(status);
}

} // namespace orvo
