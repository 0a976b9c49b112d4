/* SPDX-License-Identifier: MIT */
/**
 * @file
 * What libkova_fr asks of the camera platform. The library imports these functions and defines
 * none of them; on the camera the platform's own libraries supply them, on a PC libkova_mpi_host.
 *
 * Every function that returns an int32_t returns 0 for success and a platform error code otherwise.
 * Physical addresses may lie above 4 GiB.
 */
#ifndef ORVO_KOVA_MPI_H
#define ORVO_KOVA_MPI_H

#include <stdint.h>

#include "orvo/export.h"

ORVO_C_BEGIN

/** The platform's code for a frame that is one plane of 8-bit values. */
#define KOVA_PIXEL_FORMAT_SINGLE_8BIT 40u

/** Scale-coefficient mode that the library asks the scaler for. */
#define KOVA_VGS_SCALE_COEF_NORMAL 1u

/** One frame as the scaler sees it: up to three planes, of which the library uses the first. */
typedef struct kova_video_frame {
    uint32_t width;
    uint32_t height;
    uint32_t stride[3]; /**< bytes from one row to the next, per plane */
    uint32_t pixel_format;
    uint64_t phy_addr[3];
    uint64_t vir_addr[3];
    uint32_t pool_id;
    uint32_t reserved[5]; /**< zero */
} kova_video_frame;

/** One scaling job: resample in to out. */
typedef struct kova_vgs_task {
    kova_video_frame in;
    kova_video_frame out;
    uint32_t reserved[8]; /**< zero */
} kova_vgs_task;

/** Allocates uncached, physically contiguous media memory. name: block name; zone: may be null. */
ORVO_API int32_t KOVA_MPI_SYS_MmzAlloc(uint64_t* phy, void** vir, const char* name,
                                       const char* zone, uint32_t size);
/** As KOVA_MPI_SYS_MmzAlloc(), with a cached user-space mapping. */
ORVO_API int32_t KOVA_MPI_SYS_MmzAlloc_Cached(uint64_t* phy, void** vir, const char* name,
                                              const char* zone, uint32_t size);
/** Frees a block that one of the two allocations handed out. */
ORVO_API int32_t KOVA_MPI_SYS_MmzFree(uint64_t phy, void* vir);
/** Maps size bytes of media memory at phy into user space. @return the mapping, or null */
ORVO_API void* KOVA_MPI_SYS_Mmap(uint64_t phy, uint32_t size);
/** Removes a mapping that KOVA_MPI_SYS_Mmap() made. */
ORVO_API int32_t KOVA_MPI_SYS_Munmap(void* vir, uint32_t size);

/** Opens a scaler job. */
ORVO_API int32_t KOVA_MPI_VGS_BeginJob(int32_t* handle);
/** Adds one scaling task to a job. mode: scale-coefficient mode. */
ORVO_API int32_t KOVA_MPI_VGS_AddScaleTask(int32_t handle, const kova_vgs_task* task,
                                           uint32_t mode);
/** Submits the job and returns when its frames are written. */
ORVO_API int32_t KOVA_MPI_VGS_EndJob(int32_t handle);
/** Throws an open job away. */
ORVO_API int32_t KOVA_MPI_VGS_CancelJob(int32_t handle);

/**
 * Enciphers one block with the white-box AES-128 of the sibling cipher library, under the same key
 * as table2. @return 0
 */
ORVO_API int32_t wb_aes_encrypt(const uint8_t in[16], uint8_t out[16]);

ORVO_C_END

#endif
