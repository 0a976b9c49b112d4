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

// One output row from three input rows; a missing one is null.
void DepthwiseRow(const int8_t* const rows[3], const DepthwisePlanes& p, const int8_t* weights,
                  int32_t bias, int8_t* dst) {
    for (size_t x = 0; x < p.width; ++x) {
        uint32_t sum = 0;
        for (size_t ky = 0; ky < 3; ++ky) {
            if (rows[ky] == nullptr) {
                continue;
            }
            const int8_t* w = weights + 3 * ky;
            const int8_t* at = rows[ky] + x;
            sum = x > 0 ? AddProduct(sum, at[-1], w[0]) : sum;
            sum = AddProduct(sum, at[0], w[1]);
            sum = x + 1 < p.width ? AddProduct(sum, at[1], w[2]) : sum;
        }
        dst[x] = std::max(RequantiseQ7(sum, bias, p.shift), p.lowest);
    }
}

}  // namespace

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
        const int8_t* src = p.src + c * plane;
        for (size_t y = 0; y < p.height; ++y) {
            const int8_t* row = src + y * p.width;
            const int8_t* const rows[3] = {y > 0 ? row - p.width : nullptr, row,
                                           y + 1 < p.height ? row + p.width : nullptr};
            DepthwiseRow(rows, p, p.weights + 9 * c, p.bias[c], p.dst + c * plane + y * p.width);
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

}  // namespace plain

const Routines kPlainRoutines{
    "plain",            plain::Multiply, plain::Depthwise, plain::Dot, plain::MaxPoolStride1,
    plain::MaxPoolRows, plain::SampleRow, plain::Rectify, plain::FlipSign, plain::Add};

}  // namespace orvo
