// SPDX-License-Identifier: MIT
#include "picture_files.h"

#include <gtest/gtest.h>
#include <png.h>
#include <zlib.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// Needs what <cstdio> declares before it.
#include <jpeglib.h>

namespace kova_fr_test {
namespace {

std::string ToString(const std::vector<uint8_t>& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

void AppendToString(png_structp png, png_bytep bytes, size_t count) {
    static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<char*>(bytes), count);
}

void SetPalette(png_structp png, png_infop info, const PngContent& content) {
    std::vector<png_color> colours;
    for (const auto& [red, green, blue] : content.palette) {
        colours.push_back({red, green, blue});
    }
    if (!colours.empty()) {
        png_set_PLTE(png, info, colours.data(), static_cast<int>(colours.size()));
    }
    if (!content.paletteAlpha.empty()) {
        png_set_tRNS(png, info, content.paletteAlpha.data(),
                     static_cast<int>(content.paletteAlpha.size()), nullptr);
    }
}

J_COLOR_SPACE GivenSpace(JpegSpace stored) {
    switch (stored) {
        case JpegSpace::kGrey:
            return JCS_GRAYSCALE;
        case JpegSpace::kYcc:
        case JpegSpace::kRgb:
            return JCS_RGB;
        default:
            return JCS_CMYK;
    }
}

J_COLOR_SPACE StoredSpace(JpegSpace stored) {
    switch (stored) {
        case JpegSpace::kGrey:
            return JCS_GRAYSCALE;
        case JpegSpace::kYcc:
            return JCS_YCbCr;
        case JpegSpace::kRgb:
            return JCS_RGB;
        case JpegSpace::kCmyk:
            return JCS_CMYK;
        default:
            return JCS_YCCK;
    }
}

uint8_t* Pointer(const uint8_t* bytes) { return const_cast<uint8_t*>(bytes); }

void AppendBigEndian(std::string& to, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        to += static_cast<char>(value >> shift);
    }
}

} // namespace

Grey Pattern(uint32_t width, uint32_t height, uint32_t seed) {
    Grey picture{width, height, {}};
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const double wave = std::sin(0.041 * x + 0.013 * y + seed) +
                                std::sin(0.023 * y - 0.005 * x * seed) +
                                std::sin(0.0007 * x * y + 2.0 * seed);
            picture.pixels.push_back(static_cast<uint8_t>(127.5 + 42 * wave));
        }
    }
    return picture;
}

Grey Flat(uint32_t width, uint32_t height, uint8_t level) {
    return {width, height, std::vector<uint8_t>(size_t{width} * height, level)};
}

Grey Crop(const Grey& picture, uint32_t x, uint32_t y, uint32_t width, uint32_t height) {
    Grey crop{width, height, {}};
    for (uint32_t row = y; row < y + height; ++row) {
        const auto first = picture.pixels.begin() + static_cast<ptrdiff_t>(row * picture.width + x);
        crop.pixels.insert(crop.pixels.end(), first, first + static_cast<ptrdiff_t>(width));
    }
    return crop;
}

