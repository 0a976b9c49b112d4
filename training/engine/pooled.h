// SPDX-License-Identifier: MIT
//
// 2 x 2 maximum with stride 1 and a depthwise 3 x 3 convolution with stride 2 behind it, 32
// channels of one picture at a time. The source's rows come from a provider, because the first
// layer's are cheaper computed again than kept: `Provide(y, stored)` fills a row of stored values,
// and `Accept(y, stored, &gradient)` takes the gradient of the row's values in front of the clamp.
#pragma once

#include "depthwise.h"

namespace engine {

// The row's values, from stored ones.
inline void ApplyReading(const Tensor& t, const Row& stored, Row* values) {
    const int length = t.size * t.channels;
    for (int at = 0; at < length; at += t.channels) {
        for (int c = 0; c < t.channels; c += kLanes) {
            Store(values->At(0) + at + c, Reading(t, c).Value(Load(stored.At(0) + at + c)));
        }
    }
}

inline void PoolRows(const Row& upper, const Row& lower, int size, Row* pooled) {
    for (int c = 0; c < upper.channels; c += kLanes) {
        V left = _mm512_max_ps(Load(upper.At(0) + c), Load(lower.At(0) + c));
        for (int x = 0; x + 1 < size; ++x) {
            const V right = _mm512_max_ps(Load(upper.At(x + 1) + c), Load(lower.At(x + 1) + c));
            Store(pooled->At(x) + c, _mm512_max_ps(left, right));
            left = right;
        }
    }
}

// Passes the gradient of each maximum to the first of the four that equals it.
inline void UnpoolRows(const Row& upper, const Row& lower, const Row& pooled, const Row& gradient,
                       int size, Row* upperGradient, Row* lowerGradient) {
    for (int c = 0; c < upper.channels; c += kLanes) {
        for (int x = 0; x + 1 < size; ++x) {
            const V most = Load(pooled.At(x) + c);
            const V slope = Load(gradient.At(x) + c);
            const __mmask16 first = _mm512_cmp_ps_mask(Load(upper.At(x) + c), most, _CMP_EQ_OQ);
            const __mmask16 second = _mm512_mask_cmp_ps_mask(
                static_cast<__mmask16>(~first), Load(upper.At(x + 1) + c), most, _CMP_EQ_OQ);
            const auto rest = static_cast<__mmask16>(~(first | second));
            const __mmask16 third =
                _mm512_mask_cmp_ps_mask(rest, Load(lower.At(x) + c), most, _CMP_EQ_OQ);
            const auto fourth = static_cast<__mmask16>(rest & ~third);
            const auto give = [&](float* to, __mmask16 mask) {
                const V before = Load(to);
                Store(to, _mm512_mask_add_ps(before, mask, before, slope));
            };
            give(upperGradient->At(x) + c, first);
            give(upperGradient->At(x + 1) + c, second);
            give(lowerGradient->At(x) + c, third);
            give(lowerGradient->At(x + 1) + c, fourth);
        }
    }
}

// One output row from three rows of maxima.
inline void StrideTwoRow(const Row* const above[3], const float* weights, const Finish& finish,
                         int channels, int size, uint16_t* to, Sums* sums) {
    for (int c = 0; c < channels; c += kLanes) {
        V w[9], first = Zero(), second = Zero();
        for (int k = 0; k < 9; ++k) {
            w[k] = Load(weights + k * channels + c);
        }
        for (int x = 0; x < size; x += kStrip) {
            V sum[kStrip] = {};
            for (int ky = 0; ky < 3; ++ky) {
                for (int i = 0; i < kStrip; ++i) {
                    for (int kx = 0; kx < 3; ++kx) {
                        sum[i] = Fma(w[3 * ky + kx], Load(above[ky]->At(2 * (x + i) + kx - 1) + c),
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
                   Provider* provider, RowScratch* scratch, Tensor* out, Sums* sums) {
    scratch->Use(source);
    Row& stored = scratch->stored[0];
    Row* const values = scratch->values;
    Row* const maxima = scratch->maxima;
    const int size = source.size;
    for (int i = 0; i < 3; ++i) {
        maxima[i].Clear(source);
    }
    const auto read = [&](int y) {
        provider->Provide(y, &stored);
        ApplyReading(source, stored, &values[y % 2]);
    };
    uint16_t* to = out->values + picture * out->Length();
    const int rows = size - 1; // of maxima
    read(0);
    for (int y = 0; y < size; ++y) { // row y of maxima; the last is padding
        if (y < rows) {
            read(y + 1);
            PoolRows(values[y % 2], values[(y + 1) % 2], size, &maxima[y % 3]);
        } else {
            maxima[y % 3].Clear(source);
        }
        if (y % 2 == 1) {
            const Row* above[3] = {&maxima[(y + 1) % 3], &maxima[(y + 2) % 3], &maxima[y % 3]};
            StrideTwoRow(above, weights, finish, out->channels, out->size,
                         to + static_cast<size_t>(y / 2) * out->size * out->channels, sums);
        }
    }
}

// The gradient of row y of maxima and of the weights that met it. `below` holds the output
// gradients of rows y / 2 and, if y is odd, y / 2 + 1.
inline void MaximaGradient(const Row& maxima, const Row* const below[2], const float* weights,
                           int y, int channels, int size, DepthwiseGradient* gradient,
                           Row* slopes) {
    const int kernelRows[2] = {y % 2 == 0 ? 1 : 2, 0};
    const int terms = y % 2 == 0 ? 1 : 2;
    for (int c = 0; c < channels; c += kLanes) {
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
            const V even = Load(maxima.At(2 * x) + c);
            const V odd = Load(maxima.At(2 * x + 1) + c);
            V evenSlope = Zero(), oddSlope = Zero();
            for (int t = 0; t < terms; ++t) {
                const V here = Load(below[t]->At(x) + c);
                const V next = Load(below[t]->At(x + 1) + c);
                evenSlope = Fma(w[t][1], here, evenSlope);
                oddSlope = Fma(w[t][2], here, Fma(w[t][0], next, oddSlope));
                dw[t][0] = Fma(odd, next, dw[t][0]);
                dw[t][1] = Fma(even, here, dw[t][1]);
                dw[t][2] = Fma(odd, here, dw[t][2]);
            }
            Store(slopes->At(2 * x) + c, evenSlope);
            Store(slopes->At(2 * x + 1) + c, oddSlope);
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
                    Provider* provider, RowScratch* scratch, DepthwiseGradient* gradient) {
    scratch->Use(source);
    Row* const stored = scratch->stored;
    Row* const values = scratch->values;
    Row* const slopes = scratch->slopes;
    Row* const below = scratch->below;
    Row& maxima = scratch->maxima[0];
    Row& maximaSlopes = scratch->maximaSlopes[0];
    const int size = source.size;
    const auto read = [&](int y) {
        provider->Provide(y, &stored[y % 2]);
        ApplyReading(source, stored[y % 2], &values[y % 2]);
        slopes[y % 2].Clear(source);
    };
    const auto readBelow = [&](int y) {
        Row& row = below[y % 2];
        row.Clear(out);
        if (y < out.size) {
            ReadGradientRow(out, picture * out.Pixels() + static_cast<size_t>(y) * out.size, &row);
        }
    };
    maxima.Clear(source);
    read(0);
    readBelow(0);
    for (int y = 0; y + 1 < size; ++y) {
        read(y + 1);
        if (y % 2 == 1) {
            readBelow(y / 2 + 1);
        }
        PoolRows(values[y % 2], values[(y + 1) % 2], size, &maxima);
        const Row* outputs[2] = {&below[(y / 2) % 2], &below[(y / 2 + 1) % 2]};
        MaximaGradient(maxima, outputs, weights, y, out.channels, size, gradient, &maximaSlopes);
        UnpoolRows(values[y % 2], values[(y + 1) % 2], maxima, maximaSlopes, size, &slopes[y % 2],
                   &slopes[(y + 1) % 2]);
        provider->Accept(y, stored[y % 2], &slopes[y % 2]);
    }
    provider->Accept(size - 1, stored[(size - 1) % 2], &slopes[(size - 1) % 2]);
}

// Rows of a tensor that lies in memory.
struct StoredRows {
    const Tensor& source;
    size_t picture;
    Sums* sums;

    size_t Begin(int y) const {
        return picture * source.Length() + static_cast<size_t>(y * source.size * source.channels);
    }

    void Provide(int y, Row* stored) const {
        const uint16_t* from = source.values + Begin(y);
        for (int at = 0; at < source.size * source.channels; at += kLanes) {
            Store(stored->At(0) + at, Load(from + at));
        }
    }

    void Accept(int y, const Row&, const Row* gradient) const {
        for (int c = 0; c < source.channels; c += kLanes) {
            GradientWriter writer(source, c);
            for (int x = 0; x < source.size; ++x) {
                writer.Put(Begin(y) + static_cast<size_t>(x * source.channels + c),
                           Load(gradient->At(x) + c));
            }
            sums->Add(c, writer.first, writer.second);
        }
    }
};

} // namespace engine
