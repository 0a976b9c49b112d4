// SPDX-License-Identifier: MIT
//
// What every convolution does with a finished sum, and the wrapping sums themselves.
#pragma once

#include <algorithm>
#include <cstdint>

namespace orvo {

// Sums wrap at 32 bits, so they are kept unsigned; the product of two bytes is exact.
inline uint32_t AddProduct(uint32_t sum, int8_t a, int8_t b) {
    return sum + static_cast<uint32_t>(a * b);
}

inline int8_t SaturateQ7(int32_t value) {
    return static_cast<int8_t>(std::clamp<int32_t>(value, INT8_MIN, INT8_MAX));
}

// Adds the bias unshifted, shifts right arithmetically (towards minus infinity, no rounding term;
// a count of 32 and more leaves the sign) and saturates.
inline int8_t RequantiseQ7(uint32_t sum, int32_t bias, uint32_t shift) {
    const int32_t biased = static_cast<int32_t>(sum + static_cast<uint32_t>(bias));
    return SaturateQ7(biased >> std::min<uint32_t>(shift, 31));
}

} // namespace orvo