// libpng's own error handler ends the process, which is right for a test.
std::string Png(const PngContent& content) {
    std::string file;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(png, &file, AppendToString, nullptr);
    png_set_IHDR(png, info, content.width, content.height, content.bitDepth, content.colourType,
                 content.isInterlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    SetPalette(png, info, content);
    png_write_info(png, info);
    std::vector<png_bytep> rows;
    const size_t rowBytes = png_get_rowbytes(png, info);
    for (uint32_t y = 0; y < content.height; ++y) {
        rows.push_back(Pointer(content.rows.data() + y * rowBytes));
    }
    EXPECT_EQ(content.rows.size(), rowBytes * content.height);
    png_write_image(png, rows.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return file;
}

std::string GreyPng(const Grey& picture) {
    return Png({picture.width, picture.height, 8, PNG_COLOR_TYPE_GRAY, false, picture.pixels});
}

std::string Jpeg(const JpegContent& content) {
    jpeg_compress_struct jpeg = {};
    jpeg_error_mgr errors = {};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_compress(&jpeg);
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&jpeg, &bytes, &size);
    jpeg.image_width = content.width;
    jpeg.image_height = content.height;
    jpeg.in_color_space = GivenSpace(content.stored);
    jpeg.input_components =
        static_cast<int>(content.samples.size() / content.width / content.height);
    jpeg_set_defaults(&jpeg);
    jpeg_set_colorspace(&jpeg, StoredSpace(content.stored));
    jpeg.write_Adobe_marker = jpeg.write_Adobe_marker && content.hasAdobeMark;
    jpeg_set_quality(&jpeg, 100, TRUE);
    if (content.isProgressive) {
        jpeg_simple_progression(&jpeg);
    }
    jpeg_start_compress(&jpeg, TRUE);
    const size_t rowBytes = content.samples.size() / content.height;
    for (uint32_t y = 0; y < content.height; ++y) {
        JSAMPROW row = Pointer(content.samples.data() + y * rowBytes);
        jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    jpeg_destroy_compress(&jpeg);
    const std::string file(bytes, bytes + size);
    std::free(bytes);
    return file;
}

std::string FlatJpeg(JpegSpace stored, const std::vector<uint8_t>& pixel) {
    JpegContent content{64, 64, stored, {}};
    for (int i = 0; i < 64 * 64; ++i) {
        content.samples.insert(content.samples.end(), pixel.begin(), pixel.end());
    }
    return Jpeg(content);
}

std::string GreyJpeg(const Grey& picture) {
    return Jpeg({picture.width, picture.height, JpegSpace::kGrey, picture.pixels});
}

Grey DecodeJpegLuma(const std::string& file) {
    jpeg_decompress_struct jpeg = {};
    jpeg_error_mgr errors = {};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&jpeg);
    jpeg_mem_src(&jpeg, reinterpret_cast<const unsigned char*>(file.data()), file.size());
    jpeg_read_header(&jpeg, TRUE);
    jpeg.out_color_space = JCS_GRAYSCALE;
    jpeg_start_decompress(&jpeg);
    Grey picture = Flat(jpeg.output_width, jpeg.output_height, 0);
    while (jpeg.output_scanline < jpeg.output_height) {
        JSAMPROW row = picture.pixels.data() + size_t{jpeg.output_scanline} * picture.width;
        jpeg_read_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_decompress(&jpeg);
    jpeg_destroy_decompress(&jpeg);
    return picture;
}

std::string BinaryPgm(const Grey& picture) {
    return "P5\n" + std::to_string(picture.width) + " " + std::to_string(picture.height) +
           "\n255\n" + ToString(picture.pixels);
}

std::string PlainPgm(const Grey& picture) {
    std::string file =
        "P2\n" + std::to_string(picture.width) + " " + std::to_string(picture.height) + "\n255\n";
    for (const uint8_t pixel : picture.pixels) {
        file += std::to_string(pixel) + "\n";
    }
    return file;
}

Grey DecodeGreyPng(const std::string& file) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_memory(&image, file.data(), file.size()) == 0) {
        ADD_FAILURE() << image.message;
        return {0, 0, {}};
    }
    EXPECT_EQ(image.format & (PNG_FORMAT_FLAG_COLOR | PNG_FORMAT_FLAG_ALPHA), 0u);
    image.format = PNG_FORMAT_GRAY;
    Grey picture = Flat(image.width, image.height, 0);
    EXPECT_NE(png_image_finish_read(&image, nullptr, picture.pixels.data(), 0, nullptr), 0);
    return picture;
}

std::string PngHeader(uint32_t width, uint32_t height) {
    std::string chunk = "IHDR";
    AppendBigEndian(chunk, width);
    AppendBigEndian(chunk, height);
    chunk += std::string("\x08\x00\x00\x00\x00", 5); // 8-bit grey
    std::string file = "\x89PNG\r\n\x1A\n";
    AppendBigEndian(file, static_cast<uint32_t>(chunk.size() - 4));
    file += chunk;
    AppendBigEndian(file,
                    static_cast<uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(chunk.data()),
                                                static_cast<uInt>(chunk.size()))));
    // The reader wants to see where the pixels begin before it says what the header holds.
    AppendBigEndian(file, 100);
    return file + "IDAT";
}

} // namespace kova_fr_test
