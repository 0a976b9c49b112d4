// SPDX-License-Identifier: MIT
//
// A row of a level needs two of the level before, each of those two of the one before that. Behind
// the row at `room` lie its upper and its lower row, each with all that it was made from; what the
// upper one was made from has served when the lower one is made over it.
//
//     | row | upper row | lower row | what the lower row is made from ... |
//       n     2 n         2 n
//
// That is 2^(level + 1) - 3 times n bytes, and n at level k is at most width / 2^k.
#include "find/picture_rows.h"

#include <cstddef>
#include <cstring>

namespace orvo::find {
namespace {

// The sum of two neighbours. Both are read at once, which compilers turn into vectors without taking the
// pixels apart; which of them comes first in the word does not matter.
int32_t SumOfPair(const uint8_t* pair) {
    uint16_t both = 0;
    std::memcpy(&both, pair, sizeof both);
    return (both & 255) + (both >> 8);
}

void HalveRows(const uint8_t* upper, const uint8_t* lower, int32_t count, uint8_t* row) {
    for (int32_t i = 0; i < count; ++i) {
        const int32_t sum = SumOfPair(upper + 2 * i) + SumOfPair(lower + 2 * i);
        row[i] = static_cast<uint8_t>((sum + 2) >> 2);
    }
}

} // namespace

const uint8_t* LevelRow(const OrvoFindPicture& picture, int32_t level, int32_t row, int32_t first,
                        int32_t count, uint8_t* room) {
    if (level == 0) {
        return picture.addr + static_cast<ptrdiff_t>(row) * picture.stride + first;
    }
    uint8_t* const behind = room + count;
    const uint8_t* const upper =
        LevelRow(picture, level - 1, 2 * row, 2 * first, 2 * count, behind);
    const uint8_t* const lower =
        LevelRow(picture, level - 1, 2 * row + 1, 2 * first, 2 * count, behind + 2 * count);
    HalveRows(upper, lower, count, room);
    return room;
}

} // namespace orvo::find
