// SPDX-License-Identifier: MIT
#include "pictures/picture_io.h"

#include "files/failure.h"
#include "files/input_file.h"

namespace kova_cli {
namespace {

uint64_t g_mostPixels = kMaxPixels;

std::string PixelsText(uint64_t pixels) {
    constexpr uint64_t kMega = 1'000'000;
    return pixels % kMega == 0 ? std::to_string(pixels / kMega) + " megapixels"
                               : std::to_string(pixels) + " pixels";
}

} // namespace

GreyPicture DecodePicture(Bytes file) {
    if (file.empty()) {
        throw Failure("the file is empty; name a picture file");
    }
    if (IsPng(file)) {
        return DecodePng(file);
    }
    if (IsJpeg(file)) {
        return DecodeJpeg(file);
    }
    if (IsPnm(file)) {
        return DecodePnm(file);
    }
    throw UnknownPicture("is not a picture of a known kind; save it as PNG, JPEG or PGM");
}

GreyPicture LoadPicture(const std::string& path) {
    const std::string from = path == "-" ? "/dev/stdin" : path;
    return Naming(path, [&from] { return DecodePicture(ReadWholeFile(from, kMaxFileBytes)); });
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

void FailDamaged(const std::string& detail) {
    throw Failure("the picture is damaged or cut short (" + detail +
                  "); copy it again or save it anew");
}

} // namespace kova_cli
