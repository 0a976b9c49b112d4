// SPDX-License-Identifier: MIT
//
// The first page, by libtiff's own way to colours of 8 bits, which knows palettes, CMYK, YCbCr,
// 16 bits, tiles and planes. It multiplies colours by their alpha.
#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include "files/failure.h"
#include "grey/luma.h"
#include "pictures/kinds.h"
#include "pictures/orientation.h"

namespace kova_cli {
namespace {

struct Memory {
    Bytes file;
    uint64_t at = 0;
};

Memory& Of(thandle_t handle) { return *static_cast<Memory*>(handle); }

tmsize_t Read(thandle_t handle, void* to, tmsize_t count) {
    Memory& memory = Of(handle);
    const uint64_t left = memory.at < memory.file.size() ? memory.file.size() - memory.at : 0;
    const auto got = static_cast<size_t>(std::min<uint64_t>(left, static_cast<uint64_t>(count)));
    std::copy_n(memory.file.begin() + static_cast<ptrdiff_t>(memory.at), got,
                static_cast<uint8_t*>(to));
    memory.at += got;
    return static_cast<tmsize_t>(got);
}

tmsize_t Write(thandle_t, void*, tmsize_t) { return 0; }

toff_t Seek(thandle_t handle, toff_t to, int from) {
    Memory& memory = Of(handle);
    memory.at = from == SEEK_SET ? to : from == SEEK_CUR ? memory.at + to : memory.file.size() + to;
    return memory.at;
}

int Close(thandle_t) { return 0; }
toff_t Size(thandle_t handle) { return Of(handle).file.size(); }

// The first error of a picture; libtiff would print it.
thread_local std::string t_error;

void TakeError(const char*, const char* format, std::va_list values) {
    if (t_error.empty()) {
        char text[200];
        std::vsnprintf(text, sizeof text, format, values);
        t_error = text;
    }
}

struct Closer {
    void operator()(TIFF* file) const { TIFFClose(file); }
};

using File = std::unique_ptr<TIFF, Closer>;

[[noreturn]] void FailTiff() { FailDamaged(t_error.empty() ? "it cannot be read" : t_error); }

File Open(Memory& memory) {
    // 'm': not mapped, so that every read is checked here.
    File file(TIFFClientOpen("the picture", "rm", &memory, Read, Write, Seek, Close, Size, nullptr,
                             nullptr));
    if (file == nullptr) {
        FailTiff();
    }
    return file;
}

void ReadRaster(TIFF* file, GreyPicture& picture, std::vector<uint32_t>& raster) {
    TIFFRGBAImage image;
    char message[1024] = "";
    if (TIFFRGBAImageOK(file, message) == 0) {
        throw Failure(std::string("the TIFF is of an unusual kind (") + message +
                      "); save it as PNG or JPEG");
    }
    if (TIFFRGBAImageBegin(&image, file, 1, message) == 0) {
        FailDamaged(message);
    }
    image.req_orientation = image.orientation; // as it lies; it is turned with all other kinds
    const bool isWhole =
        TIFFRGBAImageGet(&image, raster.data(), picture.width, picture.height) != 0;
    TIFFRGBAImageEnd(&image);
    if (!isWhole) {
        FailTiff();
    }
}

} // namespace

GreyPicture DecodeTiff(Bytes bytes) {
    TIFFSetErrorHandler(TakeError);
    TIFFSetWarningHandler(nullptr);
    t_error.clear();
    Memory memory{bytes};
    const File file = Open(memory);
    uint32_t width = 0;
    uint32_t height = 0;
    TIFFGetField(file.get(), TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(file.get(), TIFFTAG_IMAGELENGTH, &height);
    GreyPicture picture = EmptyPicture(width, height);
    std::vector<uint32_t> raster(picture.pixels.size());
    ReadRaster(file.get(), picture, raster);
    std::ranges::transform(raster, picture.pixels.begin(), [](uint32_t pixel) {
        return orvo_grey::Luma(TIFFGetR(pixel), TIFFGetG(pixel), TIFFGetB(pixel));
    });
    uint16_t orientation = kUpright;
    TIFFGetFieldDefaulted(file.get(), TIFFTAG_ORIENTATION, &orientation);
    MakeUpright(orientation >= 1 && orientation <= 8 ? orientation : kUpright, picture);
    return picture;
}

} // namespace kova_cli
