// SPDX-License-Identifier: MIT
#pragma once

#include "pictures/picture_io.h"

namespace kova_cli {

// The picture at half its size: means of 2 x 2 pixels, without an odd last column or row.
GreyPicture Halved(const GreyPicture& picture);

// The picture in another size, smooth: halved as long as that does not make it too small, then scaled
// bilinearly.
GreyPicture Resized(const GreyPicture& picture, uint32_t width, uint32_t height);

} // namespace kova_cli
