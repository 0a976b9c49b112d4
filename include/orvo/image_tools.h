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

/**
 * Scales an interleaved image of 8-bit samples by picking, for every output pixel, one source
 * pixel. Aligned at the top-left corner: output position p takes source position (int)(p * ratio),
 * ratio and product in single precision, so the last source rows and columns may never be picked.
 *
 * @param src        @p srcHeight rows of @p srcWidth pixels without gaps, only read
 * @param dst        @p dstHeight rows of @p dstWidth pixels without gaps; must not overlap @p src
 * @param channels   samples per pixel; should be even. An odd number counts fully in the length of
 *                   a source row and is rounded down to an even one in the length of a pixel, in
 *                   the source as in the output. Below 2 nothing is written.
 *
 * If any of the four sizes is below 1 nothing is written.
 */
ORVO_API void ResizeNearQ7(const uint8_t* src, uint8_t* dst, int32_t srcHeight, int32_t srcWidth,
                           int32_t channels, int32_t dstHeight, int32_t dstWidth);

/**
 * ResizeNearQ7() for 4-bit samples, two to a byte: a pixel has channels / 2 bytes (an odd sample is
 * lost).
 */
ORVO_API void ResizeNearQ4(const uint8_t* src, uint8_t* dst, int32_t srcHeight, int32_t srcWidth,
                           int32_t channels, int32_t dstHeight, int32_t dstWidth);

/**
 * Warps a float plane through an affine map into a plane of the same size, bilinear, 0 outside.
 *
 * The source position of output (x, y) is the linear part applied to (x - matrix[2], y -
 * matrix[5]): the translation is taken off first, whatever @p inverseMap says. Values fade towards
 * 0 within one pixel of the border.
 *
 * @param src,dst     @p height rows of @p width floats, @p stride floats apart; must not overlap
 * @param matrix      2 x 3, row-major
 * @param width,height  nothing is written if one is below 1
 * @param stride      floats from one row to the next, in both planes; at least @p width
 * @param inverseMap  non-zero: the linear part maps output to source; zero: it is inverted first
 */
ORVO_API void ImageWarpAffine(const float* src, float* dst, const float* matrix, int32_t width,
                              int32_t height, uint32_t stride, uint8_t inverseMap);

/**
 * Warps a stack of float planes into planes of another size, bilinear.
 *
 * The source position of output column j, row i is (m0 * j + m1 * i + m2, m3 * j + m4 * i + m5). A
 * position that is negative, on or beyond the last source column or row, or beyond the range of an
 * int gives @p fillValue.
 *
 * @param src       @p channels planes of @p srcHeight rows of @p srcWidth floats without gaps
 * @param dst       @p channels planes of @p dstHeight rows of @p dstWidth floats without gaps; must
 *                  not overlap @p src
 * @param dstWidth,dstHeight,channels  nothing is written if one is below 1
 * @param matrix    2 x 3, row-major, output to source
 * @return 0, always
 */
ORVO_API uint32_t AffineWarpFloat(const float* src, uint32_t srcWidth, uint32_t srcHeight,
                                  float* dst, int32_t dstWidth, int32_t dstHeight, int32_t channels,
                                  const float* matrix, float fillValue);

ORVO_C_END

#endif
