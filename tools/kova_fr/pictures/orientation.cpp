// SPDX-License-Identifier: MIT
//
// The one entry of EXIF that matters here is found in the few lines below; a library for all of
// EXIF would be one more thing to trust with bytes of unknown origin.
#include "pictures/orientation.h"

#include <optional>

namespace kova_cli {
namespace {

constexpr uint32_t kOrientationTag = 0x0112;
constexpr uint32_t kShortType = 3;
constexpr size_t kEntryBytes = 12;

// Numbers of a TIFF structure, in the order of bytes that it says. Outside it they are 0.
class TiffReader {
  public:
    TiffReader(Bytes bytes, bool isBigEndian) : bytes_(bytes), isBigEndian_(isBigEndian) {}

    uint32_t Number(size_t at, size_t count) const {
        uint32_t number = 0;
        if (at > bytes_.size() || count > bytes_.size() - at) {
            return 0;
        }
        for (size_t i = 0; i < count; ++i) {
            number = number << 8 | bytes_[at + (isBigEndian_ ? i : count - 1 - i)];
        }
        return number;
    }

  private:
    Bytes bytes_;
    bool isBigEndian_;
};

std::optional<TiffReader> OpenTiff(Bytes bytes) {
    if (bytes.size() < 8 || bytes[0] != bytes[1] || (bytes[0] != 'I' && bytes[0] != 'M')) {
        return std::nullopt;
    }
    const TiffReader reader(bytes, bytes[0] == 'M');
    return reader.Number(2, 2) == 42 ? std::optional(reader) : std::nullopt;
}

} // namespace

int ExifOrientation(Bytes tiff) {
    const std::optional<TiffReader> reader = OpenTiff(tiff);
    if (!reader) {
        return kUpright;
    }
    const size_t directory = reader->Number(4, 4);
    const size_t entries = reader->Number(directory, 2);
    for (size_t i = 0; i < entries; ++i) {
        const size_t entry = directory + 2 + i * kEntryBytes;
        if (reader->Number(entry, 2) == kOrientationTag &&
            reader->Number(entry + 2, 2) == kShortType) {
            const uint32_t value = reader->Number(entry + 8, 2);
            return value >= 1 && value <= 8 ? static_cast<int>(value) : kUpright;
        }
    }
    return kUpright;
}

void MakeUpright(int orientation, GreyPicture& picture) {
    if (orientation == kUpright) {
        return;
    }
    // Orientation 5 to 8 swap rows and columns; then columns or rows run backwards.
    const bool swaps = orientation >= 5;
    const bool fromRight =
        orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
    const bool fromBottom =
        orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
    GreyPicture out;
    out.width = swaps ? picture.height : picture.width;
    out.height = swaps ? picture.width : picture.height;
    out.pixels.reserve(picture.pixels.size());
    for (uint32_t y = 0; y < out.height; ++y) {
        for (uint32_t x = 0; x < out.width; ++x) {
            const uint32_t column = swaps ? y : x;
            const uint32_t row = swaps ? x : y;
            const size_t fromX = fromRight ? picture.width - 1 - column : column;
            const size_t fromY = fromBottom ? picture.height - 1 - row : row;
            out.pixels.push_back(picture.pixels[fromY * picture.width + fromX]);
        }
    }
    picture = std::move(out);
}

} // namespace kova_cli
