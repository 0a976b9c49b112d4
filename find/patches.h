// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "find/levels.h"
#include "orvo/orvo_find.h"

namespace orvo::find {

inline constexpr int32_t kPatch = 4; // rows and columns, and from one patch to the next
inline constexpr int32_t kWidePatch = 8;
inline constexpr uint8_t kGrey = 128; // beyond pictures; the networks know it as 0
inline constexpr int32_t kPatchMargin = (kWidePatch - kPatch) / 2;

// Deals row `y` of a picture out to patches, of whose planes that is the size: plane 4 * r + c gets the
// pixels (4 * x + c) of the rows (4 * y + r).
void DealRow(const uint8_t* row, int32_t y, Size plane, uint8_t* patches);

// Bytes at `room` for MakePatches() on any level of a picture of that width.
uint32_t PatchRoomBytes(int32_t width);

// What the network starts from: 16 planes of a quarter of the sides of a level of a picture, rounded
// up to whole strides. Plane 4 * r + c has the pixels (4 * y + r, 4 * x + c). Behind the level's
// last column and row there is grey level 128, which the networks know as 0.
void MakePatches(const OrvoFindPicture& picture, int32_t level, uint8_t* room, uint8_t* patches);

} // namespace orvo::find
