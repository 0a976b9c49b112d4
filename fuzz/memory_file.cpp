// SPDX-License-Identifier: MIT
#include "memory_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include "require.h"

namespace orvo_fuzz {

MemoryFile::MemoryFile()
    : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)),
      path_("/proc/self/fd/" + std::to_string(descriptor_)) {
    Require(descriptor_ >= 0, "there are files in memory");
}

void MemoryFile::Write(std::span<const uint8_t> bytes) const {
    const bool isWritten =
        ftruncate(descriptor_, 0) == 0 &&
        pwrite(descriptor_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
    Require(isWritten, "the file in memory takes its bytes");
}

} // namespace orvo_fuzz
