// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

#include "picture.h"

namespace facegen {

// Each throws std::runtime_error that names the file.
Picture read_png(const std::filesystem::path& file);  // RGBA
Picture read_jpeg(const std::filesystem::path& file); // RGB
void write_png(const std::filesystem::path& file, const Picture& grey);

// What is left of a grey picture after JPEG at this quality (1 to 100).
void jpeg_round_trip(std::uint8_t* pixels, int width, int height, int quality);

} // namespace facegen
