// SPDX-License-Identifier: MIT
#include "platform/host/media_pool.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kova_host {
namespace {

// No process has an address with this bit set: 64-bit processors give a process 47 or 48 bits of
// address unless it asks for more.
constexpr uint64_t kPhysicalMark = uint64_t{1} << 48;

constexpr uint64_t kLargestPool = sizeof(void*) >= 8 ? uint64_t{1} << 30 : uint64_t{1} << 27;
constexpr uint64_t kSmallestPool = uint64_t{1} << 24;
constexpr uint64_t kFourGiB = uint64_t{1} << 32;
constexpr uint64_t kStep = uint64_t{1} << 28; // between the places that are tried

void* ReserveAddresses(void* where, size_t size) {
    void* const at =
        mmap(where, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return at == MAP_FAILED ? nullptr : at;
}

// Reserves `size` bytes that lie wholly below 4 GiB, for good. The first places asked for are the
// same in every run, so that physical addresses usually are as well. @return 0 if there are none
uint64_t ReserveBelowFourGiB(size_t size) {
    for (uint64_t wanted = kStep; wanted + size <= kFourGiB; wanted += kStep) {
        void* const at =
            ReserveAddresses(reinterpret_cast<void*>(static_cast<uintptr_t>(wanted)), size);
        if (at == nullptr) {
            continue;
        }
        const uint64_t got = reinterpret_cast<uintptr_t>(at);
        if (got + size <= kFourGiB) {
            return got;
        }
        munmap(at, size);
    }
    return 0;
}

bool IsLimited() {
    rlimit limit{};
    return getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
}

// The same without reserving them. What is asked for is only granted where nothing lies; where the
// limit refuses, nothing lies there either.
uint64_t FindFreeBelowFourGiB(size_t size) {
    for (uint64_t wanted = kStep; wanted + size <= kFourGiB; wanted += kStep) {
        void* const where = reinterpret_cast<void*>(static_cast<uintptr_t>(wanted));
        void* const at =
            mmap(where, size, PROT_NONE,
                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE, -1, 0);
        if (at == MAP_FAILED && errno == ENOMEM) {
            return wanted;
        }
        if (at != MAP_FAILED) {
            munmap(at, size);
        }
        if (at == where) {
            return wanted;
        }
    }
    return 0;
}

} // namespace

MediaPool OpenMediaPool() noexcept {
    MediaPool pool;
    pool.page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    pool.file = memfd_create("media memory", MFD_CLOEXEC);
    if (pool.file < 0) {
        return pool;
    }
    // Under a limit (ulimit -v) a reservation would take the addresses that the memory itself
    // needs.
    const auto take = IsLimited() ? FindFreeBelowFourGiB : ReserveBelowFourGiB;
    // Where the address space is crowded a smaller pool still serves.
    for (uint64_t size = kLargestPool; size >= kSmallestPool; size /= 2) {
        const uint64_t low = take(static_cast<size_t>(size));
        if (low != 0) {
            pool.base = kPhysicalMark | low;
            pool.size = ftruncate(pool.file, static_cast<off_t>(size)) == 0 ? size : 0;
            return pool;
        }
    }
    return pool;
}

Window OpenWindow(const MediaPool& pool, uint64_t offset, uint64_t size) noexcept {
    const uint64_t first = offset / pool.page * pool.page;
    const uint64_t end = (offset + size + pool.page - 1) / pool.page * pool.page;
    const size_t shown = static_cast<size_t>(end - first);
    Window window;
    window.reservedSize = shown + 2 * static_cast<size_t>(pool.page);
    window.reservation = ReserveAddresses(nullptr, window.reservedSize);
    if (window.reservation == nullptr) {
        return window;
    }
    uint8_t* const start = static_cast<uint8_t*>(window.reservation) + pool.page;
    if (mmap(start, shown, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, pool.file,
             static_cast<off_t>(first)) == MAP_FAILED) {
        CloseWindow(window);
        return window;
    }
    window.data = start + (offset - first);
    return window;
}

void CloseWindow(Window& window) noexcept {
    if (window.reservation != nullptr) {
        munmap(window.reservation, window.reservedSize);
    }
    window = Window{};
}

void DiscardPages(const MediaPool& pool, uint64_t offset, uint64_t size) noexcept {
    if (fallocate(pool.file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(offset),
                  static_cast<off_t>(size)) == 0) {
        return;
    }
    Window window = OpenWindow(pool, offset, size);
    if (window.data != nullptr) {
        std::memset(window.data, 0, static_cast<size_t>(size));
    }
    CloseWindow(window);
}

} // namespace kova_host
