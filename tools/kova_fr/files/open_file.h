// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <span>
#include <string>

namespace kova_cli {

// A file by its descriptor, to be written. The path is what Failures name.
class OpenFile {
  public:
    // A new file gets these permissions, less those that the process keeps back.
    OpenFile(const std::string& path, int flags, mode_t permissions = 0666);
    ~OpenFile() { Close(); }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    int descriptor() const { return descriptor_; } // below 0: errno says why
    // Some disks report that they are full only here.
    bool Close();

  private:
    int descriptor_;
};

// All of the bytes, where the descriptor stands or at a place. The Failure names `path`.
void WriteAll(int descriptor, std::span<const uint8_t> bytes, const std::string& path);
void WriteAllAt(int descriptor, uint64_t at, std::span<const uint8_t> bytes,
                const std::string& path);
// What was written outlasts a loss of power.
void Sync(int descriptor, const std::string& path);

[[noreturn]] void FailToWrite(const std::string& path, int error);

} // namespace kova_cli
