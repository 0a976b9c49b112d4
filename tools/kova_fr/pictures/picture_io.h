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
// - Marks of rotation (EXIF, and HEIF's own) are followed; gamma values and colour profiles are not.
// - Of several pictures, pages or frames in a file the first is taken, or the one that the file calls
//   its main one.
//
// What goes wrong is thrown as Failure.

struct GreyPicture {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> pixels; // rows from the top, without gaps
    std::string warning = {};    // what the user should know, though it can be used
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
// The Failure names the file, and a warning is given on standard error.
GreyPicture LoadPicture(const std::string& path);
// The same of a file in memory: the Failure names none, and the warning is left to the caller.
GreyPicture DecodePicture(Bytes file);
// From now on pictures beyond that many pixels are refused, in place of kMaxPixels.
void LimitPictures(uint64_t mostPixels);

// The kinds that this program reads on this machine, and the others that it knows: "PNG, JPEG, ...".
std::string KnownPictureKinds();
std::string MissingPictureKinds();

// A PNG file of 8-bit grey (1 channel) or colour (3 channels).
std::vector<uint8_t> EncodePng(Bytes pixels, uint32_t width, uint32_t height, uint32_t channels);

// Refuses empty pictures and those beyond the limit.
void CheckPictureSize(uint64_t width, uint64_t height);

// All black, of a size that is checked.
GreyPicture EmptyPicture(uint64_t width, uint64_t height);

// The one Failure for a file that begins like a picture and goes wrong later.
[[noreturn]] void FailDamaged(const std::string& detail);

} // namespace kova_cli
