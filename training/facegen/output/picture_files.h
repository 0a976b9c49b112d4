// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

#include "picture.h"

namespace facegen {

// Each throws std::runtime_error that names the file.
Picture ReadPng(const std::filesystem::path& file);  // RGBA
Picture ReadJpeg(const std::filesystem::path& file); // RGB
void WritePng(const std::filesystem::path& file, const Picture& grey);

// What is left of a grey picture after JPEG at this quality (1 to 100).
void JpegRoundTrip(std::uint8_t* pixels, int width, int height, int quality);

} // namespace facegen
