// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace kova_fr_test {

// Pictures as a test draws them, and files of every kind made from them. File contents are strings
// of bytes.

struct Grey {
    uint32_t width;
    uint32_t height;
    std::vector<uint8_t> pixels;
};

// A soft pattern without symmetry, so that every shift and swap shows.
Grey Pattern(uint32_t width, uint32_t height, uint32_t seed = 1);
Grey Flat(uint32_t width, uint32_t height, uint8_t level);
Grey Crop(const Grey& picture, uint32_t x, uint32_t y, uint32_t width, uint32_t height);

// What libpng is asked to write: rows as PNG packs them, 16-bit samples with the high byte first.
struct PngContent {
    uint32_t width;
    uint32_t height;
    int bitDepth;
    int colourType;
    bool isInterlaced = false;
    std::vector<uint8_t> rows;
    std::vector<std::array<uint8_t, 3>> palette = {};
    std::vector<uint8_t> paletteAlpha = {};
};

std::string Png(const PngContent& content);
std::string GreyPng(const Grey& picture);

enum class JpegSpace { kGrey, kYcc, kRgb, kCmyk, kYcck };

struct JpegContent {
    uint32_t width;
    uint32_t height;
    JpegSpace stored;
    std::vector<uint8_t> samples; // 1, 3 (red, green, blue) or 4 (cyan to black) a pixel
    bool isProgressive = false;
    bool hasAdobeMark = true; // 4 channels only
};

std::string Jpeg(const JpegContent& content);
// Every pixel the same.
std::string FlatJpeg(JpegSpace stored, const std::vector<uint8_t>& pixel);
std::string GreyJpeg(const Grey& picture);
// The luma plane as the JPEG library gives it.
Grey DecodeJpegLuma(const std::string& file);

std::string BinaryPgm(const Grey& picture);
std::string PlainPgm(const Grey& picture);

// A PNG whose pixels are 8-bit grey.
Grey DecodeGreyPng(const std::string& file);

// A well-formed beginning of a PNG of that size, with no pixels behind it.
std::string PngHeader(uint32_t width, uint32_t height);

} // namespace kova_fr_test
