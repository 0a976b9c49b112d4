// SPDX-License-Identifier: MIT
#include "files/input_file.h"

#include <sys/stat.h>

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

// Pipes are welcome, so that pictures can come straight out of another program.
void CheckKindAndSize(std::FILE* file, uint64_t limit) {
    struct stat status = {};
    if (fstat(fileno(file), &status) != 0) {
        throw Failure(std::string("cannot be read: ") + std::strerror(errno));
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
        throw Failure(std::string("cannot be read: ") + std::strerror(errno));
    }
    return bytes;
}

} // namespace

std::vector<uint8_t> ReadWholeFile(const std::string& path, uint64_t limit) {
    const File file = OpenForReading(path);
    CheckKindAndSize(file.get(), limit);
    return ReadAll(file.get(), limit);
}

} // namespace kova_cli
