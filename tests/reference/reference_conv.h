// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Plain definitions of the convolutions: one output value after the other, from weights in natural
// order (output channel, input channel, kernel row, kernel column). Sums wrap at 32 bits.
//
// The packers bring natural weights into the order that each kernel reads. They are a second,
// independent statement of these orders, so that a mistake in the library's own packing shows.
namespace orvo_reference {

struct ConvShape {
    int srcWidth = 0;
    int srcHeight = 0;
    int srcChannels = 0;
    int dstChannels = 0;
    int kernelSize = 1;
    int pad = 0;
    int stride = 1;
    uint32_t outShift = 0;
    int dstWidth = 0;
    int dstHeight = 0;
};

// Weights in one dot product: srcChannels * kernelSize^2.
size_t DotLength(const ConvShape& shape);
size_t SrcBytes(const ConvShape& shape);
size_t DstBytes(const ConvShape& shape);

// floor(value / 2^shift) for any shift.
int32_t ShiftRightFloor(int32_t value, uint32_t shift);

// Adds the bias to the sum, both modulo 2^32, shifts and saturates.
int8_t Requantise(uint32_t sum, int32_t bias, uint32_t outShift);

// ---- CHW order. Positions outside the input read as zero.
void ConvolveChw(const ConvShape& shape, const int8_t* src, const int8_t* weights,
                 const int32_t* bias, int8_t* dst);

// dstChannels filters of 3 x 3, filter c over input plane c.
void ConvolveDepthwiseChw(const ConvShape& shape, bool rectify, const int8_t* src,
                          const int8_t* weights, const int32_t* bias, int8_t* dst);

// The input planes with `pad` zeros on every side.
std::vector<int8_t> PaddedPlanes(const ConvShape& shape, const int8_t* src);

// The depthwise convolution as a walk over planes that are already padded: each pair of output rows
// starts dstWidth + 2 + (padded width) bytes after the pair before it. That is two rows when
// dstWidth is the padded width less 2, and something else when it is not.
void WalkDepthwisePlanes(const ConvShape& shape, bool rectify, const int8_t* paddedPlanes,
                         const int8_t* weights, const int32_t* bias, int8_t* dst);

// ---- HWC order: the channels of one pixel side by side, in src and dst.
void ConvolveHwc(const ConvShape& shape, const int8_t* src, const int8_t* weights,
                 const int32_t* bias, int8_t* dst);

// One column of kernelSize^2 * srcChannels bytes per output pixel.
std::vector<int8_t> Im2colHwc(const ConvShape& shape, const int8_t* src);

// ---- Packed weights. Each packer writes the bytes that its order uses and leaves every other byte
// of `packed` as it is; it throws std::length_error when packedSize is less than the size
// function's answer, which ends with the last byte that is used.

// Groups of four output channels, 4 * K bytes each, the four weights of one position side by side;
// then the leftover channels, 4 * K bytes apart.
size_t PackedConvWeightsSize(int outChannels, int inChannels, int kernelSize);
void PackConvWeights(const int8_t* natural, int outChannels, int inChannels, int kernelSize,
                     int8_t* packed, size_t packedSize);

// As above for a 1 x 1 kernel, but groups and leftover channels are
// 16 * (inChannels / 4 + inChannels % 4) bytes apart.
size_t PackedPointwiseWeightsSize(int outChannels, int inChannels);
void PackPointwiseWeights(const int8_t* natural, int outChannels, int inChannels, int8_t* packed,
                          size_t packedSize);

// One row per output channel: kernel row, kernel column, input channel.
void PackHwcWeights(const int8_t* natural, int outChannels, int inChannels, int kernelSize,
                    int8_t* packed, size_t packedSize);

} // namespace orvo_reference
