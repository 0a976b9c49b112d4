// SPDX-License-Identifier: MIT
#include "files/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "files/failure.h"

namespace kova_cli {
namespace {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

[[noreturn]] void FailTooBig(uint64_t limit) {
    throw Failure("the file is larger than " + std::to_string(limit >> 20) +
                  " MiB; use a smaller one");
}

File OpenForReading(const std::string& path) {
    File file(std::fopen(path.c_str(), "rbe"));
    if (file == nullptr) {
        throw Failure(std::string("cannot be opened: ") + std::strerror(errno) +
                      "; check its name and permissions");
    }
    return file;
}

[[noreturn]] void FailToRead(int error) {
    throw Failure(std::string("cannot be read: ") + std::strerror(error));
}

// Pipes are welcome, so that pictures can come straight out of another program.
struct stat CheckKindAndSize(std::FILE* file, uint64_t limit) {
    struct stat status = {};
    if (fstat(fileno(file), &status) != 0) {
        FailToRead(errno);
    }
    if (S_ISDIR(status.st_mode)) {
        throw Failure("is a folder; name a file");
    }
    if (!S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode)) {
        throw Failure("is neither a file nor a pipe; name a file");
    }
    if (S_ISREG(status.st_mode) && static_cast<uint64_t>(status.st_size) > limit) {
        FailTooBig(limit);
    }
    return status;
}

std::vector<uint8_t> ReadAll(std::FILE* file, uint64_t limit) {
    std::vector<uint8_t> bytes;
    uint8_t chunk[65536];
    while (const size_t count = std::fread(chunk, 1, sizeof chunk, file)) {
        bytes.insert(bytes.end(), chunk, chunk + count);
        if (bytes.size() > limit) {
            FailTooBig(limit);
        }
    }
    if (std::ferror(file) != 0) {
        FailToRead(errno);
    }
    return bytes;
}

} // namespace

std::vector<uint8_t> ReadWholeFile(const std::string& path, uint64_t limit) {
    const File file = OpenForReading(path);
    CheckKindAndSize(file.get(), limit);
    return ReadAll(file.get(), limit);
}

InputFile::InputFile(const std::string& path, uint64_t limit) {
    File file = OpenForReading(path);
    const struct stat status = CheckKindAndSize(file.get(), limit);
    if (S_ISREG(status.st_mode)) {
        size_ = static_cast<uint64_t>(status.st_size);
        // Most files are read from the start to the end.
        static_cast<void>(posix_fadvise(fileno(file.get()), 0, 0, POSIX_FADV_SEQUENTIAL));
        file_ = file.release();
    } else {
        piped_ = ReadAll(file.get(), limit);
        size_ = piped_.size();
    }
}

InputFile::~InputFile() {
    if (file_ != nullptr) {
        std::fclose(file_);
    }
}

uint64_t InputFile::SizeNow() const {
    struct stat status = {};
    if (file_ != nullptr && fstat(fileno(file_), &status) != 0) {
        FailToRead(errno);
    }
    return file_ != nullptr ? static_cast<uint64_t>(status.st_size) : size_;
}

void InputFile::Read(uint64_t at, void* to, size_t count) const {
    auto* bytes = static_cast<uint8_t*>(to);
    if (file_ == nullptr) {
        std::copy_n(piped_.begin() + static_cast<ptrdiff_t>(at), count, bytes);
        return;
    }
    while (count > 0) {
        const ssize_t done = pread(fileno(file_), bytes, count, static_cast<off_t>(at));
        if (done < 0 && errno != EINTR) {
            FailToRead(errno);
        }
        if (done == 0) {
            throw Failure("has become shorter while it was read; try again when it is whole");
        }
        const size_t got = done > 0 ? static_cast<size_t>(done) : 0;
        bytes += got;
        at += got;
        count -= got;
    }
}

} // namespace kova_cli
