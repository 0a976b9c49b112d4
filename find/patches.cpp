// SPDX-License-Identifier: MIT
#include "find/patches.h"

#include <cstddef>
#include <cstring>

#include "find/picture_rows.h"

namespace orvo::find {

void DealRow(const uint8_t* row, int32_t y, Size plane, uint8_t* patches) {
    const size_t planeBytes = static_cast<size_t>(plane.width) * static_cast<size_t>(plane.height);
    uint8_t* const first = patches + static_cast<size_t>(y % kPatch * kPatch) * planeBytes +
                           static_cast<size_t>(y / kPatch) * static_cast<size_t>(plane.width);
    uint8_t* const second = first + planeBytes;
    uint8_t* const third = second + planeBytes;
    uint8_t* const fourth = third + planeBytes;
    for (int32_t x = 0; x < plane.width; ++x) {
        first[x] = row[kPatch * x];
        second[x] = row[kPatch * x + 1];
        third[x] = row[kPatch * x + 2];
        fourth[x] = row[kPatch * x + 3];
    }
}

uint32_t PatchRoomBytes(int32_t width) {
    return RowRoomBytes(width) + static_cast<uint32_t>(RoundUpSide(width));
}

void MakePatches(const OrvoFindPicture& picture, int32_t level, uint8_t* room, uint8_t* patches) {
    const Size real = AtLevel({picture.width, picture.height}, level);
    const Size padded = Padded(real);
    const Size plane = {padded.width / kPatch, padded.height / kPatch};
    uint8_t* const whole = room; // a row as wide as the planes
    uint8_t* const rowRoom = room + padded.width;
    std::memset(whole, kGrey, static_cast<size_t>(padded.width));
    for (int32_t y = 0; y < padded.height; ++y) {
        if (y < real.height) {
            const uint8_t* row = LevelRow(picture, level, y, 0, real.width, rowRoom);
            std::memcpy(whole, row, static_cast<size_t>(real.width));
        } else if (y == real.height) {
            std::memset(whole, kGrey, static_cast<size_t>(padded.width));
        }
        DealRow(whole, y, plane, patches);
    }
}

} // namespace orvo::find
