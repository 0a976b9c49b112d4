// SPDX-License-Identifier: MIT
//
// Generic square-kernel convolution in CHW order: im2col, then an integer matrix product.
//
// shape       src Ci x H x W, dst Co x N pixels, dot-product length K = Ci * k * k
// layout      weights in groups of 4 output channels, interleaved; scratch in blocks of 8 pixels,
//             interleaved, after the plain im2col rows
// arithmetic  int8 x int8 into wrapping 32-bit sums, + bias, >> shift (floor), saturate
// memory      scratch K * N rounded up to 4, plus 8 * K * (N / 8 + N % 8) bytes
// callers     the first layer of each network: 1 x 24 x 24 to 32 and 3 x 96 x 96 to 32, k = 3
#include <cstddef>
#include <cstring>

#include "compute_a/multiply_tile.h"
#include "orvo/q7_kernels.h"

namespace {

using orvo::kWeightGroup;

constexpr size_t kBlock = 8; // output pixels whose values stand side by side

struct Geometry {
    size_t srcWidth, srcHeight, srcChannels;
    size_t kernelSize, pad, stride;
    size_t dstWidth, dstHeight;

    size_t pixels() const { return dstWidth * dstHeight; }
    size_t taps() const { return srcChannels * kernelSize * kernelSize; }
};

// One row of the im2col matrix: the input values that one weight meets, pixel by pixel.
void ExpandTap(const int8_t* plane, const Geometry& g, size_t ky, size_t kx, int8_t* row) {
    for (size_t oy = 0; oy < g.dstHeight; ++oy) {
        // Positions before the first row or column wrap to huge values, which are outside, too.
        const size_t iy = oy * g.stride + ky - g.pad;
        for (size_t ox = 0; ox < g.dstWidth; ++ox) {
            const size_t ix = ox * g.stride + kx - g.pad;
            const bool inside = iy < g.srcHeight && ix < g.srcWidth;
            *row++ = inside ? plane[iy * g.srcWidth + ix] : int8_t{0};
        }
    }
}

void Expand(const int8_t* src, const Geometry& g, int8_t* matrix) {
    for (size_t c = 0; c < g.srcChannels; ++c) {
        const int8_t* plane = src + c * g.srcHeight * g.srcWidth;
        for (size_t ky = 0; ky < g.kernelSize; ++ky) {
            for (size_t kx = 0; kx < g.kernelSize; ++kx) {
                ExpandTap(plane, g, ky, kx, matrix);
                matrix += g.pixels();
            }
        }
    }
}

// Turns the matrix rows into blocks that the product reads from front to back: 8 pixels side by
// side for each k; a leftover pixel takes a whole block's space but only its first K bytes.
void PackBlocks(const int8_t* matrix, size_t taps, size_t pixels, int8_t* packed) {
    const size_t blocks = pixels / kBlock;
    for (size_t b = 0; b < blocks; ++b, packed += kBlock * taps) {
        for (size_t k = 0; k < taps; ++k) {
            std::memcpy(packed + kBlock * k, matrix + k * pixels + kBlock * b, kBlock);
        }
    }
    for (size_t pixel = blocks * kBlock; pixel < pixels; ++pixel, packed += kBlock * taps) {
        for (size_t k = 0; k < taps; ++k) {
            packed[k] = matrix[k * pixels + pixel];
        }
    }
}

// `Channels` output planes: every pixel against one group of weights.
template <size_t Channels>
void MultiplyPlanes(const int8_t* weights, const int8_t* packed, size_t taps, size_t pixels,
                    const int32_t* bias, uint32_t shift, int8_t* dst) {
    const size_t blockBytes = kBlock * taps;
    size_t pixel = 0;
    for (; pixel + kBlock <= pixels; pixel += kBlock, packed += blockBytes) {
        orvo::MultiplyTile<Channels, kBlock>(weights, packed, taps, bias, shift, dst + pixel,
                                             pixels);
    }
    for (; pixel < pixels; ++pixel, packed += blockBytes) {
        orvo::MultiplyTile<Channels, 1>(weights, packed, taps, bias, shift, dst + pixel, pixels);
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
    int8_t* const packed = tmpBuffer + (taps * pixels + 3) / 4 * 4;
    Expand(src, g, tmpBuffer);
    PackBlocks(tmpBuffer, taps, pixels, packed);

    // A leftover channel, like a leftover pixel, takes the space of a whole group.
    const size_t groupBytes = kWeightGroup * taps;
    size_t channel = 0;
    for (; channel + kWeightGroup <= dstChannels; channel += kWeightGroup, weights += groupBytes) {
        MultiplyPlanes<kWeightGroup>(weights, packed, taps, pixels, bias + channel, outShift,
                                     dst + channel * pixels);
    }
    for (; channel < dstChannels; ++channel, weights += groupBytes) {
        MultiplyPlanes<1>(weights, packed, taps, pixels, bias + channel, outShift,
                          dst + channel * pixels);
    }
}
