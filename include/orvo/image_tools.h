/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Image tools on plain memory. The bilinear resize is the one that the recognition pipeline uses.
 *
 * Results are the same bits on every processor: single precision where stated, every operation
 * rounded by itself.
 */
#ifndef ORVO_IMAGE_TOOLS_H
#define ORVO_IMAGE_TOOLS_H

#include <stdint.h>

#include "orvo/export.h"

ORVO_C_BEGIN

/**
 * Bilinear weights for 32 x 32 positions inside a pixel square, in 14-bit fixed point (16384 is
 * 1.0). Indexed [vertical fraction][horizontal fraction]; the four weights belong to the top-left,
 * top-right, bottom-left and bottom-right pixel and sum to exactly 16384. The 32 levels span 0 to
 * 1 inclusive.
 */
ORVO_API extern int16_t g_bilinLUT[32][32][4];

/**
 * Fills g_bilinLUT. Must have run before the first ImageResizeBilin(); OrvoFrSetMemory() calls it.
 * Calling it again writes the same values. Not to be called while a resize runs.
 */
ORVO_API void ImageResizeInit(void);

/**
 * Scales an 8-bit plane to another size, centre-aligned, with the weights of g_bilinLUT.
 *
 * @param src        top-left pixel of the source region, only read
 * @param dst        @p dstHeight rows of @p dstWidth bytes without gaps; must not overlap @p src
 * @param srcHeight  rows of the source region
 * @param srcWidth   columns of the source region
 * @param srcStride  bytes from one source row to the next
 * @param dstHeight  rows of the output
 * @param dstWidth   columns of the output
 *
 * If any of the four sizes is below 1 nothing is written. No byte outside the source region is
 * read. A failed bounded copy is reported on standard error and ends the call with the output
 * incomplete; there is no status.
 *
 * Threads: reads g_bilinLUT and its arguments only.
 */
ORVO_API void ImageResizeBilin(const uint8_t* src, uint8_t* dst, int32_t srcHeight,
                               int32_t srcWidth, int32_t srcStride, int32_t dstHeight,
                               int32_t dstWidth);

ORVO_C_END

#endif
