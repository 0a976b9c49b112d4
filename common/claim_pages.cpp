// SPDX-License-Identifier: MIT
#include "common/claim_pages.h"

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#endif

namespace orvo {

#if defined(__linux__)
void ClaimPages(void* data, size_t size) {
    constexpr int kPopulateWrite = 23; // the kernel's; older C libraries do not name it
    const auto pageSize = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto begin = reinterpret_cast<uintptr_t>(data);
    const uintptr_t firstPage = begin & ~(pageSize - 1);
    const int earlier = errno;
    // Where that is refused, nothing is lost but time.
    static_cast<void>(
        madvise(reinterpret_cast<void*>(firstPage), begin + size - firstPage, kPopulateWrite));
    errno = earlier;
}
#else
void ClaimPages(void*, size_t) {}
#endif

} // namespace orvo
