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

// `weights`: of a channel, `step` bytes apart.
void AddUp(const int8_t* weights, size_t step, size_t planes, PlaneConvolution::Filter& filter) {
    for (size_t tap = 0; tap < kTaps; ++tap) {
        int32_t sum = 0;
        for (size_t plane = 0; plane < planes; ++plane) {
            sum += weights[(plane * kTaps + tap) * step];
        }
        filter[tap / 3][tap % 3] = static_cast<int16_t>(sum);
    }
}

void AddUpFilters(const Convolution3x3& conv, PlaneConvolution::Filter* filters) {
    const size_t grouped = conv.channels / kGroup * kGroup;
    const size_t groupBytes = kGroup * kTaps * conv.srcChannels;
    for (size_t c = 0; c < conv.channels; ++c) {
        // A leftover channel has a group's space to itself.
        const bool isGrouped = c < grouped;
        const size_t group = isGrouped ? c / kGroup : grouped / kGroup + c - grouped;
        AddUp(conv.weights + group * groupBytes + (isGrouped ? c % kGroup : 0),
              isGrouped ? kGroup : 1, conv.srcChannels, filters[c]);
    }
}

} // namespace

bool ConvolveEqualPlanes(const Routines& routines, const Convolution3x3& conv) {
    if (routines.convolvePlane == nullptr || conv.srcChannels == 0 ||
        conv.srcChannels > PlaneConvolution::kMostPlanes ||
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
