// SPDX-License-Identifier: MIT
//
// Depthwise 3 x 3 convolution with stride 1, one picture at a time. Rows that are in use lie in
// single precision in the nearest caches, with a pixel of zeros at either end. A row is read with
// all its channels, so that memory is walked straight on.
#pragma once

#include <span>

#include "pointwise.h"

namespace engine {

constexpr int kStrip = 3;          // pixels of a row computed together; divides 6, 12, 24 and 48
constexpr int kEvenStrip = 4;      // the same for 4, 8 and 16
constexpr int kLongest = 14 * 256; // pixels with ends x channels: no layer's rows are longer

struct Row {
    alignas(64) float pixels[kLongest];
    int channels;

    float* At(int x) { return pixels + (x + 1) * channels; } // x from -1
    const float* At(int x) const { return pixels + (x + 1) * channels; }
    void Clear(const Tensor& t) {
        channels = t.channels;
        std::fill(pixels, pixels + (t.size + 2) * channels, 0.0f);
    }
};

// Weights [9][channels], their gradients the same.
struct DepthwiseGradient {
    float sums[9 * kMostChannels] = {};
};

// The rows in use.
struct RowScratch {
    Row stored[2], values[2], slopes[2], maxima[3], maximaSlopes[1], below[3];

    void Use(const Tensor& t) {
        for (const auto& rows :
             {std::span<Row>(stored), std::span<Row>(values), std::span<Row>(slopes),
              std::span<Row>(maxima), std::span<Row>(maximaSlopes), std::span<Row>(below)}) {
            for (Row& row : rows) {
                row.channels = t.channels;
            }
        }
    }
};

// Rows that have been cleared for the tensor.
inline void ReadRow(const Tensor& t, size_t pixel, Row* row) {
    const uint16_t* from = t.values + pixel * t.channels;
    float* to = row->At(0);
    const int channels = t.channels, length = t.size * channels;
    for (int at = 0; at < length; at += channels) {
        for (int c = 0; c < channels; c += kLanes) {
            Store(to + at + c, Reading(t, c).Value(Load(from + at + c)));
        }
    }
}

inline void ReadGradientRow(const Tensor& t, size_t pixel, Row* row) {
    const uint16_t* gradient = t.gradient + pixel * t.channels;
    const uint16_t* stored = t.values + pixel * t.channels;
    float* to = row->At(0);
    const int channels = t.channels, length = t.size * channels;
    for (int at = 0; at < length; at += channels) {
        for (int c = 0; c < channels; c += kLanes) {
            Store(to + at + c,
                  GradientReading(t, c).Value(Load(gradient + at + c), Load(stored + at + c)));
        }
    }
}

template <int strip>
inline void DepthwiseForward(const Tensor& source, const float* weights, const Finish& finish,
                             size_t picture, RowScratch* scratch, Tensor* out, Sums* sums) {
    Row* const rows = scratch->maxima;
    const int size = source.size;
    const size_t first = picture * source.Pixels();
    for (int i = 0; i < 3; ++i) {
        rows[i].Clear(source);
    }
    ReadRow(source, first, &rows[0]);
    for (int y = 0; y < size; ++y) {
        Row& next = rows[(y + 1) % 3];
        if (y + 1 < size) {
            ReadRow(source, first + static_cast<size_t>(y + 1) * size, &next);
        } else {
            next.Clear(source);
        }
        const Row* above[3] = {&rows[(y + 2) % 3], &rows[y % 3], &next};
        for (int c = 0; c < source.channels; c += kLanes) {
            V w[9], firstSum = Zero(), secondSum = Zero();
            for (int k = 0; k < 9; ++k) {
                w[k] = Load(weights + k * source.channels + c);
            }
            uint16_t* to =
                out->values + (first + static_cast<size_t>(y) * size) * out->channels + c;
            for (int x = 0; x < size; x += strip) {
                V sum[strip] = {};
                for (int ky = 0; ky < 3; ++ky) {
                    for (int i = -1; i <= strip; ++i) {
                        const V value = Load(above[ky]->At(x + i) + c);
                        for (int kx = 0; kx < 3; ++kx) {
                            const int at = i - kx + 1;
                            if (at >= 0 && at < strip) {
                                sum[at] = Fma(w[3 * ky + kx], value, sum[at]);
                            }
                        }
                    }
                }
                for (int i = 0; i < strip; ++i) {
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

template <int strip>
inline void DepthwiseBackward(const Tensor& source, const float* weights, const Tensor& out,
                              size_t picture, RowScratch* scratch, DepthwiseGradient* gradient,
                              Sums* sums) {
    Row* const rows = scratch->below;
    Row& values = scratch->values[0];
    scratch->Use(source);
    const int size = source.size;
    const size_t first = picture * source.Pixels();
    for (int i = 0; i < 3; ++i) {
        rows[i].Clear(source);
    }
    ReadGradientRow(out, first, &rows[0]);
    for (int y = 0; y < size; ++y) {
        const size_t pixel = first + static_cast<size_t>(y) * size;
        Row& next = rows[(y + 1) % 3];
        if (y + 1 < size) {
            ReadGradientRow(out, pixel + size, &next);
        } else {
            next.Clear(source);
        }
        ReadRow(source, pixel, &values);
        // The row below met the filter's first row here, the one above its last.
        const Row* below[3] = {&next, &rows[y % 3], &rows[(y + 2) % 3]};
        for (int c = 0; c < source.channels; c += kLanes) {
            V w[9], dw[9];
            for (int k = 0; k < 9; ++k) {
                w[k] = Load(weights + k * source.channels + c);
                dw[k] = Load(gradient->sums + k * source.channels + c);
            }
            GradientWriter writer(source, c);
            for (int x = 0; x < size; x += strip) {
                V sum[strip] = {}, value[strip];
                for (int i = 0; i < strip; ++i) {
                    value[i] = Load(values.At(x + i) + c);
                }
                for (int ky = 0; ky < 3; ++ky) {
                    for (int i = -1; i <= strip; ++i) {
                        const V slope = Load(below[ky]->At(x + i) + c);
                        for (int kx = 0; kx < 3; ++kx) {
                            const int at = i + kx - 1;
                            if (at >= 0 && at < strip) {
                                sum[at] = Fma(w[3 * ky + kx], slope, sum[at]);
                                dw[3 * ky + kx] = Fma(value[at], slope, dw[3 * ky + kx]);
                            }
                        }
                    }
                }
                for (int i = 0; i < strip; ++i) {
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
