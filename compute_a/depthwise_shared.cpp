// SPDX-License-Identifier: MIT
#include "compute_a/depthwise_shared.h"

#include <algorithm>

#include "common/bounded_memory_own.h"
#include "compute_a/requantise.h"
#include "compute_a/routines.h"

namespace orvo {
namespace {

// One output row from the three input rows that start at `src`.
void ConvolveRow(const int8_t* src, size_t pitch, const int8_t* weights, int32_t bias,
                 uint32_t shift, int8_t lowest, size_t width, int8_t* dst) {
    for (size_t x = 0; x < width; ++x) {
        uint32_t sum = 0;
        for (size_t ky = 0; ky < 3; ++ky) {
            for (size_t kx = 0; kx < 3; ++kx) {
                sum = AddProduct(sum, src[ky * pitch + x + kx], weights[3 * ky + kx]);
            }
        }
        dst[x] = std::max(RequantiseQ7(sum, bias, shift), lowest);
    }
}

} // namespace

void ConvolveDepthwise3x3(const int8_t* planes, const DepthwiseGeometry& geometry,
                          const int8_t* weights, const int32_t* bias, uint32_t shift, int8_t lowest,
                          int8_t* dst) {
    const size_t pitch = geometry.paddedWidth();
    const size_t width = geometry.dstWidth;
    // Rows are produced in pairs, and the input advances by the output's width, not the plane's.
    // With dstWidth = W - 2 that is two rows; for other widths it is part of the contract.
    const size_t pairAdvance = width + 2 + pitch;
    for (size_t c = 0; c < geometry.dstChannels; ++c, weights += 9) {
        const int8_t* plane = planes + c * geometry.paddedPlane();
        for (size_t y = 0; y < geometry.dstHeight; ++y, dst += width) {
            const int8_t* row = plane + y / 2 * pairAdvance + y % 2 * pitch;
            ConvolveRow(row, pitch, weights, bias[c], shift, lowest, width, dst);
        }
    }
}

bool ConvolveInPlaceOfPadding(const int8_t* src, const int8_t* scratch,
                              const DepthwiseGeometry& geometry, const int8_t* weights,
                              const int32_t* bias, uint32_t shift, int8_t lowest, int8_t* dst) {
    const bool usual = geometry.pad == 1 && geometry.dstWidth == geometry.srcWidth &&
                       geometry.dstHeight == geometry.srcHeight && geometry.dstChannels > 0 &&
                       geometry.dstChannels <= geometry.srcChannels;
    // The own ones refuse a null address, and that is to be reported piece by piece.
    const bool canFail = src == nullptr || scratch == nullptr || !BoundedMemoryIsOwn();
    if (!usual || canFail) {
        return false;
    }
    ChosenRoutines().depthwise({src, geometry.srcWidth, geometry.srcHeight, geometry.dstChannels,
                                weights, bias, shift, lowest, dst});
    return true;
}

} // namespace orvo
