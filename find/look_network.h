// SPDX-License-Identifier: MIT
//
// The networks that look at a found face once more: 33 layers on 64 x 64 pixels.
#pragma once

#include <cstdint>

#include "find/network.h"

namespace orvo::find {

inline constexpr int32_t kLookSide = 64;
inline constexpr Size kLookSize = {kLookSide, kLookSide};

// For every 8 x 8 pixels how likely each point is there, and how far it is: planes of 8 x 8. And the
// rest, the same values as the network that finds faces has for a cell.
inline constexpr int32_t kHeatStride = 8;
inline constexpr int32_t kHeatSide = kLookSide / kHeatStride;
struct LookAnswers {
    const int8_t* heat; // kAnswerPlanes planes
    const int8_t* rest; // kAnswerPlanes values
};

// The memory of one run.
uint32_t LookOutputBytes();
uint32_t LookScratchBytes();

// Which of the networks, by the number of its first layer.
enum class LookNetwork : int32_t { kWide = 27, kClose = 60 };

// Runs it on a look's patches, which lie at memory.outputs. The answers lie among the outputs.
LookAnswers RunLookNetwork(LookNetwork network, const NetworkMemory& memory);

} // namespace orvo::find
