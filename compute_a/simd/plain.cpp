// SPDX-License-Identifier: MIT
#include "compute_a/simd/plain.h"

#include <algorithm>

#include "compute_a/requantise.h"

namespace orvo {
namespace plain {
namespace {

constexpr size_t kGroup = 4;
constexpr size_t kBlock = 16;

// `Channels` planes at `Pixels` pixels. Rows are read where they lie; the sums of a tile fit the
// vector registers of every target.
template <size_t Channels, size_t Pixels>
void Tile(const MatrixProduct& p, const int8_t* weights, const int32_t* bias, size_t pixel,
          int8_t* dst) {
    uint32_t sums[Channels][Pixels] = {};
    const int8_t* row = p.rows + pixel;
    for (size_t k = 0; k < p.inner; ++k, row += p.rowPitch) {
        for (size_t c = 0; c < Channels; ++c) {
            for (size_t i = 0; i < Pixels; ++i) {
                sums[c][i] = AddProduct(sums[c][i], weights[Channels * k + c], row[i]);
            }
        }
    }
    for (size_t c = 0; c < Channels; ++c) {
        for (size_t i = 0; i < Pixels; ++i) {
            dst[c * p.planePitch + pixel + i] = RequantiseQ7(sums[c][i], bias[c], p.shift);
        }
    }
}

template <size_t Channels>
void MultiplyGroup(const MatrixProduct& p, const int8_t* weights, size_t channel) {
    int8_t* dst = p.dst + channel * p.planePitch;
    size_t pixel = 0;
    for (; pixel + kBlock <= p.pixels; pixel += kBlock) {
        Tile<Channels, kBlock>(p, weights, p.bias + channel, pixel, dst);
    }
    for (; pixel < p.pixels; ++pixel) {
        Tile<Channels, 1>(p, weights, p.bias + channel, pixel, dst);
    }
}

// Three taps of one input row, added to the sums of an output row. The first and the last output
// have no left or right neighbour.
void AddTaps(const int8_t* row, const int8_t* w, size_t width, uint32_t* sums) {
    for (size_t x = 0; x < width; ++x) {
        sums[x] = AddProduct(sums[x], row[x], w[1]);
    }
    for (size_t x = 1; x < width; ++x) {
        sums[x] = AddProduct(sums[x], row[x - 1], w[0]);
    }
    for (size_t x = 0; x + 1 < width; ++x) {
        sums[x] = AddProduct(sums[x], row[x + 1], w[2]);
    }
}

constexpr size_t kStrip = 128; // columns whose sums are kept at a time

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
    for (size_t x = from; x < to; ++x) {
        dst[x] = std::max(RequantiseQ7(sums[x - from], bias, p.shift), p.lowest);
    }
}

} // namespace

void Multiply(const MatrixProduct& p) {
    const int8_t* weights = p.weights;
    size_t channel = 0;
    for (; channel + kGroup <= p.channels; channel += kGroup, weights += p.groupBytes) {
        MultiplyGroup<kGroup>(p, weights, channel);
    }
    for (; channel < p.channels; ++channel, weights += p.groupBytes) {
        MultiplyGroup<1>(p, weights, channel);
    }
}

void Depthwise(const DepthwisePlanes& p) {
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

int32_t Dot(const int8_t* a, const int8_t* b, size_t count) {
    uint32_t sum = 0;
    for (size_t i = 0; i < count; ++i) {
        sum = AddProduct(sum, a[i], b[i]);
    }
    return static_cast<int32_t>(sum);
}

void MaxPoolStride1(int8_t* src, size_t width, size_t height, int8_t* dst) {
    const size_t columns = width - 1;
    for (size_t y = 0; y < height; ++y) {
        int8_t* row = src + y * width;
        for (size_t x = 0; x < columns; ++x) {
            row[x] = std::max(row[x], row[x + 1]);
        }
    }
    for (size_t y = 0; y + 1 < height; ++y) {
        const int8_t* row = src + y * width;
        for (size_t x = 0; x < columns; ++x) {
            *dst++ = std::max(row[x], row[x + width]);
        }
    }
}

void MaxPoolRows(const int8_t* upper, const int8_t* lower, size_t dstWidth, int8_t* dst) {
    for (size_t x = 0; x < dstWidth; ++x) {
        dst[x] = std::max(std::max(upper[2 * x], upper[2 * x + 1]),
                          std::max(lower[2 * x], lower[2 * x + 1]));
    }
}

void SampleRow(const int8_t* src, size_t dstWidth, int8_t* dst) {
    for (size_t x = 0; x < dstWidth; ++x) {
        dst[x] = src[2 * x];
    }
}

void Rectify(const int8_t* src, int8_t* dst, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        dst[i] = std::max<int8_t>(src[i], 0);
    }
}

void FlipSign(uint8_t* data, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        data[i] ^= 0x80u;
    }
}

void Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count, const AddShifts& s) {
    const int32_t half = s.out == 0 ? 0 : 1 << (s.out - 1);
    for (size_t i = 0; i < count; ++i) {
        const int32_t shortcut = in2 == nullptr ? 0 : in2[i] * (1 << s.in2);
        dst[i] = SaturateQ7((in1[i] * (1 << s.in1) + shortcut + half) >> s.out);
    }
}

} // namespace plain

const Routines kPlainRoutines{"plain",          plain::Multiply,       plain::Depthwise,
                              plain::Dot,       plain::MaxPoolStride1, plain::MaxPoolRows,
                              plain::SampleRow, plain::Rectify,        plain::FlipSign,
                              plain::Add};

} // namespace orvo
