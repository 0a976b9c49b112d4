// SPDX-License-Identifier: MIT
#include <cctype>

#include "files/failure.h"
#include "grey/luma.h"
#include "pictures/kinds.h"

namespace kova_cli {
namespace {

constexpr uint32_t kMaxSample = 65535;

struct PnmHeader {
    bool isPlain;      // numbers in text, else bytes
    uint32_t channels; // 1 grey, 3 colour
    uint32_t width;
    uint32_t height;
    uint32_t maximum; // the sample that stands for white
};

bool IsSpace(uint8_t c) { return std::isspace(c) != 0; }
bool IsDigit(uint8_t c) { return c >= '0' && c <= '9'; }

[[noreturn]] void FailTooShort() { FailDamaged("the file ends too early"); }

// White space and comments, which run from a # to the end of the line.
void SkipSpace(Bytes& rest) {
    bool inComment = false;
    while (!rest.empty() && (inComment || IsSpace(rest[0]) || rest[0] == '#')) {
        inComment = inComment ? rest[0] != '\n' : rest[0] == '#';
        rest = rest.subspan(1);
    }
}

uint32_t ReadNumber(Bytes& rest, uint32_t limit, const char* what) {
    SkipSpace(rest);
    if (rest.empty()) {
        FailTooShort();
    }
    if (!IsDigit(rest[0])) {
        FailDamaged(std::string(what) + " is not a number");
    }
    uint64_t number = 0;
    while (!rest.empty() && IsDigit(rest[0])) {
        number = number * 10 + (rest[0] - '0');
        if (number > limit) {
            FailDamaged(std::string(what) + " is above " + std::to_string(limit));
        }
        rest = rest.subspan(1);
    }
    return static_cast<uint32_t>(number);
}

PnmHeader ReadHeader(Bytes& rest) {
    PnmHeader header;
    header.isPlain = rest[1] == '2' || rest[1] == '3';
    header.channels = rest[1] == '3' || rest[1] == '6' ? 3 : 1;
    rest = rest.subspan(2);
    header.width = ReadNumber(rest, UINT32_MAX, "the width");
    header.height = ReadNumber(rest, UINT32_MAX, "the height");
    header.maximum = ReadNumber(rest, kMaxSample, "the maximum");
    if (header.maximum == 0) {
        FailDamaged("the maximum is 0");
    }
    return header;
}

// No file that holds all samples is shorter, so a false header asks for no memory.
void CheckLength(const PnmHeader& header, Bytes rest) {
    const uint64_t samples = uint64_t{header.width} * header.height * header.channels;
    const uint64_t needed = header.isPlain          ? 2 * samples - 1
                            : header.maximum <= 255 ? samples
                                                    : 2 * samples;
    if (rest.size() < needed) {
        FailTooShort();
    }
}

uint32_t ReadBinarySample(const PnmHeader& header, Bytes& rest) {
    const size_t bytes = header.maximum <= 255 ? 1 : 2;
    const uint32_t sample = bytes == 1 ? rest[0] : rest[0] * 256u + rest[1];
    rest = rest.subspan(bytes);
    if (sample > header.maximum) {
        FailDamaged("a sample is above " + std::to_string(header.maximum));
    }
    return sample;
}

uint32_t ReadSample(const PnmHeader& header, Bytes& rest) {
    const uint32_t sample = header.isPlain ? ReadNumber(rest, header.maximum, "a sample")
                                           : ReadBinarySample(header, rest);
    return (sample * 255 + header.maximum / 2) / header.maximum;
}

uint8_t ReadPixel(const PnmHeader& header, Bytes& rest) {
    const uint32_t first = ReadSample(header, rest);
    if (header.channels == 1) {
        return static_cast<uint8_t>(first);
    }
    const uint32_t green = ReadSample(header, rest);
    const uint32_t blue = ReadSample(header, rest);
    return orvo_grey::Luma(first, green, blue);
}

} // namespace

bool IsPnm(Bytes file) {
    const auto isKnown = [](uint8_t c) { return c == '2' || c == '3' || c == '5' || c == '6'; };
    return file.size() >= 3 && file[0] == 'P' && isKnown(file[1]) &&
           (IsSpace(file[2]) || file[2] == '#');
}

GreyPicture DecodePnm(Bytes file) {
    Bytes rest = file;
    const PnmHeader header = ReadHeader(rest);
    CheckPictureSize(header.width, header.height);
    if (rest.empty()) {
        FailTooShort();
    }
    rest = rest.subspan(1); // the one white space between header and samples
    CheckLength(header, rest);
    GreyPicture picture;
    picture.width = header.width;
    picture.height = header.height;
    picture.pixels.resize(size_t{header.width} * header.height);
    for (uint8_t& pixel : picture.pixels) {
        pixel = ReadPixel(header, rest);
    }
    return picture;
}

} // namespace kova_cli
