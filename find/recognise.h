// SPDX-License-Identifier: MIT
//
// From an upright crop to a feature.
#pragma once

#include <cstdint>

namespace orvo::find {

// What the recogniser makes of a crop: ORVO_FIND_FEATURE_LENGTH floats.
void Recognise(const uint8_t* crop, float* feature);

// Makes a crop its mirror image, and the feature its mean direction with what the recogniser makes of
// that. A face and its mirror image show the same person, and the errors of the two looks differ.
void TakeMirrored(uint8_t* crop, float* feature);

} // namespace orvo::find
