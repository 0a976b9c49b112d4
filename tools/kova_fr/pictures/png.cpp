// SPDX-License-Identifier: MIT
#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "files/failure.h"
#include "grey/luma.h"
#include "pictures/kinds.h"
#include "pictures/orientation.h"

namespace kova_cli {
namespace {

// libpng reports errors by a jump back to the last setjmp. The functions below that call setjmp
// return false after such a jump and hold nothing that would need a destructor: what must be
// released belongs to their caller.
struct PngReader {
    Bytes rest; // what is not read yet
    char error[128] = "";
    bool isWithoutMemory = false;
    png_structp png = nullptr;
    png_infop info = nullptr;

    explicit PngReader(Bytes file);
    ~PngReader() { png_destroy_read_struct(&png, &info, nullptr); }
    PngReader(const PngReader&) = delete;
    PngReader& operator=(const PngReader&) = delete;
};

void OnError(png_structp png, png_const_charp text) {
    auto* reader = static_cast<PngReader*>(png_get_error_ptr(png));
    std::snprintf(reader->error, sizeof reader->error, "%s", text);
    png_longjmp(png, 1);
}

void OnWarning(png_structp, png_const_charp) {}

// libpng takes no memory for a damaged file.
png_voidp Allocate(png_structp png, png_alloc_size_t size) {
    void* block = std::malloc(size);
    if (block == nullptr) {
        static_cast<PngReader*>(png_get_mem_ptr(png))->isWithoutMemory = true;
    }
    return block;
}

void Free(png_structp, png_voidp block) { std::free(block); }

[[noreturn]] void Fail(const PngReader& reader) {
    if (reader.isWithoutMemory) {
        throw std::bad_alloc();
    }
    FailDamaged(reader.error);
}

void OnRead(png_structp png, png_bytep to, size_t count) {
    auto* reader = static_cast<PngReader*>(png_get_io_ptr(png));
    if (count > reader->rest.size()) {
        png_error(png, "the file ends too early");
    }
    std::memcpy(to, reader->rest.data(), count);
    reader->rest = reader->rest.subspan(count);
}

PngReader::PngReader(Bytes file) : rest(file) {
    png = png_create_read_struct_2(PNG_LIBPNG_VER_STRING, this, OnError, OnWarning, this, Allocate,
                                   Free);
    if (png != nullptr) {
        info = png_create_info_struct(png);
    }
    if (info == nullptr) {
        png_destroy_read_struct(&png, &info, nullptr);
        throw std::bad_alloc();
    }
}

uint32_t BigEndian(Bytes bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

// The library asks for as much memory as a chunk says that it has bytes, before it reads them: a few bytes
// could ask for 2 GiB.
void CheckChunks(Bytes file) {
    constexpr size_t kSignature = 8;
    constexpr size_t kFrame = 12; // length, kind and checksum
    constexpr uint32_t kEnd = 0x49454E44;
    for (Bytes rest = file.subspan(kSignature); rest.size() >= kFrame;) {
        const size_t length = BigEndian(rest);
        if (length > rest.size() - kFrame) {
            FailDamaged("the file ends too early");
        }
        if (BigEndian(rest.subspan(4)) == kEnd) {
            return;
        }
        rest = rest.subspan(kFrame + length);
    }
}

bool ReadHeader(PngReader& reader) {
    if (setjmp(png_jmpbuf(reader.png)) != 0) {
        return false;
    }
    png_set_read_fn(reader.png, &reader, OnRead);
    // The size is for CheckPictureSize() to judge.
    png_set_user_limits(reader.png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_read_info(reader.png, reader.info);
    return true;
}

// Asks for rows of 8-bit samples: grey or colour, with alpha where the picture has transparency.
bool SetUpRows(PngReader& reader, int* passes) {
    if (setjmp(png_jmpbuf(reader.png)) != 0) {
        return false;
    }
    png_set_expand(reader.png);
    png_set_scale_16(reader.png);
    *passes = png_set_interlace_handling(reader.png);
    png_read_update_info(reader.png, reader.info);
    return true;
}

void RowToLuma(const uint8_t* row, uint32_t channels, uint32_t width, uint8_t* luma) {
    for (uint32_t x = 0; x < width; ++x, row += channels) {
        const uint8_t grey = channels < 3 ? row[0] : orvo_grey::Luma(row[0], row[1], row[2]);
        luma[x] = channels % 2 == 0 ? orvo_grey::OverBlack(grey, row[channels - 1]) : grey;
    }
}

// An interlaced picture is complete only after its last pass, so `rows` holds all of it; of any
// other it holds one row at a time.
bool ReadRows(PngReader& reader, int passes, uint8_t* rows, GreyPicture& picture) {
    if (setjmp(png_jmpbuf(reader.png)) != 0) {
        return false;
    }
    const size_t rowBytes = png_get_rowbytes(reader.png, reader.info);
    const uint32_t channels = png_get_channels(reader.png, reader.info);
    for (int pass = 1; pass <= passes; ++pass) {
        for (uint32_t y = 0; y < picture.height; ++y) {
            uint8_t* row = passes > 1 ? rows + y * rowBytes : rows;
            png_read_row(reader.png, row, nullptr);
            if (pass == passes) {
                RowToLuma(row, channels, picture.width,
                          picture.pixels.data() + size_t{y} * picture.width);
            }
        }
    }
    png_read_end(reader.png, nullptr);
    return true;
}

int Orientation(const PngReader& reader) {
    png_bytep exif = nullptr;
    png_uint_32 length = 0;
    const bool hasExif = png_get_eXIf_1(reader.png, reader.info, &length, &exif) != 0;
    return hasExif ? ExifOrientation({exif, length}) : kUpright;
}

} // namespace

bool IsPng(Bytes file) { return file.size() >= 8 && png_sig_cmp(file.data(), 0, 8) == 0; }

GreyPicture DecodePng(Bytes file) {
    CheckChunks(file);
    PngReader reader(file);
    if (!ReadHeader(reader)) {
        Fail(reader);
    }
    GreyPicture picture;
    picture.width = png_get_image_width(reader.png, reader.info);
    picture.height = png_get_image_height(reader.png, reader.info);
    CheckPictureSize(picture.width, picture.height);
    int passes = 1;
    if (!SetUpRows(reader, &passes)) {
        Fail(reader);
    }
    picture.pixels.resize(size_t{picture.width} * picture.height);
    std::vector<uint8_t> rows(png_get_rowbytes(reader.png, reader.info) *
                              (passes > 1 ? picture.height : 1));
    if (!ReadRows(reader, passes, rows.data(), picture)) {
        Fail(reader);
    }
    MakeUpright(Orientation(reader), picture);
    return picture;
}

std::vector<uint8_t> EncodePng(Bytes pixels, uint32_t width, uint32_t height, uint32_t channels) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    image.format = channels == 1 ? PNG_FORMAT_GRAY : PNG_FORMAT_RGB;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    std::vector<uint8_t> file(size);
    if (png_image_write_to_memory(&image, file.data(), &size, 0, pixels.data(), 0, nullptr) == 0) {
        throw Failure(std::string("the picture cannot be packed as PNG: ") + image.message);
    }
    file.resize(size);
    return file;
}

} // namespace kova_cli
