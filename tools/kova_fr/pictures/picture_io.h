// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace kova_cli {

// Reading and writing of pictures. The recognition knows one plane of luma, so every picture
// becomes that while it is read:
//
// - Colour becomes luma with the weights of BT.601 in integers (grey/luma.h). A JPEG that stores
//   luma and chroma gives its luma as it is stored, which is the same weighting.
// - Transparent parts show black behind them.
// - More than 8 bits a sample are scaled to 8 and rounded to nearest.
// - Marks of rotation (EXIF) are followed; gamma values and colour profiles are not.
//
// What goes wrong is thrown as Failure.

struct GreyPicture {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> pixels; // rows from the top, without gaps
};

using Bytes = std::span<const uint8_t>;

// A picture beyond this is refused before memory is asked for.
inline constexpr uint64_t kMaxPixels = 100'000'000;
inline constexpr uint64_t kMaxFileBytes = uint64_t{256} << 20;

// The kind of picture is found by content; the name does not matter, but that - is standard input.
// The Failure names the file.
GreyPicture LoadPicture(const std::string& path);

GreyPicture DecodePng(Bytes file);
GreyPicture DecodeJpeg(Bytes file);
// PGM and PPM, binary and plain.
GreyPicture DecodePnm(Bytes file);

bool IsPng(Bytes file);
bool IsJpeg(Bytes file);
bool IsPnm(Bytes file);

// A PNG file of 8-bit grey (1 channel) or colour (3 channels).
std::vector<uint8_t> EncodePng(Bytes pixels, uint32_t width, uint32_t height, uint32_t channels);

// Refuses empty pictures and those beyond kMaxPixels.
void CheckPictureSize(uint64_t width, uint64_t height);

// The one Failure for a file that begins like a picture and goes wrong later.
[[noreturn]] void FailDamaged(const std::string& detail);

} // namespace kova_cli
