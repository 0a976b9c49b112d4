// SPDX-License-Identifier: MIT
//
// The network that looks at a found face once more: 22 layers on 64 x 64 pixels.
#pragma once

#include <cstdint>

#include "find/network.h"

namespace orvo::find {

inline constexpr int32_t kLookSide = 64;
inline constexpr Size kLookSize = {kLookSide, kLookSide};

// Runs the network on a look's patches, which lie at memory.outputs: NetworkOutputBytes(kLookSize)
// and NetworkScratchBytes(kLookSize) bytes. What it answers, kAnswerPlanes values, lies among the
// outputs.
const int8_t* RunLookNetwork(const NetworkMemory& memory);

} // namespace orvo::find
