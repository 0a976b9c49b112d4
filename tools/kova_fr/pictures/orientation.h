// SPDX-License-Identifier: MIT
#pragma once

#include "pictures/picture_io.h"

namespace kova_cli {

// How a camera was held, as EXIF says it: 1 as it stands, 2 to 8 mirrored or turned.
inline constexpr int kUpright = 1;

// The orientation in a TIFF structure, as JPEG carries it behind "Exif\0\0" and PNG in eXIf;
// kUpright if there is none, or nonsense.
int ExifOrientation(Bytes tiff);

// Turns the picture so that its top is on top.
void MakeUpright(int orientation, GreyPicture& picture);

} // namespace kova_cli
