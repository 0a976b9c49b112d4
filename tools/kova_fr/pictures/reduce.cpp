// SPDX-License-Identifier: MIT
#include "pictures/reduce.h"

#include "grey/scale_plane.h"

namespace kova_cli {

GreyPicture Halved(const GreyPicture& picture) {
    GreyPicture half{picture.width / 2, picture.height / 2, {}};
    half.pixels.reserve(size_t{half.width} * half.height);
    for (uint32_t y = 0; y < half.height; ++y) {
        const uint8_t* const upper = &picture.pixels[size_t{2} * y * picture.width];
        const uint8_t* const lower = upper + picture.width;
        for (size_t x = 0; x < 2 * size_t{half.width}; x += 2) {
            const int sum = upper[x] + upper[x + 1] + lower[x] + lower[x + 1];
            half.pixels.push_back(static_cast<uint8_t>((sum + 2) >> 2));
        }
    }
    return half;
}

GreyPicture Resized(const GreyPicture& picture, uint32_t width, uint32_t height) {
    if (picture.width >= 2 * width && picture.height >= 2 * height) {
        return Resized(Halved(picture), width, height);
    }
    GreyPicture scaled{width, height, std::vector<uint8_t>(size_t{width} * height)};
    orvo_grey::ScalePlane({picture.pixels.data(), picture.width, picture.height, picture.width},
                          {scaled.pixels.data(), width, height, width});
    return scaled;
}

} // namespace kova_cli
