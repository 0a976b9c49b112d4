// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdint>

namespace orvo_bench {

// Neither engine has a layer that scales a vector to unit length.
inline void Normalise128(const int8_t* values, float* feature) {
    int32_t squares = 1;
    for (int i = 0; i < 128; ++i) {
        squares += values[i] * values[i];
    }
    const float factor = 1.0f / std::sqrt(static_cast<float>(squares));
    for (int i = 0; i < 128; ++i) {
        feature[i] = static_cast<float>(values[i]) * factor;
    }
}

} // namespace orvo_bench
