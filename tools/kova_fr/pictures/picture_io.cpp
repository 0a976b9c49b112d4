// SPDX-License-Identifier: MIT
#include "pictures/picture_io.h"

#include "files/failure.h"
#include "files/input_file.h"
#include "terminal/label.h"
#include "terminal/warning.h"

namespace kova_cli {
namespace {

uint64_t g_mostPixels = kMaxPixels;

std::string PixelsText(uint64_t pixels) {
    constexpr uint64_t kMega = 1'000'000;
    return pixels % kMega == 0 ? std::to_string(pixels / kMega) + " megapixels"
                               : std::to_string(pixels) + " pixels";
}

} // namespace

GreyPicture LoadPicture(const std::string& path) {
    const std::string from = path == "-" ? "/dev/stdin" : path;
    GreyPicture picture =
        Naming(path, [&from] { return DecodePicture(ReadWholeFile(from, kMaxFileBytes)); });
    if (!picture.warning.empty()) {
        Warn(path + ": " + picture.warning);
    }
    return picture;
}

void LimitPictures(uint64_t mostPixels) { g_mostPixels = mostPixels; }

void CheckPictureSize(uint64_t width, uint64_t height) {
    if (width == 0 || height == 0) {
        FailDamaged("it has no pixels");
    }
    if (width > g_mostPixels || height > g_mostPixels / width) {
        throw TooManyPixels("the picture is too large (" + std::to_string(width) + " x " +
                            std::to_string(height) + "); scale it down to " +
                            PixelsText(g_mostPixels) + " at most");
    }
}

GreyPicture EmptyPicture(uint64_t width, uint64_t height) {
    CheckPictureSize(width, height);
    GreyPicture picture;
    picture.width = static_cast<uint32_t>(width);
    picture.height = static_cast<uint32_t>(height);
    picture.pixels.resize(width * height);
    return picture;
}

void FailDamaged(const std::string& detail) {
    // Some libraries' words end in a line of their own.
    const size_t end = detail.find_last_not_of(" \n.");
    throw Failure("the picture is damaged or cut short (" + OneLine(detail.substr(0, end + 1)) +
                  "); copy it again or save it anew");
}

} // namespace kova_cli
