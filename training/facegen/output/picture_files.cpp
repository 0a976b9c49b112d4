// SPDX-License-Identifier: MIT
#include "output/picture_files.h"

#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include <jpeglib.h>

namespace facegen {
namespace {

[[noreturn]] void Fail(const std::filesystem::path& file, const std::string& what) {
    throw std::runtime_error(file.string() + ": " + what);
}

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// libjpeg leaves through a long jump on an error; the message is kept for the exception.
struct JpegFailure {
    jpeg_error_mgr manager;
    std::jmp_buf back;
    char message[JMSG_LENGTH_MAX];
};

void OnJpegFailure(j_common_ptr common) {
    auto* failure = reinterpret_cast<JpegFailure*>(common->err);
    failure->manager.format_message(common, failure->message);
    std::longjmp(failure->back, 1);
}

void Decode(jpeg_decompress_struct& jpeg, std::uint8_t* to, std::size_t rowBytes) {
    while (jpeg.output_scanline < jpeg.output_height) {
        JSAMPROW row = to + jpeg.output_scanline * rowBytes;
        jpeg_read_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_decompress(&jpeg);
}

} // namespace

Picture ReadPng(const std::filesystem::path& file) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, file.c_str()) == 0) {
        Fail(file, image.message);
    }
    image.format = PNG_FORMAT_RGBA;
    Picture picture(static_cast<int>(image.width), static_cast<int>(image.height), 4);
    if (png_image_finish_read(&image, nullptr, picture.pixels.data(), 0, nullptr) == 0) {
        Fail(file, image.message);
    }
    return picture;
}

void WritePng(const std::filesystem::path& file, const Picture& grey) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(grey.width);
    image.height = static_cast<png_uint_32>(grey.height);
    image.format = PNG_FORMAT_GRAY;
    if (png_image_write_to_file(&image, file.c_str(), 0, grey.pixels.data(), 0, nullptr) == 0) {
        Fail(file, image.message);
    }
}

Picture ReadJpeg(const std::filesystem::path& file) {
    const std::unique_ptr<std::FILE, FileCloser> in(std::fopen(file.c_str(), "rb"));
    if (!in) {
        Fail(file, "cannot be opened");
    }
    jpeg_decompress_struct jpeg{};
    JpegFailure failure{};
    jpeg.err = jpeg_std_error(&failure.manager);
    failure.manager.error_exit = OnJpegFailure;
    Picture picture;
    if (setjmp(failure.back) != 0) {
        jpeg_destroy_decompress(&jpeg);
        Fail(file, failure.message);
    }
    jpeg_create_decompress(&jpeg);
    jpeg_stdio_src(&jpeg, in.get());
    jpeg_read_header(&jpeg, TRUE);
    jpeg.out_color_space = JCS_RGB;
    jpeg_start_decompress(&jpeg);
    picture = Picture(static_cast<int>(jpeg.output_width), static_cast<int>(jpeg.output_height), 3);
    Decode(jpeg, picture.pixels.data(), static_cast<std::size_t>(picture.width) * 3);
    jpeg_destroy_decompress(&jpeg);
    return picture;
}

void JpegRoundTrip(std::uint8_t* pixels, int width, int height, int quality) {
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    JpegFailure failure{};
    jpeg_std_error(&failure.manager);
    failure.manager.error_exit = OnJpegFailure;

    jpeg_compress_struct writer{};
    writer.err = &failure.manager;
    jpeg_decompress_struct reader{};
    reader.err = &failure.manager;
    if (setjmp(failure.back) != 0) {
        jpeg_destroy_compress(&writer);
        jpeg_destroy_decompress(&reader);
        std::free(bytes);
        throw std::runtime_error(std::string("JPEG in memory: ") + failure.message);
    }
    jpeg_create_compress(&writer);
    jpeg_mem_dest(&writer, &bytes, &size);
    writer.image_width = static_cast<JDIMENSION>(width);
    writer.image_height = static_cast<JDIMENSION>(height);
    writer.input_components = 1;
    writer.in_color_space = JCS_GRAYSCALE;
    jpeg_set_defaults(&writer);
    jpeg_set_quality(&writer, quality, TRUE);
    jpeg_start_compress(&writer, TRUE);
    while (writer.next_scanline < writer.image_height) {
        JSAMPROW row = pixels + static_cast<std::size_t>(writer.next_scanline) * width;
        jpeg_write_scanlines(&writer, &row, 1);
    }
    jpeg_finish_compress(&writer);
    jpeg_destroy_compress(&writer);

    jpeg_create_decompress(&reader);
    jpeg_mem_src(&reader, bytes, size);
    jpeg_read_header(&reader, TRUE);
    jpeg_start_decompress(&reader);
    Decode(reader, pixels, static_cast<std::size_t>(width));
    jpeg_destroy_decompress(&reader);
    std::free(bytes);
}

} // namespace facegen
