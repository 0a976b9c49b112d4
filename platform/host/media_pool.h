// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace kova_host {

// The bytes behind all media memory: a sparse anonymous file, which any number of virtual addresses
// can show at once. An offset in the file plus `base` is a physical address.
struct MediaPool {
    int file = -1;
    uint64_t base = 0;
    uint64_t size = 0; // 0 if the pool could not be set up
    uint64_t page = 0;
};

// A piece of the pool as the process sees it, with a page without access on either side.
struct Window {
    void* reservation = nullptr;
    size_t reservedSize = 0;
    uint8_t* data = nullptr; // null if the window could not be opened
};

MediaPool OpenMediaPool() noexcept;

// Shows `size` bytes at `offset`, neither of which need be a multiple of the page size.
Window OpenWindow(const MediaPool& pool, uint64_t offset, uint64_t size) noexcept;
void CloseWindow(Window& window) noexcept;

// Gives the pages back; they read as zero afterwards. Both arguments are multiples of the page
// size.
void DiscardPages(const MediaPool& pool, uint64_t offset, uint64_t size) noexcept;

} // namespace kova_host
