// SPDX-License-Identifier: MIT
//
// What the two depthwise 3 x 3 kernels share: the geometry and the convolution of padded planes.
// They differ in how they pad, report and whether they rectify.
//
// shape       C planes of H x W, padded, to C planes of dstHeight x dstWidth
// layout      9 weights a channel, row-major, channels back to back
// arithmetic  int8 x int8 into a wrapping 32-bit sum, + bias, >> shift (floor), saturate, then a
//             maximum with 0 for the rectifying kernel
// memory      scratch C * W * H bytes for the padded planes, none without padding
// callers     38 layers: 18 to 256 channels, planes of 6 x 6 to 95 x 95, all with pad 1
#pragma once

#include <cstddef>
#include <cstdint>

namespace orvo {

struct DepthwiseGeometry {
    size_t srcWidth, srcHeight, srcChannels;
    size_t pad;
    size_t dstWidth, dstHeight, dstChannels;

    size_t paddedWidth() const { return srcWidth + 2 * pad; }
    size_t paddedHeight() const { return srcHeight + 2 * pad; }
    size_t paddedPlane() const { return paddedWidth() * paddedHeight(); }
};

inline bool IsDepthwise3x3s1(uint16_t kernelSize, uint16_t stride) {
    return kernelSize == 3 && stride == 1;
}

// Convolves every plane. `planes` are the padded planes, or the input itself where pad is 0. With
// `lowest` 0 the results are rectified, with -128 they are not.
void ConvolveDepthwise3x3(const int8_t* planes, const DepthwiseGeometry& geometry,
                          const int8_t* weights, const int32_t* bias, uint32_t shift, int8_t lowest,
                          int8_t* dst);

// The usual case, done without the padded planes: a border of one and outputs as large as the
// inputs, where the bounded functions that write the padding are the library's own and cannot fail.
// Returns false if it is not that case; then nothing was done.
bool ConvolveInPlaceOfPadding(const int8_t* src, const int8_t* scratch,
                              const DepthwiseGeometry& geometry, const int8_t* weights,
                              const int32_t* bias, uint32_t shift, int8_t lowest, int8_t* dst);

// The address so many bytes on; a null one stays null, so that every piece of it is refused.
template <typename Byte>
Byte* Offset(Byte* address, size_t bytes) {
    return address == nullptr ? nullptr : address + bytes;
}

} // namespace orvo
