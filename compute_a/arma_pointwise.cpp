// SPDX-License-Identifier: MIT
//
// Pointwise (1 x 1) convolution in CHW order: the layer that most of the networks' work goes into.
//
// shape       src Ci planes of N pixels, dst Co planes
// layout      weights in groups of 4 output channels, interleaved, each group in 16 * S bytes with
//             S = Ci / 4 + Ci % 4; the input planes are the rows of the product as they stand
// arithmetic  int8 x int8 into wrapping 32-bit sums, + bias, >> shift (floor), saturate
// memory      scratch 32 * S * (N / 8 + (N % 8) / 4 + N % 4) bytes
// callers     49 layers: 18 to 256 channels, planes of 6 x 6 to 48 x 48
#include <cstddef>

#include "compute_a/routines.h"
#include "orvo/q7_kernels.h"

namespace {

// The unit that sizes weight groups and scratch slots. Channels beyond a multiple of 4 count four
// times; the stored models are laid out for it.
size_t LayoutUnit(size_t channels) { return channels / 4 + channels % 4; }

// The scratch that the caller gives: a slot for each 8 pixels, one more for 4 that are left, and
// one for each single pixel after those.
size_t ScratchBytes(size_t unit, size_t pixels) {
    return 32 * unit * (pixels / 8 + pixels % 8 / 4 + pixels % 4);
}

} // namespace

void ArmAConvolve1x1s1p0ChwQ7(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,
                              uint16_t srcChannels, const int8_t* weights, uint16_t dstChannels,
                              uint16_t kernelSize, uint16_t pad, uint16_t stride,
                              const int32_t* bias, uint16_t outShift, int8_t* dst,
                              uint16_t dstWidth, uint16_t dstHeight, int8_t* tmpBuffer) {
    if (kernelSize != 1 || pad != 0 || stride != 1) {
        return;
    }
    const size_t unit = LayoutUnit(srcChannels);
    orvo::MatrixProduct product;
    product.rows = src;
    product.inner = srcChannels;
    product.pixels = size_t{srcWidth} * srcHeight;
    product.rowPitch = product.pixels;
    product.weights = weights;
    product.groupBytes = 16 * unit;
    product.channels = dstChannels;
    product.bias = bias;
    product.shift = outShift;
    product.dst = dst;
    product.planePitch = size_t{dstWidth} * dstHeight;
    product.scratch = tmpBuffer;
    product.scratchBytes = ScratchBytes(unit, product.pixels);
    orvo::ChosenRoutines().multiply(product);
}
