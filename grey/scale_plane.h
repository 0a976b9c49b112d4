// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace orvo_grey {

// One 8-bit plane as the process sees it.
template <typename Pixel>
struct Plane {
    Pixel* pixels;
    uint32_t width;
    uint32_t height;
    uint32_t stride;
};

// Scales one plane to the size of the other, bilinearly and centre-aligned: pixel centres of the
// two lie on each other's scaled positions, and what lies outside the edge centres repeats the
// edge. All in integers, so that every machine gets the same bytes; equal sizes copy. The planes
// must not overlap.
void ScalePlane(const Plane<const uint8_t>& src, const Plane<uint8_t>& dst);

} // namespace orvo_grey
