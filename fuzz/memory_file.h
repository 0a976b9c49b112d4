// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace orvo_fuzz {

// A file in memory, for readers that take a path. One serves all runs.
class MemoryFile {
  public:
    MemoryFile();

    // All that is in it from now on.
    void Write(std::span<const uint8_t> bytes) const;
    const std::string& path() const { return path_; }

  private:
    int descriptor_;
    std::string path_;
};

} // namespace orvo_fuzz
