// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

// Plain definitions of the image tools beside the bilinear resize, and of the four weight
// re-layouts: one value after the other, every step rounded or fused exactly as the results are
// defined. They are what the library is measured against, so they share nothing with it.
namespace orvo_reference {

// ---- Nearest-neighbour resize of interleaved images, 8-bit samples and packed 4-bit samples
void ResizeNearest8Bit(const uint8_t* src, uint8_t* dst, int32_t srcHeight, int32_t srcWidth,
                       int32_t channels, int32_t dstHeight, int32_t dstWidth);
void ResizeNearest4Bit(const uint8_t* src, uint8_t* dst, int32_t srcHeight, int32_t srcWidth,
                       int32_t channels, int32_t dstHeight, int32_t dstWidth);

// ---- Affine warps
// One plane into one of the same size; what lies outside counts as 0.
void WarpPlane(const float* src, float* dst, const float matrix[6], int32_t width, int32_t height,
               uint32_t stride, bool inverseMap);
// Planes into planes of another size; positions outside the strict bounds get fillValue.
void WarpPlanes(const float* src, uint32_t srcWidth, uint32_t srcHeight, float* dst,
                int32_t dstWidth, int32_t dstHeight, int32_t channels, const float matrix[6],
                float fillValue);

// ---- Re-layouts of outch rows of rowLength weights into slots of slotSize bytes
uint64_t SlotCount(int32_t outch);
uint64_t PointwiseSlotSize(int32_t inch);
uint64_t Im2colSlotSize(int32_t rowLength);
// Groups of four rows woven one element (or one pair of elements) of each row at a time.
void InterleaveElements(const int8_t* weights, int32_t rowLength, int32_t outch, uint64_t slotSize,
                        int8_t* output);
void InterleavePairs(const int8_t* weights, int32_t rowLength, int32_t outch, uint64_t slotSize,
                     int8_t* output);

} // namespace orvo_reference
