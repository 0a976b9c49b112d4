// SPDX-License-Identifier: MIT
//
// How planes are convolved depthwise where vectors are narrow. A strip of some columns goes down the
// plane: each input row is loaded once, with its neighbours to the left and to the right, and is the
// bottom row of the output above it, which is finished then, the middle row of its own output and
// the top row of the one below. Where columns are left over, the last strip overlaps the one before.
//
// What a path does with a row is its own. A path's strip has
//
//     Strip(filter, width)          constants, for a plane of that width
//     kColumns                      outputs of one row
//     LoadedBefore<sides>()         how far to the left of the strip its rows are loaded
//     Row Load<sides>(from)
//     Sums                          of one row of outputs, begun by
//     Start(sums)                   without the row above, or by
//     StartWithTop(row, sums)
//     AddMiddle, AddBottom          add an input row, in this order
//     Output(sums)                  the finished bytes
//     Store(to, output)
//
// or kColumns and, where it walks by itself, Walk<sides>(plane, filter).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace orvo {
namespace {

// A row that is narrower than a strip is loaded with the start of the next one, which must hold it,
// and stored so.
constexpr size_t kMinStripPlaneWidth = 4;
constexpr size_t kMinStripPlaneHeight = 2;

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
inline void WalkStrip(const StripPlane& p, const Filter& filter) {
    using Sums = typename Strip::Sums;
    const Strip strip(filter, p.width);
    const size_t width = p.width;
    const int8_t* at = p.src - Strip::template LoadedBefore<kSides>();
    int8_t* dst = p.dst;
    Sums a, b;
    {
        const typename Strip::Row row = strip.template Load<kSides>(at);
        strip.Start(a);
        strip.AddMiddle(row, a);
        strip.StartWithTop(row, b);
    }
    // A row, which finishes the output above it. Its place is the next one's.
    const auto goOn = [&](Sums& above, Sums& here) {
        const typename Strip::Row row = strip.template Load<kSides>(at);
        strip.AddBottom(row, above);
        Strip::Store(dst, strip.Output(above));
        dst += width;
        strip.AddMiddle(row, here);
        strip.StartWithTop(row, above);
    };
    const size_t rows = p.height - (kSides == Sides::kBoth ? 2 : 1);
    for (size_t pairs = rows / 2; pairs > 0; --pairs) {
        at += width;
        goOn(a, b);
        at += width;
        goOn(b, a);
    }
    if (rows % 2 != 0) {
        at += width;
        goOn(a, b);
        std::swap(a, b);
    }
    if constexpr (kSides == Sides::kBoth) {
        at = p.last;
        goOn(a, b);
        int8_t bytes[Strip::kColumns];
        Strip::Store(bytes, strip.Output(b));
        std::memcpy(dst, bytes, width);
    } else {
        Strip::Store(dst, strip.Output(a));
    }
}

template <Sides kSides, class Strip, class Filter>
inline void ConvolveStrip(const StripPlane& p, const Filter& filter) {
    if constexpr (requires { Strip::template Walk<kSides>(p, filter); }) {
        Strip::template Walk<kSides>(p, filter);
    } else {
        WalkStrip<kSides, Strip>(p, filter);
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
