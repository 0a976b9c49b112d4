// SPDX-License-Identifier: MIT
//
// BMP as Windows and its programs write it: headers of 12 bytes and of 40 and more, palettes, run
// lengths, 16, 24 and 32 bits. Embedded JPEG and PNG are for printers and refused.
#include <array>
#include <bit>

#include "files/failure.h"
#include "grey/luma.h"
#include "pictures/kinds.h"

namespace kova_cli {
namespace {

constexpr size_t kFileHeader = 14;
constexpr uint32_t kOldHeader = 12;
constexpr uint32_t kPlain = 0, kRuns8 = 1, kRuns4 = 2, kMasks = 3, kMasksWithAlpha = 6;

[[noreturn]] void FailTooShort() { FailDamaged("the file ends too early"); }

uint32_t Number(Bytes file, size_t at, size_t bytes) {
    if (at > file.size() || bytes > file.size() - at) {
        FailTooShort();
    }
    uint32_t number = 0;
    for (size_t i = bytes; i-- > 0;) {
        number = number << 8 | file[at + i];
    }
    return number;
}

struct BmpHeader {
    uint32_t width = 0;
    uint32_t height = 0;
    bool isFromTop = false;
    uint32_t bits = 0; // a pixel
    uint32_t compression = kPlain;
    size_t pixelsAt = 0;
    std::array<uint32_t, 4> masks = {};   // red, green, blue, alpha
    std::array<uint8_t, 256> levels = {}; // of the palette; black where it has none
};

void ReadSize(Bytes file, uint32_t headerBytes, BmpHeader& header) {
    if (headerBytes == kOldHeader) {
        header.width = Number(file, kFileHeader + 4, 2);
        header.height = Number(file, kFileHeader + 6, 2);
        header.bits = Number(file, kFileHeader + 10, 2);
        return;
    }
    const auto width = static_cast<int32_t>(Number(file, kFileHeader + 4, 4));
    const auto height = static_cast<int32_t>(Number(file, kFileHeader + 8, 4));
    if (width < 0 || height == INT32_MIN) {
        FailDamaged("a size below 0");
    }
    header.width = static_cast<uint32_t>(width);
    header.height = static_cast<uint32_t>(height < 0 ? -height : height);
    header.isFromTop = height < 0;
    header.bits = Number(file, kFileHeader + 14, 2);
    header.compression = Number(file, kFileHeader + 16, 4);
}

void ReadPalette(Bytes file, uint32_t headerBytes, BmpHeader& header) {
    const bool isOld = headerBytes == kOldHeader;
    const size_t most = size_t{1} << header.bits;
    const size_t told = isOld ? 0 : Number(file, kFileHeader + 32, 4);
    const size_t count = told == 0 || told > most ? most : told;
    const size_t each = isOld ? 3 : 4;
    for (size_t i = 0; i < count; ++i) {
        const size_t at = kFileHeader + headerBytes + i * each;
        if (at + each > header.pixelsAt) {
            return; // some programs write fewer than they say
        }
        header.levels[i] =
            orvo_grey::Luma(Number(file, at + 2, 1), Number(file, at + 1, 1), Number(file, at, 1));
    }
}

void ReadMasks(Bytes file, uint32_t headerBytes, BmpHeader& header) {
    if (header.compression == kPlain) {
        header.masks = header.bits == 16 ? std::array{0x7C00u, 0x03E0u, 0x001Fu, 0u}
                                         : std::array{0xFF0000u, 0xFF00u, 0xFFu, 0u};
        return;
    }
    // Behind the shortest header, or in the longer ones at the same place.
    const size_t count = headerBytes >= 56 || header.compression == kMasksWithAlpha ? 4 : 3;
    for (size_t i = 0; i < count; ++i) {
        header.masks[i] = Number(file, kFileHeader + 40 + 4 * i, 4);
    }
}

bool FitsTogether(const BmpHeader& header) {
    switch (header.compression) {
        case kPlain:
            return header.bits == 1 || header.bits == 2 || header.bits == 4 || header.bits == 8 ||
                   header.bits == 16 || header.bits == 24 || header.bits == 32;
        case kRuns8:
            return header.bits == 8 && !header.isFromTop;
        case kRuns4:
            return header.bits == 4 && !header.isFromTop;
        case kMasks:
        case kMasksWithAlpha:
            return header.bits == 16 || header.bits == 32;
        default:
            return false;
    }
}

BmpHeader ReadHeader(Bytes file) {
    BmpHeader header;
    header.pixelsAt = Number(file, 10, 4);
    const uint32_t headerBytes = Number(file, kFileHeader, 4);
    if (headerBytes != kOldHeader && (headerBytes < 40 || headerBytes > 1024)) {
        FailDamaged("a header of " + std::to_string(headerBytes) + " bytes");
    }
    ReadSize(file, headerBytes, header);
    CheckPictureSize(header.width, header.height);
    if (!FitsTogether(header)) {
        throw Failure("the BMP is of an unusual kind; save it as PNG or JPEG");
    }
    if (header.pixelsAt > file.size()) {
        FailTooShort();
    }
    if (header.bits <= 8) {
        ReadPalette(file, headerBytes, header);
    } else {
        ReadMasks(file, headerBytes, header);
    }
    return header;
}

// The bits of a mask as 8.
uint32_t Sample(uint32_t pixel, uint32_t mask) {
    if (mask == 0) {
        return 0;
    }
    const int shift = std::countr_zero(mask);
    const uint64_t most = mask >> shift;
    return static_cast<uint32_t>(((pixel & mask) >> shift) * 255ull / most);
}

uint8_t LevelOf(const BmpHeader& header, uint32_t pixel) {
    const uint8_t level =
        orvo_grey::Luma(Sample(pixel, header.masks[0]), Sample(pixel, header.masks[1]),
                        Sample(pixel, header.masks[2]));
    return header.masks[3] == 0 ? level
                                : orvo_grey::OverBlack(level, Sample(pixel, header.masks[3]));
}

uint8_t PixelOf(const BmpHeader& header, const uint8_t* row, size_t x) {
    if (header.bits <= 8) {
        const size_t bit = x * header.bits;
        const uint32_t shift = 8 - header.bits - static_cast<uint32_t>(bit % 8);
        return header.levels[row[bit / 8] >> shift & ((1u << header.bits) - 1)];
    }
    const uint8_t* at = row + x * header.bits / 8;
    uint32_t pixel = at[0] | uint32_t{at[1]} << 8;
    pixel |= header.bits >= 24 ? uint32_t{at[2]} << 16 : 0;
    pixel |= header.bits == 32 ? uint32_t{at[3]} << 24 : 0;
    return LevelOf(header, pixel);
}

uint8_t* RowFromBottom(GreyPicture& picture, uint32_t row) {
    return picture.pixels.data() + size_t{picture.height - 1 - row} * picture.width;
}

void ReadPlain(Bytes pixels, const BmpHeader& header, GreyPicture& picture) {
    const size_t rowBytes = (size_t{header.width} * header.bits + 31) / 32 * 4;
    if (pixels.size() < rowBytes * header.height) {
        FailTooShort();
    }
    for (uint32_t y = 0; y < header.height; ++y) {
        uint8_t* const to = header.isFromTop ? picture.pixels.data() + size_t{y} * header.width
                                             : RowFromBottom(picture, y);
        for (uint32_t x = 0; x < header.width; ++x) {
            to[x] = PixelOf(header, pixels.data() + y * rowBytes, x);
        }
    }
}

// Runs of one or two colours, pixels as they are, and jumps; what is jumped over has the first colour.
class RunReader {
  public:
    RunReader(Bytes pixels, const BmpHeader& header, GreyPicture& picture)
        : rest_(pixels), header_(header), picture_(picture) {}

