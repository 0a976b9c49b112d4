// SPDX-License-Identifier: MIT
#include "compute_a/equal_planes.h"

#include <cstring>

namespace orvo {
namespace {

constexpr size_t kGroup = 4; // channels whose weights stand side by side
constexpr size_t kTaps = 9;

bool AreEqual(const int8_t* planes, size_t planeBytes, size_t count) {
    for (size_t i = 1; i < count; ++i) {
        if (std::memcmp(planes, planes + i * planeBytes, planeBytes) != 0) {
            return false;
        }
    }
    return true;
}

// Up to four channels, whose weights for a tap stand side by side: of `channels`, or of one that is left
// over.
void AddUp(const int8_t* weights, size_t planes, size_t channels,
           PlaneConvolution::Filter* filters) {
    const size_t count = kTaps * channels;
    int16_t sums[kTaps * kGroup] = {};
    for (size_t plane = 0; plane < planes; ++plane, weights += count) {
        for (size_t i = 0; i < count; ++i) {
            sums[i] = static_cast<int16_t>(sums[i] + weights[i]);
        }
    }
    const int16_t* sum = sums;
    for (size_t tap = 0; tap < kTaps; ++tap) {
        for (size_t c = 0; c < channels; ++c) {
            filters[c][tap / 3][tap % 3] = *sum++;
        }
    }
}

void AddUpFilters(const Convolution3x3& conv, PlaneConvolution::Filter* filters) {
    const size_t groupBytes = kGroup * kTaps * conv.srcChannels;
    const int8_t* weights = conv.weights;
    // A leftover channel has a group's space to itself.
    for (size_t c = 0; c < conv.channels; weights += groupBytes) {
        const size_t channels = c + kGroup <= conv.channels ? kGroup : 1;
        AddUp(weights, conv.srcChannels, channels, filters + c);
        c += channels;
    }
}

} // namespace

bool ConvolveEqualPlanes(const Routines& routines, const Convolution3x3& conv) {
    if (conv.srcChannels == 0 || conv.srcChannels > PlaneConvolution::kMostPlanes ||
        conv.channels > PlaneConvolution::kMostChannels ||
        !AreEqual(conv.src, conv.width * conv.height, conv.srcChannels)) {
        return false;
    }
    PlaneConvolution::Filter filters[PlaneConvolution::kMostChannels] = {};
    AddUpFilters(conv, filters);
    return routines.convolvePlane({conv.src, conv.width, conv.height, conv.srcChannels, filters,
                                   conv.channels, conv.bias, conv.shift, conv.dst, conv.scratch,
                                   conv.scratchBytes});
}

} // namespace orvo
