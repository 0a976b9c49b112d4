// SPDX-License-Identifier: MIT
//
// How planes are convolved depthwise where vectors are wide beside the planes, once for the
// instruction sets that have no better way.
//
// A band of rows is widened to 16 bits, with a zero between the end of a row and the start of the
// next, which is the border of both:
//
//     values   0 | row y-1 ... | 0 | row y ... | 0 | row y+1 ... | 0 | ... | row y+rows ... | 0
//                '--- pitch ---'
//     results    | row y ...   | - | row y+1 . | - | ...
//
// In this band a filter is the same everywhere, so that a vector of outputs after the other is made
// from one end to the other, whatever the width: planes of 6 x 6 fill the vectors as well as planes
// of 96 x 96. The results between the rows mean nothing; they are left out where the rows go to the
// output. Planes wider than a strip are taken strip by strip, whose rows have a border, or a
// neighbour in its place, on both sides.
//
// What differs from one instruction set to another is a class with
//
//     kWidened                         values that are widened at a time
//     Widen(from, to)                  does so: signed bytes to 16 bits
//     Copy(from, to)                   as many bytes
//     kOutputs                         outputs made at a time
//     Filter(weights, bias, planes)    constants of a channel
//     Convolve(values, pitch, filter, results)
//                                      makes them from three rows, `pitch` values apart
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "compute_a/routines.h"

namespace orvo {
namespace {

constexpr size_t kStripOutputs = 128; // of an output row, if it is wider

// Columns of a plane, whose outputs are made together.
struct Strip {
    const int8_t* src; // the first output's column in row 0
    const int8_t* srcEnd;
    int8_t* dst;
    int8_t* dstEnd;
    size_t width, height; // of the plane
    size_t outputs;
    bool hasLeft, hasRight; // neighbours

    // Each row has a border on both sides; rows with nothing but zeros there share them.
    size_t pitch() const { return outputs + (hasLeft || hasRight ? 2 : 1); }
};

template <typename Lanes>
struct Band {
    static constexpr size_t kValues = 1536;
    static constexpr size_t kReach = 2 * Lanes::kOutputs; // of the last outputs' vectors, beyond
    alignas(32) int16_t values[kValues + kReach];
    alignas(32) int8_t results[kValues + kReach];
};

// So many values in whole vectors.
template <typename Lanes>
constexpr size_t WholeVectors(size_t count) {
    return (count + Lanes::kWidened - 1) / Lanes::kWidened * Lanes::kWidened;
}

// A row whose vectors may be read beyond its end.
template <typename Lanes>
struct RowOfBytes {
    int8_t bytes[WholeVectors<Lanes>(kStripOutputs + 2)];
};

// `count` values and a zero. More may be written behind it; what comes there is written later.
template <typename Lanes>
inline void WidenRow(const int8_t* from, size_t count, int16_t* to) {
    for (size_t x = 0; x < count; x += Lanes::kWidened) {
        Lanes::Widen(from + x, to + x);
    }
    to[count] = 0;
}

// The same for a row after which there are not enough values for a whole vector.
template <typename Lanes>
void WidenLastRow(const int8_t* from, size_t count, int16_t* to) {
    RowOfBytes<Lanes> row;
    std::memcpy(row.bytes, from, count);
    WidenRow<Lanes>(row.bytes, count, to);
}

// The rows that `rows` output rows from `y` on need, the one above them first. The zero before a row is the one
// behind the row above it, and before the first row the one of the zeros above the plane.
template <typename Lanes>
void WidenBand(const Strip& strip, size_t y, size_t rows, Band<Lanes>& band) {
    static constexpr RowOfBytes<Lanes> kZeros = {};
    const size_t pitch = strip.pitch();
    const size_t left = strip.hasLeft ? 1 : 0;
    const size_t count = left + strip.outputs + (strip.hasRight ? 1 : 0);
    const size_t rounded = WholeVectors<Lanes>(count);
    int16_t* to = band.values;
    for (size_t row = y - 1; row != y + rows + 1; ++row, to += pitch) {
        if (row >= strip.height) { // the row above the first has wrapped
            WidenRow<Lanes>(kZeros.bytes, pitch, to);
            continue;
        }
        const int8_t* from = strip.src + row * strip.width - left;
        if (static_cast<size_t>(strip.srcEnd - from) >= rounded) {
            WidenRow<Lanes>(from, count, to + 1 - left);
        } else {
            WidenLastRow<Lanes>(from, count, to + 1 - left);
        }
    }
}

// Rows are stored in whole vectors where what they overwrite is stored later.
template <typename Lanes>
void StoreBand(const Strip& strip, size_t y, size_t rows, const Band<Lanes>& band) {
    const bool isWhole = !strip.hasLeft && !strip.hasRight;
    const size_t pitch = strip.pitch();
    const size_t rounded = WholeVectors<Lanes>(strip.outputs);
    const int8_t* from = band.results;
    int8_t* to = strip.dst + y * strip.width;
    for (size_t row = 0; row < rows; ++row, from += pitch, to += strip.width) {
        if (isWhole && static_cast<size_t>(strip.dstEnd - to) >= rounded) {
            for (size_t x = 0; x < rounded; x += Lanes::kWidened) {
                Lanes::Copy(from + x, to + x);
            }
        } else {
            std::memcpy(to, from, strip.outputs);
        }
    }
}

template <typename Lanes>
void ConvolveBand(Band<Lanes>& band, size_t count, size_t pitch,
                  const typename Lanes::Filter& filter) {
    for (size_t i = 0; i < count; i += Lanes::kOutputs) {
        Lanes::Convolve(band.values + i, pitch, filter, band.results + i);
    }
}

template <typename Lanes>
void ConvolveStrip(const Strip& strip, const typename Lanes::Filter& filter) {
    Band<Lanes> band;
    const size_t pitch = strip.pitch();
    const size_t most = Band<Lanes>::kValues / pitch - 2; // output rows at a time
    for (size_t y = 0; y < strip.height;) {
        const size_t left = strip.height - y;
        const size_t rows = left < most ? left : most;
        WidenBand<Lanes>(strip, y, rows, band);
        ConvolveBand<Lanes>(band, rows * pitch, pitch, filter);
        StoreBand<Lanes>(strip, y, rows, band);
        y += rows;
    }
}

template <typename Lanes>
void ConvolveInBands(const DepthwisePlanes& p, size_t channel) {
    const size_t plane = p.width * p.height;
    const int8_t* const src = p.src + channel * plane;
    int8_t* const dst = p.dst + channel * plane;
    const typename Lanes::Filter filter(p.weights + 9 * channel, p.bias[channel], p);
    for (size_t x = 0; x < p.width; x += kStripOutputs) {
        const size_t left = p.width - x;
        const size_t outputs = left < kStripOutputs ? left : kStripOutputs;
        ConvolveStrip<Lanes>(
            {src + x, p.src + p.channels * plane, dst + x, p.dst + p.channels * plane, p.width,
             p.height, outputs, x > 0, left > outputs},
            filter);
    }
}

} // namespace
} // namespace orvo
