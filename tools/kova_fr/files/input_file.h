// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace kova_cli {

// All of a file or pipe, if it is not larger than `limit`. The Failure does not name the file.
std::vector<uint8_t> ReadWholeFile(const std::string& path, uint64_t limit);

// A file that is read piece by piece, at any place; a pipe, which cannot be, is read whole first.
// Pieces are copied: were the file mapped, one that somebody cuts short meanwhile would end the
// program by a signal, and what was checked could be changed before it is used. No Failure names
// the file.
class InputFile {
  public:
    InputFile(const std::string& path, uint64_t limit);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    uint64_t size() const { return size_; } // when it was opened
    uint64_t SizeNow() const;
    void Read(uint64_t at, void* to, size_t count) const;

  private:
    std::FILE* file_ = nullptr; // none: a pipe
    std::vector<uint8_t> piped_;
    uint64_t size_ = 0;
};

} // namespace kova_cli
