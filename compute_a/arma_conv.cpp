// SPDX-License-Identifier: MIT
//
// Generic square-kernel convolution in CHW order: im2col, then an integer matrix product.
//
// shape       src Ci x H x W, dst Co x N pixels, dot-product length K = Ci * k * k
// layout      weights in groups of 4 output channels, interleaved; the im2col rows of a band of
//             output rows at the start of the scratch, the product's own scratch behind K * N
// arithmetic  int8 x int8 into wrapping 32-bit sums, + bias, >> shift (floor), saturate
// memory      scratch K * N rounded up to 4, plus 8 * K * (N / 8 + N % 8) bytes
// callers     the first layer of each network: 1 x 24 x 24 to 32 and 3 x 96 x 96 to 32, k = 3
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "compute_a/equal_planes.h"
#include "compute_a/routines.h"
#include "orvo/q7_kernels.h"

namespace {

constexpr size_t kWeightGroup = 4; // output channels whose weights stand side by side

struct Geometry {
    size_t srcWidth, srcHeight, srcChannels;
    size_t kernelSize, pad, stride;
    size_t dstWidth, dstHeight;

    size_t pixels() const { return dstWidth * dstHeight; }
    size_t taps() const { return srcChannels * kernelSize * kernelSize; }
};

// The output rows that are expanded and multiplied at a time: few enough that their part of the
// im2col matrix stays in the processor's first cache.
struct Band {
    size_t firstRow;
    size_t rows;
};

constexpr size_t kBandPixels = 384;

// One row of the band's matrix where output and input are equally wide and the stride is 1: one
// piece of the input plane, moved by some rows and columns, with zeros where that leaves the plane
// or its rows run into their neighbours.
void ExpandTapInOnePiece(const int8_t* plane, const Geometry& g, const Band& band, size_t ky,
                         size_t kx, int8_t* row) {
    const int64_t width = static_cast<int64_t>(g.srcWidth);
    const int64_t count = static_cast<int64_t>(band.rows) * width;
    const int64_t planeEnd = static_cast<int64_t>(g.srcHeight) * width;
    const int64_t columns = static_cast<int64_t>(kx) - static_cast<int64_t>(g.pad);
    const int64_t rows = static_cast<int64_t>(band.firstRow + ky) - static_cast<int64_t>(g.pad);
    const int64_t start = rows * width + columns; // in the plane, of the row's first value
    const int64_t from = std::clamp<int64_t>(-start, 0, count);
    const int64_t to = std::clamp<int64_t>(planeEnd - start, from, count);
    std::memset(row, 0, static_cast<size_t>(from));
    if (to > from) {
        std::memcpy(row + from, plane + static_cast<ptrdiff_t>(start + from),
                    static_cast<size_t>(to - from));
    }
    std::memset(row + to, 0, static_cast<size_t>(count - to));
    if (columns == 0) {
        return;
    }
    const int64_t firstInside = std::min(std::max<int64_t>(-columns, 0), width);
    const int64_t lastInside = std::max(std::min(width - columns, width), int64_t{0});
    for (int8_t* const end = row + static_cast<ptrdiff_t>(count); row != end; row += g.srcWidth) {
        std::fill(row, row + static_cast<ptrdiff_t>(firstInside), int8_t{0});
        std::fill(row + static_cast<ptrdiff_t>(lastInside), row + g.srcWidth, int8_t{0});
    }
}

// The same for any stride.
void ExpandTap(const int8_t* plane, const Geometry& g, const Band& band, size_t ky, size_t kx,
               int8_t* row) {
    for (size_t oy = band.firstRow; oy < band.firstRow + band.rows; ++oy) {
        const size_t iy = oy * g.stride + ky - g.pad;
        for (size_t ox = 0; ox < g.dstWidth; ++ox) {
            const size_t ix = ox * g.stride + kx - g.pad;
            const bool inside = iy < g.srcHeight && ix < g.srcWidth;
            *row++ = inside ? plane[iy * g.srcWidth + ix] : int8_t{0};
        }
    }
}

void Expand(const int8_t* src, const Geometry& g, const Band& band, int8_t* matrix) {
    const bool inOnePiece = g.stride == 1 && g.dstWidth == g.srcWidth;
    const auto expandTap = inOnePiece ? ExpandTapInOnePiece : ExpandTap;
    for (size_t c = 0; c < g.srcChannels; ++c) {
        const int8_t* plane = src + c * g.srcHeight * g.srcWidth;
        for (size_t ky = 0; ky < g.kernelSize; ++ky) {
            for (size_t kx = 0; kx < g.kernelSize; ++kx) {
                expandTap(plane, g, band, ky, kx, matrix);
                matrix += band.rows * g.dstWidth;
            }
        }
    }
}

} // namespace

void arma_convolve_chw_q7(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,
                          uint16_t srcChannels, const int8_t* weights, uint16_t dstChannels,
                          uint16_t kernelSize, uint16_t pad, uint16_t stride, const int32_t* bias,
                          uint16_t outShift, int8_t* dst, uint16_t dstWidth, uint16_t dstHeight,
                          int8_t* tmpBuffer) {
    const Geometry g{srcWidth, srcHeight, srcChannels, kernelSize,
                     pad,      stride,    dstWidth,    dstHeight};
    const size_t taps = g.taps();
    const size_t pixels = g.pixels();
    const size_t matrixBytes = (taps * pixels + 3) / 4 * 4;
    const size_t productBytes = 8 * taps * (pixels / 8 + pixels % 8);

    const orvo::Routines& routines = orvo::ChosenRoutines();
    const bool sameSize = dstWidth == srcWidth && dstHeight == srcHeight;
    if (kernelSize == 3 && pad == 1 && stride == 1 && sameSize) {
        const orvo::Convolution3x3 convolution{src,
                                               g.srcWidth,
                                               g.srcHeight,
                                               g.srcChannels,
                                               weights,
                                               dstChannels,
                                               bias,
                                               outShift,
                                               dst,
                                               tmpBuffer,
                                               matrixBytes + productBytes};
        if (orvo::ConvolveEqualPlanes(routines, convolution) ||
            (routines.convolve3x3 != nullptr && routines.convolve3x3(convolution))) {
            return;
        }
    }

    orvo::MatrixProduct product;
    product.rows = tmpBuffer;
    product.inner = taps;
    product.weights = weights;
    product.groupBytes = kWeightGroup * taps;
    product.channels = dstChannels;
    product.bias = bias;
    product.shift = outShift;
    product.planePitch = pixels;
    product.scratch = tmpBuffer + matrixBytes;
    product.scratchBytes = productBytes;

    const size_t bandRows = std::max<size_t>(1, kBandPixels / std::max<size_t>(1, g.dstWidth));
    for (size_t oy = 0; oy < g.dstHeight; oy += bandRows) {
        const Band band{oy, std::min(bandRows, g.dstHeight - oy)};
        Expand(src, g, band, tmpBuffer);
        product.pixels = band.rows * g.dstWidth;
        product.rowPitch = product.pixels;
        product.dst = dst + oy * g.dstWidth;
        routines.multiply(product);
    }
}
