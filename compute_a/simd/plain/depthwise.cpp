// SPDX-License-Identifier: MIT
//
// The depthwise convolution by its definition, in strips of a row.
#include "compute_a/simd/plain/routines.h"

#include <algorithm>

#include "compute_a/requantise.h"
#include "compute_a/simd/plain/lanes.h"

namespace orvo {
namespace {

// Three taps of one input row, added to the sums of an output row. The first and the last output
// have no left or right neighbour.
void AddTaps(const int8_t* row, const int8_t* w, size_t width, uint32_t* sums) {
    const int32_t left = w[0];
    const int32_t centre = w[1];
    const int32_t right = w[2];
    for (size_t x = 1; x + 1 < width; ++x) {
        sums[x] += static_cast<uint32_t>(row[x - 1] * left + row[x] * centre + row[x + 1] * right);
    }
    sums[0] = AddProduct(sums[0], row[0], w[1]);
    if (width > 1) {
        sums[0] = AddProduct(sums[0], row[1], w[2]);
        sums[width - 1] += static_cast<uint32_t>(row[width - 2] * left + row[width - 1] * centre);
    }
}

// Columns from..to of an output row. A strip's outer columns take their neighbours from outside it.
void DepthwiseRow(const int8_t* plane, const DepthwisePlanes& p, size_t y, size_t from, size_t to,
                  const int8_t* weights, int32_t bias, int8_t* dst) {
    uint32_t sums[kStrip] = {};
    for (size_t ky = 0; ky < 3; ++ky) {
        const size_t iy = y + ky - 1; // above the first row it wraps to a huge value
        if (iy >= p.height) {
            continue;
        }
        const int8_t* row = plane + iy * p.width;
        const int8_t* w = weights + 3 * ky;
        AddTaps(row + from, w, to - from, sums);
        if (from > 0) {
            sums[0] = AddProduct(sums[0], row[from - 1], w[0]);
        }
        if (to < p.width) {
            sums[to - from - 1] = AddProduct(sums[to - from - 1], row[to], w[2]);
        }
    }
    Requantise(sums, to - from, bias, p.shift, p.lowest, dst + from);
}

} // namespace

void plain::Depthwise(const DepthwisePlanes& p) {
    const size_t plane = p.width * p.height;
    for (size_t c = 0; c < p.channels; ++c) {
        for (size_t y = 0; y < p.height; ++y) {
            for (size_t x = 0; x < p.width; x += kStrip) {
                DepthwiseRow(p.src + c * plane, p, y, x, std::min(x + kStrip, p.width),
                             p.weights + 9 * c, p.bias[c], p.dst + c * plane + y * p.width);
            }
        }
    }
}

} // namespace orvo
