// SPDX-License-Identifier: MIT
//
// The network that finds faces: 27 layers on planes of any size whose sides are whole strides.
#pragma once

#include <cstdint>

#include "find/levels.h"

namespace orvo::find {

// Planes that the network answers with, each as large as the picture divided by the stride.
inline constexpr int32_t kAnswerPlanes = 16;

struct Answers {
    const int8_t* stride8;
    const int8_t* stride16;
};

// The memory of one run: the layers' outputs, and the kernels' scratch. The patches that the
// network starts from lie at the beginning of the outputs.
struct NetworkMemory {
    int8_t* outputs;
    int8_t* scratch;
};
uint32_t NetworkOutputBytes(Size padded);
uint32_t NetworkScratchBytes(Size padded);

// Runs the network on the patches (patches.h) of a picture of that size, which lie at
// memory.outputs. The answers lie among the outputs.
Answers RunNetwork(Size padded, const NetworkMemory& memory);

} // namespace orvo::find
