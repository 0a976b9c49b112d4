// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "platform/host/platform.h"

namespace kova_host {

// The live block that holds all of [phy, phy + size), or null.
const Block* FindBlockAround(const Platform& platform, uint64_t phy, uint64_t size);

// Frees every block, with what is still mapped of it.
void FreeAllBlocks(Platform& platform);

} // namespace kova_host
