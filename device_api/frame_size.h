// SPDX-License-Identifier: MIT
//
// The least that the device API takes for a frame. Programs that cut frames out of pictures ask for
// the same.
#pragma once

#include <cstdint>

namespace orvo {

inline constexpr uint32_t kMinFrameWidth = 16;
inline constexpr uint32_t kMinFrameHeight = 12;

} // namespace orvo
