// SPDX-License-Identifier: MIT
//
// The part of a picture around a face that is turned upright: a square, wherever it lies.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "find/levels.h"
#include "find/picture_rows.h"
#include "orvo/orvo_find.h"

namespace orvo::find {

// A square of a level's pixels: its first column and row, and how many of them. It may lie beyond the
// level's ends.
struct Square {
    int32_t left, top, size;
};

// What a line of `size` pixels has of a span: at least the pixel that is next to it.
struct PartOfLine {
    int32_t first, count, before; // pixels of the span before the first
    PartOfLine(int32_t start, int32_t length, int32_t size)
        : first(std::clamp(start, 0, size - 1)),
          count(std::clamp(start + length, first + 1, size) - first),
          before(std::clamp(first - start, 0, length - count)) {}
};

// Copies a square of a level to rows that are `pitch` values apart. Beyond the ends of the level these
// are repeated. `room` is LevelRow()'s.
template <typename Value>
void MakeSurroundings(const OrvoFindPicture& picture, int32_t level, const Square& square,
                      uint8_t* room, Value* out, size_t pitch) {
    const Size real = AtLevel({picture.width, picture.height}, level);
    const PartOfLine columns(square.left, square.size, real.width);
    const PartOfLine rows(square.top, square.size, real.height);
    const auto rowAt = [&](int32_t y) { return out + static_cast<size_t>(y) * pitch; };
    for (int32_t y = 0; y < rows.count; ++y) {
        const uint8_t* const pixels =
            LevelRow(picture, level, rows.first + y, columns.first, columns.count, room);
        Value* const row = rowAt(rows.before + y);
        Value* const behind = std::copy(pixels, pixels + columns.count, row + columns.before);
        std::fill(row, row + columns.before, static_cast<Value>(pixels[0]));
        std::fill(behind, row + square.size, static_cast<Value>(pixels[columns.count - 1]));
    }
    const auto repeat = [&](int32_t from, int32_t y, int32_t end) {
        for (; y < end; ++y) {
            std::memcpy(rowAt(y), rowAt(from), static_cast<size_t>(square.size) * sizeof *out);
        }
    };
    repeat(rows.before, 0, rows.before);
    repeat(rows.before + rows.count - 1, rows.before + rows.count, square.size);
}

} // namespace orvo::find
