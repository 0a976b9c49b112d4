// SPDX-License-Identifier: MIT
#include "picture_io.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "failure.h"

namespace kova_cli {
namespace {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

[[noreturn]] void FailTooBig() {
    throw Failure("the file is larger than " + std::to_string(kMaxFileBytes >> 20) +
                  " MiB; save the picture smaller");
}

File OpenForReading(const std::string& path) {
    File file(std::fopen(path.c_str(), "rbe"));
    if (file == nullptr) {
        throw Failure(std::string("cannot be opened: ") + std::strerror(errno) +
                      "; check its name and permissions");
    }
    return file;
}

// Pipes are welcome, so that pictures can come straight out of another program.
void CheckKindAndSize(std::FILE* file) {
    struct stat status = {};
    if (fstat(fileno(file), &status) != 0) {
        throw Failure(std::string("cannot be read: ") + std::strerror(errno));
    }
    if (S_ISDIR(status.st_mode)) {
        throw Failure("is a folder; name a picture file");
    }
    if (!S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode)) {
        throw Failure("is neither a file nor a pipe; name a picture file");
    }
    if (S_ISREG(status.st_mode) && static_cast<uint64_t>(status.st_size) > kMaxFileBytes) {
        FailTooBig();
    }
}

std::vector<uint8_t> ReadAll(std::FILE* file) {
    std::vector<uint8_t> bytes;
    uint8_t chunk[65536];
    while (const size_t count = std::fread(chunk, 1, sizeof chunk, file)) {
        bytes.insert(bytes.end(), chunk, chunk + count);
        if (bytes.size() > kMaxFileBytes) {
            FailTooBig();
        }
    }
    if (std::ferror(file) != 0) {
        throw Failure(std::string("cannot be read: ") + std::strerror(errno));
    }
    return bytes;
}

std::vector<uint8_t> ReadPictureFile(const std::string& path) {
    const File file = OpenForReading(path);
    CheckKindAndSize(file.get());
    return ReadAll(file.get());
}

GreyPicture Decode(Bytes file) {
    if (file.empty()) {
        throw Failure("the file is empty; name a picture file");
    }
    if (IsPng(file)) {
        return DecodePng(file);
    }
    if (IsJpeg(file)) {
        return DecodeJpeg(file);
    }
    if (IsPnm(file)) {
        return DecodePnm(file);
    }
    throw Failure("is not a picture of a known kind; save it as PNG, JPEG or PGM");
}

} // namespace

GreyPicture LoadPicture(const std::string& path) {
    try {
        return Decode(ReadPictureFile(path));
    } catch (const Failure& failure) {
        throw Failure(path + ": " + failure.what());
    }
}

void CheckPictureSize(uint64_t width, uint64_t height) {
    if (width == 0 || height == 0) {
        FailDamaged("it has no pixels");
    }
    if (width > kMaxPixels || height > kMaxPixels / width) {
        throw Failure("the picture is too large (" + std::to_string(width) + " x " +
                      std::to_string(height) + "); scale it down to " +
                      std::to_string(kMaxPixels / 1'000'000) + " megapixels at most");
    }
}

void FailDamaged(const std::string& detail) {
    throw Failure("the picture is damaged or cut short (" + detail +
                  "); copy it again or save it anew");
}

} // namespace kova_cli
