// SPDX-License-Identifier: MIT
//
// From an upright crop to a feature.
#pragma once

#include <cstdint>

namespace orvo::find {

// What the recogniser makes of a crop: ORVO_FIND_FEATURE_LENGTH floats.
void Recognise(uint8_t* crop, float* feature);

// The mean direction of what it makes of the crop and of its mirror image, which the crop becomes. A
// face and its mirror image show the same person, and the errors of the two looks differ.
void RecogniseMirrored(uint8_t* crop, float* feature);

} // namespace orvo::find
