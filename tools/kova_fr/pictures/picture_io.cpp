// SPDX-License-Identifier: MIT
#include "pictures/picture_io.h"

#include "files/failure.h"
#include "files/input_file.h"
#include "terminal/label.h"
#include "terminal/warning.h"

namespace kova_cli {

GreyPicture LoadPicture(const std::string& path) {
    GreyPicture picture =
        Naming(path, [&path] { return DecodePicture(ReadWholeFile(path, kMaxFileBytes)); });
    if (!picture.warning.empty()) {
        Warn(path + ": " + picture.warning);
    }
    return picture;
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
