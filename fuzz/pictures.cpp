// SPDX-License-Identifier: MIT
//
// Pictures of every kind that this build reads, and EXIF by itself. What is read has its pixels, and is
// written as PNG and read again unchanged.
#include <string_view>

#include "files/failure.h"
#include "input.h"
#include "pictures/kinds.h"
#include "pictures/orientation.h"
#include "require.h"

namespace {

using kova_cli::GreyPicture;
using orvo_fuzz::Require;

constexpr uint64_t kMostPixels = 1 << 14; // so that a run is short
constexpr size_t kPackedPixels = 1024;    // of pictures that are written as well

void Check(const GreyPicture& picture) {
    Require(picture.width > 0 && picture.height > 0, "a picture has pixels");
    Require(picture.pixels.size() == uint64_t{picture.width} * picture.height,
            "it has as many as it says");
    Require(picture.pixels.size() <= kMostPixels, "it is not larger than allowed");
}

void Repack(const GreyPicture& picture) {
    const auto file = kova_cli::EncodePng(picture.pixels, picture.width, picture.height, 1);
    const GreyPicture again = kova_cli::DecodePicture(file);
    Require(again.width == picture.width && again.pixels == picture.pixels,
            "a picture survives being written");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    kova_cli::LimitPictures(kMostPixels);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int orientation = kova_cli::ExifOrientation({data, size});
    Require(orientation >= 1 && orientation <= 8, "there are eight orientations");
    try {
        const GreyPicture picture = kova_cli::DecodePicture({data, size});
        Check(picture);
        if (picture.pixels.size() <= kPackedPixels) {
            Repack(picture);
        }
    } catch (const kova_cli::Failure& failure) {
        Require(std::string_view(failure.what()).find('\n') == std::string_view::npos,
                "a message is one line");
    }
    return 0;
}
