// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "files/failure.h"

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

// For callers that tell these apart from a picture that is damaged.
class UnknownPicture : public Failure {
  public:
    using Failure::Failure;
};
class TooManyPixels : public Failure {
  public:
    using Failure::Failure;
};

// The kind of picture is found by content; the name does not matter, but that - is standard input.
// The Failure names the file.
GreyPicture LoadPicture(const std::string& path);
// The same of a file in memory.
GreyPicture DecodePicture(Bytes file);
// From now on pictures beyond that many pixels are refused, in place of kMaxPixels.
void LimitPictures(uint64_t mostPixels);

GreyPicture DecodePng(Bytes file);
GreyPicture DecodeJpeg(Bytes file);
// PGM and PPM, binary and plain.
GreyPicture DecodePnm(Bytes file);

bool IsPng(Bytes file);
bool IsJpeg(Bytes file);
bool IsPnm(Bytes file);

// A PNG file of 8-bit grey (1 channel) or colour (3 channels).
std::vector<uint8_t> EncodePng(Bytes pixels, uint32_t width, uint32_t height, uint32_t channels);

// Refuses empty pictures and those beyond the limit.
void CheckPictureSize(uint64_t width, uint64_t height);

// The one Failure for a file that begins like a picture and goes wrong later.
[[noreturn]] void FailDamaged(const std::string& detail);

} // namespace kova_cli
