// SPDX-License-Identifier: MIT
//
// The convolution of one plane by its definition, in strips of a row.
#include "compute_a/simd/plain/routines.h"

#include <algorithm>

#include "compute_a/simd/plain/lanes.h"

namespace orvo {
namespace {

// One row of a filter, added to the sums of columns `from` to `to`. A product has up to 23 bits.
void AddTaps(const int8_t* row, size_t width, const int16_t* taps, size_t from, size_t to,
             uint32_t* sums) {
    const auto add = [&](size_t x, size_t column, int16_t weight) {
        sums[x - from] += static_cast<uint32_t>(row[column] * weight);
    };
    for (size_t x = std::max<size_t>(from, 1); x < to; ++x) {
        add(x, x - 1, taps[0]);
    }
    for (size_t x = from; x < to; ++x) {
        add(x, x, taps[1]);
    }
    for (size_t x = from; x < std::min(to, width - 1); ++x) {
        add(x, x + 1, taps[2]);
    }
}

} // namespace

bool plain::ConvolvePlane(const PlaneConvolution& p) {
    for (size_t c = 0; c < p.channels; ++c) {
        int8_t* dst = p.dst + c * p.width * p.height;
        for (size_t y = 0; y < p.height; ++y, dst += p.width) {
            for (size_t x = 0; x < p.width; x += kStrip) {
                const size_t to = std::min(x + kStrip, p.width);
                uint32_t sums[kStrip] = {};
                for (size_t ky = 0; ky < 3; ++ky) {
                    const size_t iy = y + ky - 1; // above the first row it wraps to a huge value
                    if (iy < p.height) {
                        AddTaps(p.src + iy * p.width, p.width, p.filters[c][ky], x, to, sums);
                    }
                }
                Requantise(sums, to - x, p.bias[c], p.shift, INT8_MIN, dst + x);
            }
        }
    }
    return true;
}

} // namespace orvo
