// SPDX-License-Identifier: MIT
//
// How planes are convolved depthwise where vectors are narrow. A strip of some columns goes down the
// plane, six output rows at a time: each of the eight input rows around them is loaded once, with
// its neighbours to the left and to the right, and is the top row of one output, the middle row of
// the one above and the bottom row of the one above that. Where rows or columns are left over, the
// last strip or the last six rows overlap those before.
//
// What a path does with a row is its own. A path's strip has
//
//     Strip(filter, width)          constants, for a plane of that width
//     kColumns                      outputs of one row
//     LoadedBefore<sides>()         how far to the left of the strip its rows are loaded
//     Row Load<sides>(from)
//     Sums                          of one row of outputs, to which
//     AddTop, AddMiddle, AddBottom  add an input row, in this order
//     Output(sums)                  the finished bytes
//     Store(to, output)
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace orvo {
namespace {

constexpr size_t kStripRows = 6;
// A row that is narrower than a strip is loaded with the start of the next one, which must hold it.
constexpr size_t kMinStripPlaneWidth = 4;

constexpr int8_t kZeroRow[32] = {};

// Which sides of the plane a strip touches. One that touches both is at least as wide as the plane.
enum class Sides { kNone, kLeft, kRight, kBoth };

// One plane as a strip sees it: its first column in the first row, and in the last row. A strip
// wider than the plane has a copy of the last row, since it must not load what lies after it.
struct StripPlane {
    const int8_t* src;
    const int8_t* last;
    int8_t* dst;
    size_t width, height;
};

template <Sides kSides, class Strip, class Filter>
inline void ConvolveStrip(const StripPlane& p, const Filter& filter) {
    const Strip strip(filter, p.width);
    const size_t width = p.width;
    const int8_t* at = kZeroRow;
    const int8_t* next = p.src - Strip::template LoadedBefore<kSides>();
    int8_t* dst = p.dst;
    for (size_t left = p.height; left > 0;) {
        if (left < kStripRows) {
            const size_t again = (kStripRows - left) * width;
            at -= again;
            next -= again;
            dst -= again;
            left = kStripRows;
        }
        left -= kStripRows;
        const bool atEnd = left == 0;
        const size_t lastRow = kStripRows + left; // of the plane, if loaded here at all
        typename Strip::Sums sums[kStripRows];
#pragma GCC unroll 8
        for (size_t i = 0; i < kStripRows + 2; ++i) {
            const typename Strip::Row row = strip.template Load<kSides>(at);
            at = next;
            next += width;
            if (kSides == Sides::kBoth && i + 1 == lastRow) {
                at = p.last;
            }
            if (i == kStripRows && atEnd) {
                at = kZeroRow;
            }
            if (i >= 2) {
                strip.AddBottom(row, sums[i - 2]);
                const auto output = strip.Output(sums[i - 2]);
                if (kSides == Sides::kBoth && i == kStripRows + 1 && atEnd) {
                    int8_t bytes[Strip::kColumns];
                    Strip::Store(bytes, output);
                    std::memcpy(dst, bytes, width);
                } else {
                    Strip::Store(dst, output);
                }
                dst += width;
            }
            if (i >= 1 && i <= kStripRows) {
                strip.AddMiddle(row, sums[i - 1]);
            }
            if (i < kStripRows) {
                strip.AddTop(row, sums[i]);
            }
        }
        next -= 2 * width;
        at = next - width;
    }
}

// A plane in strips of `Wide`'s columns, and where half of one will do, of `Narrow`'s.
template <class Wide, class Narrow, class Filter>
void ConvolvePlane(const StripPlane& p, const Filter& filter) {
    constexpr size_t kWide = Wide::kColumns;
    constexpr size_t kNarrow = Narrow::kColumns;
    StripPlane strip = p;
    if (p.width <= kWide) {
        int8_t last[kWide] = {};
        std::memcpy(last, p.src + (p.height - 1) * p.width, p.width);
        strip.last = last;
        return p.width <= kNarrow ? ConvolveStrip<Sides::kBoth, Narrow>(strip, filter)
                                  : ConvolveStrip<Sides::kBoth, Wide>(strip, filter);
    }
    ConvolveStrip<Sides::kLeft, Wide>(strip, filter);
    size_t column = kWide;
    for (; column + kWide < p.width; column += kWide) {
        strip.src = p.src + column;
        strip.dst = p.dst + column;
        ConvolveStrip<Sides::kNone, Wide>(strip, filter);
    }
    const bool narrow = p.width - column <= kNarrow;
    column = p.width - (narrow ? kNarrow : kWide);
    strip.src = p.src + column;
    strip.dst = p.dst + column;
    return narrow ? ConvolveStrip<Sides::kRight, Narrow>(strip, filter)
                  : ConvolveStrip<Sides::kRight, Wide>(strip, filter);
}

} // namespace
} // namespace orvo
