// SPDX-License-Identifier: MIT
#include "files/open_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "files/failure.h"

namespace kova_cli {
namespace {

// `write` takes what is left and how much was written already.
template <typename Write>
void WriteAllBy(const Write& write, std::span<const uint8_t> bytes, const std::string& path) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = write(bytes.subspan(done), done);
        if (count < 0 && errno != EINTR) {
            FailToWrite(path, errno);
        }
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
}

} // namespace

OpenFile::OpenFile(const std::string& path, int flags, mode_t permissions)
    : descriptor_(open(path.c_str(), flags, permissions)) {}

bool OpenFile::Close() {
    const int closing = descriptor_;
    descriptor_ = -1;
    return closing < 0 || close(closing) == 0;
}

void WriteAll(int descriptor, std::span<const uint8_t> bytes, const std::string& path) {
    const auto next = [descriptor](std::span<const uint8_t> rest, size_t) {
        return write(descriptor, rest.data(), rest.size());
    };
    WriteAllBy(next, bytes, path);
}

void WriteAllAt(int descriptor, uint64_t at, std::span<const uint8_t> bytes,
                const std::string& path) {
    const auto next = [descriptor, at](std::span<const uint8_t> rest, size_t done) {
        return pwrite(descriptor, rest.data(), rest.size(), static_cast<off_t>(at + done));
    };
    WriteAllBy(next, bytes, path);
}

void Sync(int descriptor, const std::string& path) {
    if (fsync(descriptor) != 0) {
        FailToWrite(path, errno);
    }
}

void FailToWrite(const std::string& path, int error) {
    throw Failure(path + ": cannot be written: " + std::strerror(error) +
                  "; choose another place or make room");
}

} // namespace kova_cli
