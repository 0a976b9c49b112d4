// SPDX-License-Identifier: MIT
//
// Resizes and warps beside their plain definitions in tests/reference/: the same bytes, and nothing outside
// the sizes that the interface states.
#include <algorithm>
#include <cmath>

#include "arena.h"
#include "input.h"
#include "orvo/image_tools.h"
#include "reference/reference_image.h"
#include "reference/reference_small.h"
#include "require.h"
#include "values.h"

namespace orvo_fuzz {
namespace {

Arena<size_t{1} << 18> arena;

// Sizes below 1 write nothing.
int32_t Extent(Input& input) {
    const int32_t byte = input.Byte();
    return byte < 224 ? byte % 12 : byte < 254 ? 8 + (byte - 224) * 2 : 254 - byte - 1;
}

size_t Area(int32_t a, int32_t b) {
    return static_cast<size_t>(std::max(a, 0)) * static_cast<size_t>(std::max(b, 0));
}

template <typename T>
T* TakeFilled(Input& input, size_t count) {
    T* const values = arena.Take<T>(count, sizeof(T) == 1 ? input.Byte() & 15 : 0);
    Require(values != nullptr, "the arena is large enough");
    FillBytes(input, values, count * sizeof(T));
    return values;
}

template <typename T>
T* TakeMarked(size_t count, uint8_t mark) {
    T* const values = arena.Take<T>(count);
    Require(values != nullptr, "the arena is large enough");
    std::memset(values, mark, count * sizeof(T));
    return values;
}

void Bilinear(Input& input) {
    const int32_t srcHeight = Extent(input);
    const int32_t srcWidth = Extent(input);
    const int32_t stride = std::max(srcWidth, 0) + input.Byte() % 4;
    const int32_t dstHeight = Extent(input);
    const int32_t dstWidth = Extent(input);
    // The last row ends with its last pixel.
    const size_t srcBytes = srcHeight < 1 || srcWidth < 1
                                ? 0
                                : Area(srcHeight - 1, stride) + static_cast<size_t>(srcWidth);
    const auto* const src = TakeFilled<uint8_t>(input, srcBytes);
    const size_t bytes = Area(dstHeight, dstWidth);
    auto* const dst = TakeMarked<uint8_t>(bytes, 0x5A);
    auto* const wanted = TakeMarked<uint8_t>(bytes, 0x5A);
    ImageResizeBilin(src, dst, srcHeight, srcWidth, stride, dstHeight, dstWidth);
    if (srcBytes > 0) {
        orvo_reference::ResizeBilinear(src, wanted, srcHeight, srcWidth, stride, dstHeight,
                                       dstWidth);
    }
    Require(std::memcmp(dst, wanted, bytes) == 0, "ImageResizeBilin is as defined");
}

void Nearest(Input& input, bool isPacked) {
    const int32_t srcHeight = Extent(input);
    const int32_t srcWidth = Extent(input);
    const int32_t channels = input.Byte() % 9;
    const int32_t dstHeight = Extent(input) % 32;
    const int32_t dstWidth = Extent(input) % 32;
    const size_t rowSamples = static_cast<size_t>(isPacked ? channels / 2 : channels);
    const size_t pixelBytes = static_cast<size_t>(isPacked ? channels / 2 : channels / 2 * 2);
    const auto* const src = TakeFilled<uint8_t>(input, Area(srcHeight, srcWidth) * rowSamples);
    const size_t bytes = Area(dstHeight, dstWidth) * pixelBytes;
    auto* const dst = TakeMarked<uint8_t>(bytes, 0x5A);
    auto* const wanted = TakeMarked<uint8_t>(bytes, 0x5A);
    const auto resize = isPacked ? ResizeNearQ4 : ResizeNearQ7;
    const auto define =
        isPacked ? orvo_reference::ResizeNearest4Bit : orvo_reference::ResizeNearest8Bit;
    resize(src, dst, srcHeight, srcWidth, channels, dstHeight, dstWidth);
    if (srcHeight > 0 && srcWidth > 0 && channels >= 2 && dstHeight > 0 && dstWidth > 0) {
        define(src, wanted, srcHeight, srcWidth, channels, dstHeight, dstWidth);
    }
    Require(std::memcmp(dst, wanted, bytes) == 0, "the nearest resize is as defined");
}

// Sensible maps for the most part; any bits as well.
void FillMatrix(Input& input, float matrix[6]) {
    const uint8_t kind = input.Byte();
    for (int i = 0; i < 6; ++i) {
        const auto fixed = input.Number<int16_t>();
        matrix[i] = static_cast<float>(fixed) / (i % 3 == 2 ? 256.0f : 4096.0f);
    }
    if (kind > 200) {
        const auto bits = input.Number<uint32_t>();
        std::memcpy(&matrix[kind % 6], &bits, sizeof bits);
    }
}

float* TakePixels(Input& input, size_t count) {
    auto* const pixels = arena.Take<float>(count);
    Require(pixels != nullptr, "the arena is large enough");
    Stream stream(input.Byte());
    for (size_t i = 0; i < count; ++i) {
        pixels[i] = static_cast<float>(stream.Next() % 256);
    }
    if (count > 0 && input.Byte() > 240) {
        const auto bits = input.Number<uint32_t>();
        std::memcpy(&pixels[bits % count], &bits, sizeof bits);
    }
    return pixels;
}

// All that is no number is alike: which one comes out is not stated.
bool AreSame(const float* a, const float* b, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (std::memcmp(&a[i], &b[i], sizeof a[i]) != 0 &&
            !(std::isnan(a[i]) && std::isnan(b[i]))) {
            return false;
        }
    }
    return true;
}

void WarpOne(Input& input) {
    const int32_t width = Extent(input) % 40;
    const int32_t height = Extent(input) % 40;
    const auto stride = static_cast<uint32_t>(std::max(width, 0) + input.Byte() % 4);
    const auto inverse = static_cast<uint8_t>(input.Byte() % 3);
    float matrix[6];
    FillMatrix(input, matrix);
    const size_t count = width < 1 || height < 1 ? 0
                                                 : Area(height - 1, static_cast<int32_t>(stride)) +
                                                       static_cast<size_t>(width);
    const float* const src = TakePixels(input, count);
    auto* const dst = TakeMarked<float>(count, 0x41);
    auto* const wanted = TakeMarked<float>(count, 0x41);
    ImageWarpAffine(src, dst, matrix, width, height, stride, inverse);
    if (count > 0) {
        orvo_reference::WarpPlane(src, wanted, matrix, width, height, stride, inverse != 0);
    }
    Require(AreSame(dst, wanted, count), "ImageWarpAffine is as defined");
}

void WarpMany(Input& input) {
    const auto srcWidth = static_cast<uint32_t>(std::max(Extent(input), 0) % 24);
    const auto srcHeight = static_cast<uint32_t>(std::max(Extent(input), 0) % 24);
    const int32_t dstWidth = Extent(input) % 24;
    const int32_t dstHeight = Extent(input) % 24;
    const int32_t channels = input.Byte() % 5 - 1;
    const auto fill = static_cast<float>(input.Byte());
    float matrix[6];
    FillMatrix(input, matrix);
    const size_t planes = static_cast<size_t>(std::max(channels, 0));
    const float* const src = TakePixels(input, size_t{srcWidth} * srcHeight * planes);
    const size_t count = Area(dstWidth, dstHeight) * planes;
    auto* const dst = TakeMarked<float>(count, 0x41);
    auto* const wanted = TakeMarked<float>(count, 0x41);
    Require(AffineWarpFloat(src, srcWidth, srcHeight, dst, dstWidth, dstHeight, channels, matrix,
                            fill) == 0,
            "AffineWarpFloat gives 0");
    if (srcWidth == 0 || srcHeight == 0) { // nothing of it lies inside
        std::fill_n(wanted, count, fill);
    } else if (count > 0) {
        orvo_reference::WarpPlanes(src, srcWidth, srcHeight, wanted, dstWidth, dstHeight, channels,
                                   matrix, fill);
    }
    Require(AreSame(dst, wanted, count), "AffineWarpFloat is as defined");
}

} // namespace
} // namespace orvo_fuzz

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    ImageResizeInit();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace orvo_fuzz;
    Input input(data, size);
    switch (input.Byte() % 5) {
        case 0:
            Bilinear(input);
            break;
        case 1:
            Nearest(input, false);
            break;
        case 2:
            Nearest(input, true);
            break;
        case 3:
            WarpOne(input);
            break;
        default:
            WarpMany(input);
    }
    arena.Reset();
    return 0;
}
