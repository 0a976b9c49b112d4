// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "support/random.h"

namespace orvo_test {

// Grey levels with structure at several scales; every seed gives another picture. What lies behind a
// row's end is anything.
inline std::vector<uint8_t> DrawFrame(uint32_t width, uint32_t height, uint32_t stride,
                                      uint64_t seed) {
    Random random(seed);
    const uint32_t cell = 24;
    std::vector<uint8_t> patch(16 * 16);
    random.Fill(patch.data(), patch.size());
    std::vector<uint8_t> bytes(uint64_t{stride} * height);
    random.Fill(bytes.data(), bytes.size());
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const uint32_t coarse = patch[(y / cell % 16) * 16 + x / cell % 16];
            bytes[uint64_t{y} * stride + x] =
                static_cast<uint8_t>((coarse * 3 + random.Byte()) / 4);
        }
    }
    return bytes;
}

} // namespace orvo_test
