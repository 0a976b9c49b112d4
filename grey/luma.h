// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace orvo_grey {

// With the weights of BT.601, in integers.
inline uint8_t Luma(uint32_t red, uint32_t green, uint32_t blue) {
    return static_cast<uint8_t>((77 * red + 150 * green + 29 * blue + 128) >> 8);
}

// A level with that much of it there, of 255, over black.
inline uint8_t OverBlack(uint32_t level, uint32_t alpha) {
    return static_cast<uint8_t>((level * alpha + 127) / 255);
}

} // namespace orvo_grey
