// SPDX-License-Identifier: MIT
//
// Nearest-neighbour resize of interleaved images, aligned at the top-left corner.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "common/float_steps.h"
#include "orvo/image_tools.h"

namespace {

// How many bytes a source row, and a pixel in it, take. They are stated apart because an odd number
// of 8-bit samples counts fully in the row and is rounded down in the pixel.
struct PixelLayout {
    size_t rowBytes;
    size_t pixelBytes;
};

// The source position of an output position: a single-precision ratio, truncated. Rounding may
// reach past the end of very large images; nothing there may be read.
int32_t NearestSource(int32_t position, float ratio, int32_t srcSize) {
    const int64_t nearest = static_cast<int64_t>(static_cast<float>(position) * ratio);
    return static_cast<int32_t>(std::min<int64_t>(nearest, srcSize - 1));
}

void ResizeNearest(const uint8_t* src, uint8_t* dst, int32_t srcHeight, int32_t srcWidth,
                   const PixelLayout& layout, int32_t dstHeight, int32_t dstWidth) {
    const float columnRatio = static_cast<float>(srcWidth) / static_cast<float>(dstWidth);
    const float rowRatio = static_cast<float>(srcHeight) / static_cast<float>(dstHeight);
    for (int32_t y = 0; y < dstHeight; ++y) {
        const int32_t srcY = NearestSource(y, rowRatio, srcHeight);
        const uint8_t* row = src + layout.rowBytes * static_cast<size_t>(srcY);
        for (int32_t x = 0; x < dstWidth; ++x, dst += layout.pixelBytes) {
            const int32_t srcX = NearestSource(x, columnRatio, srcWidth);
            std::memcpy(dst, row + layout.pixelBytes * static_cast<size_t>(srcX),
                        layout.pixelBytes);
        }
    }
}

bool HasPixels(int32_t srcHeight, int32_t srcWidth, int32_t channels, int32_t dstHeight,
               int32_t dstWidth) {
    return srcHeight > 0 && srcWidth > 0 && channels >= 2 && dstHeight > 0 && dstWidth > 0;
}

} // namespace

void ResizeNearQ7(const uint8_t* src, uint8_t* dst, int32_t srcHeight, int32_t srcWidth,
                  int32_t channels, int32_t dstHeight, int32_t dstWidth) {
    if (!HasPixels(srcHeight, srcWidth, channels, dstHeight, dstWidth)) {
        return;
    }
    const size_t samples = static_cast<size_t>(channels);
    const PixelLayout layout{samples * static_cast<size_t>(srcWidth), samples / 2 * 2};
    ResizeNearest(src, dst, srcHeight, srcWidth, layout, dstHeight, dstWidth);
}

void ResizeNearQ4(const uint8_t* src, uint8_t* dst, int32_t srcHeight, int32_t srcWidth,
                  int32_t channels, int32_t dstHeight, int32_t dstWidth) {
    if (!HasPixels(srcHeight, srcWidth, channels, dstHeight, dstWidth)) {
        return;
    }
    const size_t pixelBytes = static_cast<size_t>(channels) / 2;
    const PixelLayout layout{pixelBytes * static_cast<size_t>(srcWidth), pixelBytes};
    ResizeNearest(src, dst, srcHeight, srcWidth, layout, dstHeight, dstWidth);
}
