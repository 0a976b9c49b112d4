// SPDX-License-Identifier: MIT
//
// Rows of a picture that was halved, made from the picture itself: no level is ever kept.
#pragma once

#include <cstdint>

#include "orvo/orvo_find.h"

namespace orvo::find {

// Bytes at `room` for LevelRow() with any level and part of a picture of that width.
inline uint32_t RowRoomBytes(int32_t width) { return 2 * static_cast<uint32_t>(width); }

// Columns first to first + count of one row of a level. They lie in the picture itself (level 0) or
// at `room`, and stay there until the next call. Each is the mean of 2 x 2 of the level before,
// rounded half up. All must exist.
const uint8_t* LevelRow(const OrvoFindPicture& picture, int32_t level, int32_t row, int32_t first,
                        int32_t count, uint8_t* room);

} // namespace orvo::find
