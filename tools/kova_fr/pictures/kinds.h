// SPDX-License-Identifier: MIT
//
// The kinds of pictures, each in a file of its own. Those that a build goes without are recognised all
// the same, so that the user is told what is missing.
#pragma once

#include <string>

#include "pictures/picture_io.h"

namespace kova_cli {

struct PictureKind {
    const char* name;
    bool (*is)(Bytes file);
    GreyPicture (*decode)(Bytes file); // none: not in this build
    const char* package;               // what a build needs for it
};

// PGM and PPM, binary and plain.
GreyPicture DecodePnm(Bytes file);
GreyPicture DecodePng(Bytes file);
GreyPicture DecodeJpeg(Bytes file);
GreyPicture DecodeBmp(Bytes file);
GreyPicture DecodeWebp(Bytes file);
GreyPicture DecodeGif(Bytes file);
GreyPicture DecodeTiff(Bytes file);
GreyPicture DecodeHeif(Bytes file); // HEIC and AVIF

bool IsPnm(Bytes file);
bool IsPng(Bytes file);
bool IsJpeg(Bytes file);

// Whether this machine has the library that DecodeHeif() loads.
bool CanDecodeHeif();

} // namespace kova_cli
