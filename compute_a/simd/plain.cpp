// SPDX-License-Identifier: MIT
#include "compute_a/simd/plain.h"

#include <algorithm>

#include "compute_a/requantise.h"
#include "compute_a/simd/planes_of_rows.h"

namespace orvo {
namespace plain {
namespace {

constexpr size_t kGroup = 4;
constexpr size_t kStrip = 128; // pixels or columns whose sums are kept at a time

// sums += four rows, each times its weight. Four products stay far below 32 bits.
void AddRows(const int8_t* row, size_t pitch, const int8_t* weights, size_t weightStep,
             size_t count, uint32_t* sums) {
    const int32_t w0 = weights[0];
    const int32_t w1 = weights[weightStep];
    const int32_t w2 = weights[2 * weightStep];
    const int32_t w3 = weights[3 * weightStep];
    for (size_t i = 0; i < count; ++i) {
        sums[i] += static_cast<uint32_t>(row[i] * w0 + row[pitch + i] * w1 +
                                         row[2 * pitch + i] * w2 + row[3 * pitch + i] * w3);
    }
}

void AddRow(const int8_t* row, int8_t weight, size_t count, uint32_t* sums) {
    for (size_t i = 0; i < count; ++i) {
        sums[i] = AddProduct(sums[i], row[i], weight);
    }
}

void Requantise(const uint32_t* sums, size_t count, int32_t bias, uint32_t shift, int8_t lowest,
                int8_t* dst) {
    for (size_t i = 0; i < count; ++i) {
        dst[i] = std::max(RequantiseQ7(sums[i], bias, shift), lowest);
    }
}

// One output channel, whose weights stand `weightStep` bytes apart.
void MultiplyChannel(const MatrixProduct& p, const int8_t* weights, size_t weightStep, int32_t bias,
                     int8_t* dst) {
    for (size_t pixel = 0; pixel < p.pixels; pixel += kStrip) {
        const size_t count = std::min(kStrip, p.pixels - pixel);
        uint32_t sums[kStrip] = {};
        size_t k = 0;
        for (; k + 4 <= p.inner; k += 4) {
            AddRows(p.rows + k * p.rowPitch + pixel, p.rowPitch, weights + k * weightStep,
                    weightStep, count, sums);
        }
        for (; k < p.inner; ++k) {
            AddRow(p.rows + k * p.rowPitch + pixel, weights[k * weightStep], count, sums);
        }
        Requantise(sums, count, bias, p.shift, INT8_MIN, dst + pixel);
    }
}

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

void Multiply(const MatrixProduct& p) {
    const size_t grouped = p.channels / kGroup * kGroup;
    for (size_t channel = 0; channel < p.channels; ++channel) {
        // The weights of a group stand interleaved; a leftover channel has a group's space to
        // itself.
        const bool isGrouped = channel < grouped;
        const size_t group = isGrouped ? channel / kGroup : grouped / kGroup + channel - grouped;
        const int8_t* weights =
            p.weights + group * p.groupBytes + (isGrouped ? channel % kGroup : 0);
        MultiplyChannel(p, weights, isGrouped ? kGroup : 1, p.bias[channel],
                        p.dst + channel * p.planePitch);
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
    const int32_t factor1 = 1 << s.in1;
    const int32_t factor2 = 1 << s.in2;
    const uint32_t shift = s.out;
    // Two loops, since compilers vectorise neither with the question in it.
    if (in2 == nullptr) {
        for (size_t i = 0; i < count; ++i) {
            dst[i] = SaturateQ7((in1[i] * factor1 + half) >> shift);
        }
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        dst[i] = SaturateQ7((in1[i] * factor1 + in2[i] * factor2 + half) >> shift);
    }
}

} // namespace plain

const Routines kPlainRoutines{"plain",
                              plain::Multiply,
                              plain::Depthwise,
                              plain::Dot,
                              MaxPoolStride1ByPlanes<plain::MaxPoolStride1>,
                              MaxPoolStride2ByRows<plain::MaxPoolRows>,
                              SampleByRows<plain::SampleRow>,
                              plain::Rectify,
                              plain::FlipSign,
                              plain::Add};

} // namespace orvo
