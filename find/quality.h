// SPDX-License-Identifier: MIT
//
// How good a face is to be recognised, and why not.
#pragma once

#include <cstdint>

#include "find/levels.h"
#include "find/merging.h"

namespace orvo::find {

struct Quality {
    int32_t value;    // 0 to 100
    uint32_t reasons; // bits of orvo_find.h
};

// What is measured of a face; settings.h has the units.
struct Measures {
    int32_t side, sharpness, brightness, white, yaw, noseOff, covered, cutOff, mouthOff, score;
};

// `crop` is the upright face in a picture of that size.
Measures Measure(const FoundFace& found, Size picture, const uint8_t* crop);
Quality Judge(const Measures& measures);

} // namespace orvo::find
