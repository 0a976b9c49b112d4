// SPDX-License-Identifier: MIT
//
// 2 x 2 maximum with stride 1 and a depthwise 3 x 3 convolution with stride 2 behind it, 32
// channels of one picture at a time. The source's rows come from a provider, because the first
// layer's are cheaper computed again than kept: `Provide(y, stored)` fills a row of stored values,
// and `Accept(y, stored, gradient)` takes the gradient of the row's values in front of the clamp.
#pragma once

#include "depthwise.h"

namespace engine {

// The row's values, from stored ones.
inline void ApplyReading(const Tensor& t, int channel, const Row& stored, Row* values) {
    for (int v = 0; v < kBlock; v += kLanes) {
        const Reading reading(t, channel + v);
        for (int x = 0; x < t.size; ++x) {
            Store(values->At(x) + v, reading.Value(Load(stored.At(x) + v)));
        }
    }
}

inline void PoolRows(const Row& upper, const Row& lower, int size, Row* pooled) {
    for (int v = 0; v < kBlock; v += kLanes) {
        V left = _mm512_max_ps(Load(upper.At(0) + v), Load(lower.At(0) + v));
        for (int x = 0; x + 1 < size; ++x) {
            const V right = _mm512_max_ps(Load(upper.At(x + 1) + v), Load(lower.At(x + 1) + v));
            Store(pooled->At(x) + v, _mm512_max_ps(left, right));
            left = right;
        }
    }
}

// Passes the gradient of each maximum to the first of the four that equals it.
inline void UnpoolRows(const Row& upper, const Row& lower, const Row& pooled, const Row& gradient,
                       int size, Row* upperGradient, Row* lowerGradient) {
    for (int v = 0; v < kBlock; v += kLanes) {
        for (int x = 0; x + 1 < size; ++x) {
            const V most = Load(pooled.At(x) + v);
            const V slope = Load(gradient.At(x) + v);
            const __mmask16 a = _mm512_cmp_ps_mask(Load(upper.At(x) + v), most, _CMP_EQ_OQ);
            const __mmask16 b = _mm512_mask_cmp_ps_mask(
                static_cast<__mmask16>(~a), Load(upper.At(x + 1) + v), most, _CMP_EQ_OQ);
            const auto rest = static_cast<__mmask16>(~(a | b));
            const __mmask16 c =
                _mm512_mask_cmp_ps_mask(rest, Load(lower.At(x) + v), most, _CMP_EQ_OQ);
            const auto d = static_cast<__mmask16>(rest & ~c);
            const auto give = [&](float* to, __mmask16 mask) {
                const V before = Load(to);
                Store(to, _mm512_mask_add_ps(before, mask, before, slope));
            };
            give(upperGradient->At(x) + v, a);
            give(upperGradient->At(x + 1) + v, b);
            give(lowerGradient->At(x) + v, c);
            give(lowerGradient->At(x + 1) + v, d);
        }
    }
}

// One output row from three rows of maxima.
inline void StrideTwoRow(const Row* const above[3], const float* weights, const Finish& finish,
                         int channel, int channels, int size, uint16_t* to, Sums* sums) {
    for (int v = 0; v < kBlock; v += kLanes) {
        const int c = channel + v;
        V w[9], first = Zero(), second = Zero();
        for (int k = 0; k < 9; ++k) {
            w[k] = Load(weights + k * channels + c);
        }
        for (int x = 0; x < size; x += kStrip) {
            V sum[kStrip] = {};
            for (int ky = 0; ky < 3; ++ky) {
                for (int i = 0; i < kStrip; ++i) {
                    for (int kx = 0; kx < 3; ++kx) {
                        sum[i] = Fma(w[3 * ky + kx], Load(above[ky]->At(2 * (x + i) + kx - 1) + v),
                                     sum[i]);
                    }
                }
            }
            for (int i = 0; i < kStrip; ++i) {
                const V value = finish.Apply(sum[i], c);
                first += value;
                second = Fma(value, value, second);
                Store(to + (x + i) * channels + c, value);
            }
        }
        sums->Add(c, first, second);
    }
}

template <typename Provider>
void PooledForward(const Tensor& source, const float* weights, const Finish& finish, size_t picture,
                   int channel, Provider* provider, Tensor* out, Sums* sums) {
    static thread_local Row stored, values[2], maxima[3];
    const int size = source.size;
    for (Row& row : maxima) {
        row.Clear(size);
    }
    const auto read = [&](int y) {
        provider->Provide(y, &stored);
        ApplyReading(source, channel, stored, &values[y % 2]);
    };
    uint16_t* to = out->values + picture * out->Length();
    const int rows = size - 1; // of maxima
    read(0);
    for (int y = 0; y < size; ++y) { // row y of maxima; the last is padding
        if (y < rows) {
            read(y + 1);
            PoolRows(values[y % 2], values[(y + 1) % 2], size, &maxima[y % 3]);
        } else {
            maxima[y % 3].Clear(size);
        }
        if (y % 2 == 1) {
            const Row* above[3] = {&maxima[(y + 1) % 3], &maxima[(y + 2) % 3], &maxima[y % 3]};
            StrideTwoRow(above, weights, finish, channel, out->channels, out->size,
                         to + static_cast<size_t>(y / 2) * out->size * out->channels, sums);
        }
    }
}

// The gradient of row y of maxima and of the weights that met it. `below` holds the output
// gradients of rows y / 2 and, if y is odd, y / 2 + 1.
inline void MaximaGradient(const Row& maxima, const Row* const below[2], const float* weights,
                           int y, int channel, int channels, int size, DepthwiseGradient* gradient,
                           Row* slopes) {
    const int kernelRows[2] = {y % 2 == 0 ? 1 : 2, 0};
    const int terms = y % 2 == 0 ? 1 : 2;
    for (int v = 0; v < kBlock; v += kLanes) {
        const int c = channel + v;
        V w[2][3], dw[2][3];
        for (int t = 0; t < terms; ++t) {
            for (int kx = 0; kx < 3; ++kx) {
                const int at = (3 * kernelRows[t] + kx) * channels + c;
                w[t][kx] = Load(weights + at);
                dw[t][kx] = Load(gradient->sums + at);
            }
        }
        // Columns 2x and 2x + 1 meet outputs x (with the middle and the right of the filter) and
        // x + 1 (with the left).
        for (int x = 0; 2 * x < size; ++x) {
            const V even = Load(maxima.At(2 * x) + v);
            const V odd = Load(maxima.At(2 * x + 1) + v);
            V evenSlope = Zero(), oddSlope = Zero();
            for (int t = 0; t < terms; ++t) {
                const V here = Load(below[t]->At(x) + v);
                const V next = Load(below[t]->At(x + 1) + v);
                evenSlope = Fma(w[t][1], here, evenSlope);
                oddSlope = Fma(w[t][2], here, Fma(w[t][0], next, oddSlope));
                dw[t][0] = Fma(odd, next, dw[t][0]);
                dw[t][1] = Fma(even, here, dw[t][1]);
                dw[t][2] = Fma(odd, here, dw[t][2]);
            }
            Store(slopes->At(2 * x) + v, evenSlope);
            Store(slopes->At(2 * x + 1) + v, oddSlope);
        }
        for (int t = 0; t < terms; ++t) {
            for (int kx = 0; kx < 3; ++kx) {
                Store(gradient->sums + (3 * kernelRows[t] + kx) * channels + c, dw[t][kx]);
            }
        }
    }
}

template <typename Provider>
void PooledBackward(const Tensor& source, const float* weights, const Tensor& out, size_t picture,
                    int channel, Provider* provider, DepthwiseGradient* gradient) {
    static thread_local Row stored[2], values[2], slopes[2], maxima, maximaSlopes, below[2];
    const int size = source.size;
    const auto read = [&](int y) {
        provider->Provide(y, &stored[y % 2]);
        ApplyReading(source, channel, stored[y % 2], &values[y % 2]);
        slopes[y % 2].Clear(size);
    };
    const auto readBelow = [&](int y) {
        Row& row = below[y % 2];
        row.Clear(out.size);
        if (y < out.size) {
            ReadGradientRow(out, picture * out.Pixels() + static_cast<size_t>(y) * out.size,
                            channel, &row);
        }
    };
    maxima.Clear(size);
    read(0);
    readBelow(0);
    for (int y = 0; y + 1 < size; ++y) {
        read(y + 1);
        if (y % 2 == 1) {
            readBelow(y / 2 + 1);
        }
        PoolRows(values[y % 2], values[(y + 1) % 2], size, &maxima);
        const Row* outputs[2] = {&below[(y / 2) % 2], &below[(y / 2 + 1) % 2]};
        MaximaGradient(maxima, outputs, weights, y, channel, out.channels, size, gradient,
                       &maximaSlopes);
        UnpoolRows(values[y % 2], values[(y + 1) % 2], maxima, maximaSlopes, size, &slopes[y % 2],
                   &slopes[(y + 1) % 2]);
        provider->Accept(y, stored[y % 2], slopes[y % 2]);
    }
    provider->Accept(size - 1, stored[(size - 1) % 2], slopes[(size - 1) % 2]);
}

// Rows of a tensor that lies in memory.
struct StoredRows {
    const Tensor& source;
    size_t picture;
    int channel;
    Sums* sums;

    void Provide(int y, Row* stored) const {
        const uint16_t* from = source.values + picture * source.Length() +
                               static_cast<size_t>(y) * source.size * source.channels + channel;
        for (int x = 0; x < source.size; ++x) {
            Store(stored->At(x), Load(from + x * source.channels));
            Store(stored->At(x) + kLanes, Load(from + x * source.channels + kLanes));
        }
    }

    void Accept(int y, const Row&, const Row& gradient) const {
        const size_t at = picture * source.Length() +
                          static_cast<size_t>(y) * source.size * source.channels + channel;
        for (int v = 0; v < kBlock; v += kLanes) {
            GradientWriter writer(source, channel + v);
            for (int x = 0; x < source.size; ++x) {
                writer.Put(at + static_cast<size_t>(x) * source.channels + v,
                           Load(gradient.At(x) + v));
            }
            sums->Add(channel + v, writer.first, writer.second);
        }
    }
};

} // namespace engine