    void Read() {
        std::fill(picture_.pixels.begin(), picture_.pixels.end(), header_.levels[0]);
        while (!isAtEnd_) {
            const uint8_t count = Take();
            const uint8_t value = Take();
            if (count > 0) {
                for (uint32_t i = 0; i < count; ++i) {
                    Put(value, i);
                }
            } else {
                Obey(value);
            }
        }
    }

  private:
    uint8_t Take() {
        if (rest_.empty()) {
            FailTooShort();
        }
        const uint8_t byte = rest_[0];
        rest_ = rest_.subspan(1);
        return byte;
    }

    // Of two pixels in a byte of 4 bits each, the first is the higher.
    void Put(uint8_t value, uint32_t rank) {
        if (y_ >= header_.height || x_ >= header_.width) {
            FailDamaged("a run leaves the picture");
        }
        const uint8_t index = header_.bits == 8 ? value : rank % 2 == 0 ? value >> 4 : value & 15;
        RowFromBottom(picture_, y_)[x_++] = header_.levels[index];
    }

    void Obey(uint8_t order) {
        if (order == 0) {
            x_ = 0;
            ++y_;
        } else if (order == 1) {
            isAtEnd_ = true;
        } else if (order == 2) {
            x_ += Take();
            y_ += Take();
        } else {
            PutPlain(order);
        }
    }

    void PutPlain(uint32_t count) {
        uint32_t bytes = 0;
        uint8_t value = 0;
        for (uint32_t i = 0; i < count; ++i) {
            if (header_.bits == 8 || i % 2 == 0) {
                value = Take();
                ++bytes;
            }
            Put(value, i);
        }
        if (bytes % 2 != 0) {
            Take();
        }
    }

    Bytes rest_;
    const BmpHeader& header_;
    GreyPicture& picture_;
    uint32_t x_ = 0;
    uint32_t y_ = 0;
    bool isAtEnd_ = false;
};

} // namespace

GreyPicture DecodeBmp(Bytes file) {
    const BmpHeader header = ReadHeader(file);
    const Bytes pixels = file.subspan(header.pixelsAt);
    GreyPicture picture = EmptyPicture(header.width, header.height);
    if (header.compression == kRuns8 || header.compression == kRuns4) {
        RunReader(pixels, header, picture).Read();
    } else {
        ReadPlain(pixels, header, picture);
    }
    return picture;
}

} // namespace kova_cli
