// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace orvo_bench {

// Keeps the other engines from instructions that a machine without better paths than this one would
// lack. To be called before either is asked for anything.
void HoldPeersTo(std::string_view path);

} // namespace orvo_bench
