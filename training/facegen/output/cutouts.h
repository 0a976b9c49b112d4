// SPDX-License-Identifier: MIT
#pragma once

#include "output/shards.h"

namespace facegen {

constexpr int kCutoutSize = 192; // pixels along a side
constexpr float kCutoutBox = 80; // the face's box
constexpr float kCutoutLeft = 56, kCutoutTop = 50;

// Renders a job's people without backgrounds, from all sides, into shards: tones, covers, labels and
// landmarks (see README.md). Shards that are there already are skipped.
void RenderCutouts(const Studio& studio, const Job& job);

} // namespace facegen
