// SPDX-License-Identifier: MIT
//
// Depthwise 3 x 3 convolution with stride 1, 32 channels of one picture at a time. Rows that are in
// use lie in single precision in the first-level cache, with a pixel of zeros at either end.
#pragma once

#include "pointwise.h"

namespace engine {

constexpr int kStrip = 3;   // pixels of a row computed together; divides 6, 12, 24 and 48
constexpr int kBlock = 32;  // channels
constexpr int kWidest = 98; // a row of 96 pixels with its ends

struct Row {
    alignas(64) float pixels[kWidest * kBlock];

    float* At(int x) { return pixels + (x + 1) * kBlock; } // x from -1
    const float* At(int x) const { return pixels + (x + 1) * kBlock; }
    void Clear(int size) { std::fill(pixels, pixels + (size + 2) * kBlock, 0.0f); }
    void ClearEnds(int size) {
        std::fill(At(-1), At(0), 0.0f);
        std::fill(At(size), At(size + 1), 0.0f);
    }
};

// Weights [9][channels], their gradients the same.
struct DepthwiseGradient {
    float sums[9 * kMostChannels] = {};
};

inline void ReadRow(const Tensor& t, size_t pixel, int channel, Row* row) {
    const uint16_t* from = t.values + pixel * t.channels + channel;
    for (int v = 0; v < kBlock; v += kLanes) {
        const Reading reading(t, channel + v);
        for (int x = 0; x < t.size; ++x) {
            Store(row->At(x) + v, reading.Value(Load(from + x * t.channels + v)));
        }
    }
}

inline void ReadGradientRow(const Tensor& t, size_t pixel, int channel, Row* row) {
    const size_t at = pixel * t.channels + channel;
    for (int v = 0; v < kBlock; v += kLanes) {
        const GradientReading reading(t, channel + v);
        for (int x = 0; x < t.size; ++x) {
            const size_t i = at + static_cast<size_t>(x) * t.channels + v;
            Store(row->At(x) + v, reading.Value(Load(t.gradient + i), Load(t.values + i)));
        }
    }
}

inline void DepthwiseForward(const Tensor& source, const float* weights, const Finish& finish,
                             size_t picture, int channel, Tensor* out, Sums* sums) {
    static thread_local Row rows[3];
    const int size = source.size;
    const size_t first = picture * source.Pixels();
    for (Row& row : rows) {
        row.Clear(size);
    }
    ReadRow(source, first, channel, &rows[0]);
    for (int y = 0; y < size; ++y) {
        Row& next = rows[(y + 1) % 3];
        if (y + 1 < size) {
            ReadRow(source, first + static_cast<size_t>(y + 1) * size, channel, &next);
        } else {
            next.Clear(size);
        }
        const Row* above[3] = {&rows[(y + 2) % 3], &rows[y % 3], &next};
        for (int v = 0; v < kBlock; v += kLanes) {
            const int c = channel + v;
            V w[9], firstSum = Zero(), secondSum = Zero();
            for (int k = 0; k < 9; ++k) {
                w[k] = Load(weights + k * source.channels + c);
            }
            uint16_t* to =
                out->values + (first + static_cast<size_t>(y) * size) * out->channels + c;
            for (int x = 0; x < size; x += kStrip) {
                V sum[kStrip] = {};
                for (int ky = 0; ky < 3; ++ky) {
                    for (int i = -1; i <= kStrip; ++i) {
                        const V value = Load(above[ky]->At(x + i) + v);
                        for (int kx = 0; kx < 3; ++kx) {
                            const int at = i - kx + 1;
                            if (at >= 0 && at < kStrip) {
                                sum[at] = Fma(w[3 * ky + kx], value, sum[at]);
                            }
                        }
                    }
                }
                for (int i = 0; i < kStrip; ++i) {
                    const V value = finish.Apply(sum[i], c);
                    firstSum += value;
                    secondSum = Fma(value, value, secondSum);
                    Store(to + (x + i) * out->channels, value);
                }
            }
            sums->Add(c, firstSum, secondSum);
        }
    }
}

inline void DepthwiseBackward(const Tensor& source, const float* weights, const Tensor& out,
                              size_t picture, int channel, DepthwiseGradient* gradient,
                              Sums* sums) {
    static thread_local Row rows[3], values;
    const int size = source.size;
    const size_t first = picture * source.Pixels();
    for (Row& row : rows) {
        row.Clear(size);
    }
    ReadGradientRow(out, first, channel, &rows[0]);
    for (int y = 0; y < size; ++y) {
        const size_t pixel = first + static_cast<size_t>(y) * size;
        Row& next = rows[(y + 1) % 3];
        if (y + 1 < size) {
            ReadGradientRow(out, pixel + size, channel, &next);
        } else {
            next.Clear(size);
        }
        ReadRow(source, pixel, channel, &values);
        // The row below met the filter's first row here, the one above its last.
        const Row* below[3] = {&next, &rows[y % 3], &rows[(y + 2) % 3]};
        for (int v = 0; v < kBlock; v += kLanes) {
            const int c = channel + v;
            V w[9], dw[9];
            for (int k = 0; k < 9; ++k) {
                w[k] = Load(weights + k * source.channels + c);
                dw[k] = Load(gradient->sums + k * source.channels + c);
            }
            GradientWriter writer(source, c);
            for (int x = 0; x < size; x += kStrip) {
                V sum[kStrip] = {}, value[kStrip];
                for (int i = 0; i < kStrip; ++i) {
                    value[i] = Load(values.At(x + i) + v);
                }
                for (int ky = 0; ky < 3; ++ky) {
                    for (int i = -1; i <= kStrip; ++i) {
                        const V slope = Load(below[ky]->At(x + i) + v);
                        for (int kx = 0; kx < 3; ++kx) {
                            const int at = i + kx - 1;
                            if (at >= 0 && at < kStrip) {
                                sum[at] = Fma(w[3 * ky + kx], slope, sum[at]);
                                dw[3 * ky + kx] = Fma(value[at], slope, dw[3 * ky + kx]);
                            }
                        }
                    }
                }
                for (int i = 0; i < kStrip; ++i) {
                    writer.Put((pixel + x + i) * source.channels + c, sum[i]);
                }
            }
            for (int k = 0; k < 9; ++k) {
                Store(gradient->sums + k * source.channels + c, dw[k]);
            }
            sums->Add(c, writer.first, writer.second);
        }
    }
}

} // namespace engine
