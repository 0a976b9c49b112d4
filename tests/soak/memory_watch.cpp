// SPDX-License-Identifier: MIT
#include "soak/memory_watch.h"

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "soak/soak.h"

namespace orvo_soak {
namespace {

constexpr int64_t kLooks = 200;

// The kernel's exact count: the quick one in /proc/self/statm may be some pages behind.
int64_t ResidentBytes() {
    char text[4096] = {};
    const int file = open("/proc/self/smaps_rollup", O_RDONLY | O_CLOEXEC);
    Require(file >= 0, "resident memory cannot be read: /proc/self/smaps_rollup is missing");
    const ssize_t length = read(file, text, sizeof text - 1);
    close(file);
    const char* const at = length > 0 ? std::strstr(text, "\nRss:") : nullptr;
    Require(at != nullptr, "resident memory cannot be read: /proc/self/smaps_rollup has no Rss");
    return std::strtoll(at + std::strlen("\nRss:"), nullptr, 10) * 1024;
}

int64_t HeapBytes() {
#if defined(__GLIBC__)
    const struct mallinfo2 heap = mallinfo2();
    return static_cast<int64_t>(heap.uordblks + heap.hblkhd);
#else
    return 0;
#endif
}

} // namespace

MemoryWatch::MemoryWatch(int64_t rounds)
    : warmUp_(std::min<int64_t>(rounds / 10, 10000)),
      every_(std::max<int64_t>(rounds / kLooks, 1)) {
    (void)Now(); // what looking takes by itself
}

MemoryWatch::Memory MemoryWatch::Now() { return {ResidentBytes(), HeapBytes()}; }

void MemoryWatch::After(int64_t round) {
    if (round < warmUp_ || (round != warmUp_ && round % every_ != 0)) {
        return;
    }
    const Memory now = Now();
    if (looks_++ == 0) {
        first_ = now;
        least_ = now.resident;
    }
    least_ = std::min(least_, now.resident);
    Require(now.resident <= first_.resident,
            "resident memory grew from " + std::to_string(first_.resident) + " to " +
                std::to_string(now.resident) + " bytes by round " + std::to_string(round));
    Require(now.heap <= first_.heap, "the heap grew from " + std::to_string(first_.heap) + " to " +
                                         std::to_string(now.heap) + " bytes by round " +
                                         std::to_string(round));
}

std::string MemoryWatch::Text() const {
    return "resident memory " + std::to_string(first_.resident / 1024) + " KiB after " +
           std::to_string(warmUp_) + " rounds, never more in " + std::to_string(looks_) +
           " looks after that, at least " + std::to_string(least_ / 1024) + " KiB; heap " +
           std::to_string(first_.heap) + " bytes";
}

} // namespace orvo_soak
