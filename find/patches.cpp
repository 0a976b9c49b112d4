// SPDX-License-Identifier: MIT
#include "find/patches.h"

#include <cstddef>
#include <cstring>

#include "find/picture_rows.h"

namespace orvo::find {
namespace {

constexpr int32_t kPatch = 4; // rows and columns
constexpr uint8_t kGrey = 128;

// Every fourth pixel of a row goes into the same plane. `count` pixels of each.
void Deal(const uint8_t* row, int32_t count, size_t planeBytes, uint8_t* first) {
    uint8_t* const second = first + planeBytes;
    uint8_t* const third = second + planeBytes;
    uint8_t* const fourth = third + planeBytes;
    for (int32_t x = 0; x < count; ++x) {
        first[x] = row[kPatch * x];
        second[x] = row[kPatch * x + 1];
        third[x] = row[kPatch * x + 2];
        fourth[x] = row[kPatch * x + 3];
    }
}

} // namespace

uint32_t PatchRoomBytes(int32_t width) {
    return RowRoomBytes(width) + static_cast<uint32_t>(RoundUpSide(width));
}

void MakePatches(const OrvoFindPicture& picture, int32_t level, uint8_t* room, uint8_t* patches) {
    const Size real = AtLevel({picture.width, picture.height}, level);
    const Size padded = Padded(real);
    const int32_t planeWidth = padded.width / kPatch;
    const size_t planeBytes =
        static_cast<size_t>(planeWidth) * static_cast<size_t>(padded.height / kPatch);
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
        uint8_t* const planes = patches + static_cast<size_t>(y % kPatch * kPatch) * planeBytes +
                                static_cast<size_t>(y / kPatch) * static_cast<size_t>(planeWidth);
        Deal(whole, planeWidth, planeBytes, planes);
    }
}

} // namespace orvo::find
