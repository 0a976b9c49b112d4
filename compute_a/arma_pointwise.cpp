// SPDX-License-Identifier: MIT
//
// Pointwise (1 x 1) convolution in CHW order: the layer that most of the networks' work goes into.
//
// shape       src Ci planes of N pixels, dst Co planes
// layout      weights in groups of 4 output channels, interleaved, each group in 16 * S bytes with
//             S = Ci / 4 + Ci % 4; scratch in slots of 32 * S bytes that hold 8, 4 or 1 pixels,
//             interleaved
// arithmetic  int8 x int8 into wrapping 32-bit sums, + bias, >> shift (floor), saturate
// memory      scratch 32 * S * (N / 8 + (N % 8) / 4 + N % 4) bytes
// callers     49 layers: 18 to 256 channels, planes of 6 x 6 to 48 x 48
#include <cstddef>
#include <cstring>

#include "compute_a/multiply_tile.h"
#include "orvo/q7_kernels.h"

namespace {

using orvo::kWeightGroup;

constexpr size_t kFullSlot = 8; // pixels whose values stand side by side in a full slot
constexpr size_t kHalfSlot = 4; // and in a half slot

// The unit that sizes weight groups and scratch slots. Channels beyond a multiple of 4 count four
// times; the stored models are laid out for it.
size_t LayoutUnit(size_t channels) { return channels / 4 + channels % 4; }

// Walks the slots: full ones of 8 pixels, then one of 4 if as many remain, then single pixels.
// Calls visit.operator()<Pixels>(first pixel, slot number) for each.
template <typename Visit>
void ForEachSlot(size_t pixels, const Visit& visit) {
    size_t pixel = 0;
    size_t slot = 0;
    for (; pixel + kFullSlot <= pixels; pixel += kFullSlot) {
        visit.template operator()<kFullSlot>(pixel, slot++);
    }
    if (pixel + kHalfSlot <= pixels) {
        visit.template operator()<kHalfSlot>(pixel, slot++);
        pixel += kHalfSlot;
    }
    for (; pixel < pixels; ++pixel) {
        visit.template operator()<1>(pixel, slot++);
    }
}

void PackPixels(const int8_t* src, size_t channels, size_t pixels, size_t slotBytes,
                int8_t* slots) {
    ForEachSlot(pixels, [&]<size_t Pixels>(size_t pixel, size_t slot) {
        int8_t* to = slots + slot * slotBytes;
        for (size_t c = 0; c < channels; ++c, to += Pixels) {
            std::memcpy(to, src + c * pixels + pixel, Pixels);
        }
    });
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
    const size_t channels = srcChannels;
    const size_t pixels = size_t{srcWidth} * srcHeight;
    const size_t planePitch = size_t{dstWidth} * dstHeight;
    const size_t slotBytes = 32 * LayoutUnit(channels);
    const size_t groupBytes = 16 * LayoutUnit(channels);
    PackPixels(src, channels, pixels, slotBytes, tmpBuffer);

    const auto multiply = [&]<size_t Channels>(size_t channel) {
        ForEachSlot(pixels, [&]<size_t Pixels>(size_t pixel, size_t slot) {
            orvo::MultiplyTile<Channels, Pixels>(weights, tmpBuffer + slot * slotBytes, channels,
                                                 bias + channel, outShift,
                                                 dst + channel * planePitch + pixel, planePitch);
        });
    };
    size_t channel = 0;
    for (; channel + kWeightGroup <= dstChannels; channel += kWeightGroup, weights += groupBytes) {
        multiply.operator()<kWeightGroup>(channel);
    }
    for (; channel < dstChannels; ++channel, weights += groupBytes) {
        multiply.operator()<1>(channel);
    }
}
