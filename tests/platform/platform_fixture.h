// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "orvo/kova_mpi.h"
#include "orvo/kova_mpi_host.h"

namespace platform_test {

struct Memory {
    uint64_t phy = 0;
    void* vir = nullptr;

    uint8_t* bytes() const { return static_cast<uint8_t*>(vir); }
};

inline Memory Allocate(uint32_t size, const char* name = "TEST") {
    Memory memory;
    if (KOVA_MPI_SYS_MmzAlloc(&memory.phy, &memory.vir, name, nullptr, size) != 0) {
        return {};
    }
    return memory;
}

inline kova_mpi_host_usage Usage() {
    kova_mpi_host_usage usage;
    kova_mpi_host_get_usage(&usage);
    return usage;
}

// The pointer that software gets which takes the low half of a physical address for one.
inline void* LowHalf(uint64_t phy) {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(static_cast<uint32_t>(phy)));
}

inline kova_video_frame Frame(uint64_t phy, uint32_t width, uint32_t height, uint32_t stride) {
    kova_video_frame frame{};
    frame.width = width;
    frame.height = height;
    frame.stride[0] = stride;
    frame.pixel_format = KOVA_PIXEL_FORMAT_SINGLE_8BIT;
    frame.phy_addr[0] = phy;
    return frame;
}

// A picture in plain memory, row after row.
struct Picture {
    uint32_t width;
    uint32_t height;
    std::vector<uint8_t> pixels;

    uint8_t at(uint32_t x, uint32_t y) const { return pixels[uint64_t{y} * width + x]; }
};

inline Picture Draw(uint32_t width, uint32_t height,
                    const std::function<uint8_t(uint32_t, uint32_t)>& pixel) {
    Picture picture{width, height, {}};
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            picture.pixels.push_back(pixel(x, y));
        }
    }
    return picture;
}

inline void Store(const Picture& picture, uint8_t* to, uint32_t stride) {
    for (uint32_t y = 0; y < picture.height; ++y) {
        std::memcpy(to + uint64_t{y} * stride, &picture.pixels[uint64_t{y} * picture.width],
                    picture.width);
    }
}

inline Picture Load(const uint8_t* from, uint32_t width, uint32_t height, uint32_t stride) {
    return Draw(width, height,
                [=](uint32_t x, uint32_t y) { return from[uint64_t{y} * stride + x]; });
}

} // namespace platform_test
