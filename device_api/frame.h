// SPDX-License-Identifier: MIT
//
// From the caller's frame to the 256 x 256 picture that the core takes, and back.
#pragma once

#include <cstdint>

#include "orvo/kova_fr.h"

namespace orvo {

// Checks every field of the caller's record. Returns 0 or an error code, with a diagnostic.
uint32_t fr_check_image(const obj_img* img);

// Describes the 256 x 256 picture in `inner`: a frame of that size is used where it lies, mapped
// first if need be; any other is scaled into a buffer of its own. On failure nothing is held.
uint32_t fr_create_img(const obj_img& img, obj_img& inner);

// False where the frame is longer than the platform's 32-bit lengths can say: the mapping that
// fr_create_img() made is then too short to be read.
bool IsWholeFrameMapped(const obj_img& img);

// Releases what fr_create_img() took for the same two records.
uint32_t fr_destory_img(const obj_img& img, const obj_img& inner);

} // namespace orvo
