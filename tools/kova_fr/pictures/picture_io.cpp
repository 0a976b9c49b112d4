// SPDX-License-Identifier: MIT
#include "pictures/picture_io.h"

#include "files/failure.h"
#include "files/input_file.h"

namespace kova_cli {
namespace {

GreyPicture Decode(Bytes file) {
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
    throw Failure("is not a picture of a known kind; save it as PNG, JPEG or PGM");
}

} // namespace

GreyPicture LoadPicture(const std::string& path) {
    try {
        return Decode(ReadWholeFile(path == "-" ? "/dev/stdin" : path, kMaxFileBytes));
    } catch (const Failure& failure) {
        throw Failure(path + ": " + failure.what());
    }
}

void CheckPictureSize(uint64_t width, uint64_t height) {
    if (width == 0 || height == 0) {
        FailDamaged("it has no pixels");
    }
    if (width > kMaxPixels || height > kMaxPixels / width) {
        throw Failure("the picture is too large (" + std::to_string(width) + " x " +
                      std::to_string(height) + "); scale it down to " +
                      std::to_string(kMaxPixels / 1'000'000) + " megapixels at most");
    }
}

void FailDamaged(const std::string& detail) {
    throw Failure("the picture is damaged or cut short (" + detail +
                  "); copy it again or save it anew");
}

} // namespace kova_cli
