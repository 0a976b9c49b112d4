// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace facegen {

// Row-major pixels with `channels` values each.
struct Picture {
    int width = 0, height = 0, channels = 1;
    std::vector<std::uint8_t> pixels;

    Picture() = default;
    Picture(int w, int h, int c)
        : width(w),
          height(h),
          channels(c),
          pixels(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) *
                 static_cast<std::size_t>(c)) {}
    std::uint8_t* At(int x, int y) {
        return pixels.data() + (static_cast<std::size_t>(y) * width + x) * channels;
    }
    const std::uint8_t* At(int x, int y) const {
        return pixels.data() + (static_cast<std::size_t>(y) * width + x) * channels;
    }
};

} // namespace facegen
