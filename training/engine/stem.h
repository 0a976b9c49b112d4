// SPDX-License-Identifier: MIT
//
// The first layer: 3 x 3 on one plane. The recognition network's has 32 channels, and its results
// are the largest tensor by far and are never stored: statistics follow from those of the input's 3
// x 3 patches, values are computed again wherever they are read, and the weights' gradient needs
// sums over patches only.
#pragma once

#include "pooled.h"

namespace engine {

constexpr int kPlane = 96;
constexpr int kStemChannels = 32;
constexpr int kTaps = 9;
constexpr int kPitch = kPlane + 2 + 14; // room for a vector load behind the border

// A picture with a border of zeros.
struct Picture {
    alignas(64) float pixels[(kPlane + 2) * kPitch];

    void Read(const float* from, int size) {
        std::fill(std::begin(pixels), std::end(pixels), 0.0f);
        for (int y = 0; y < size; ++y) {
            std::copy(from + y * size, from + (y + 1) * size, pixels + (y + 1) * kPitch + 1);
        }
    }
    // What tap k of the filter meets at row y and column 0.
    const float* Tap(int k, int y) const { return pixels + (y + k / 3) * kPitch + k % 3; }
};

// Sums over all patches: of each tap, and of the products of each two.
struct PatchSums {
    double tap[kTaps] = {};
    double product[kTaps][kTaps] = {};

    void Add(const Picture& picture) {
        for (int i = 0; i < kTaps; ++i) {
            V first = Zero(), second[kTaps] = {};
            for (int y = 0; y < kPlane; ++y) {
                for (int x = 0; x < kPlane; x += kLanes) {
                    const V value = Load(picture.Tap(i, y) + x);
                    first += value;
                    for (int j = 0; j <= i; ++j) {
                        second[j] = Fma(value, Load(picture.Tap(j, y) + x), second[j]);
                    }
                }
            }
            tap[i] += _mm512_reduce_add_ps(first);
            for (int j = 0; j <= i; ++j) {
                product[i][j] += _mm512_reduce_add_ps(second[j]);
            }
        }
    }

    void Add(const PatchSums& other) {
        for (int i = 0; i < kTaps; ++i) {
            tap[i] += other.tap[i];
            for (int j = 0; j <= i; ++j) {
                product[i][j] += other.product[i][j];
            }
        }
    }

    double Product(int i, int j) const { return product[std::max(i, j)][std::min(i, j)]; }
};

// One row of the first layer's results; weights [9][channels].
inline void StemRow(const Picture& picture, const float* weights, const Finish& finish, int y,
                    const Tensor& out, Row* stored) {
    for (int c = 0; c < out.channels; c += kLanes) {
        V w[kTaps];
        for (int k = 0; k < kTaps; ++k) {
            w[k] = Load(weights + k * out.channels + c);
        }
        for (int x = 0; x < out.size; x += 4) {
            V sum[4] = {};
            for (int k = 0; k < kTaps; ++k) {
                const float* tap = picture.Tap(k, y) + x;
                for (int i = 0; i < 4; ++i) {
                    sum[i] = Fma(w[k], All(tap[i]), sum[i]);
                }
            }
            for (int i = 0; i < 4; ++i) {
                Store(stored->At(x + i) + c, finish.Apply(sum[i], c));
            }
        }
    }
}

// Adds a row's gradient x patch to [9][channels].
inline void StemRowGradient(const Picture& picture, int y, const Tensor& out, const Row& slopes,
                            float* gradient) {
    for (int c = 0; c < out.channels; c += kLanes) {
        V w[kTaps];
        for (int k = 0; k < kTaps; ++k) {
            w[k] = Load(gradient + k * out.channels + c);
        }
        for (int x = 0; x < out.size; ++x) {
            const V slope = Load(slopes.At(x) + c);
            for (int k = 0; k < kTaps; ++k) {
                w[k] = Fma(slope, All(picture.Tap(k, y)[x]), w[k]);
            }
        }
        for (int k = 0; k < kTaps; ++k) {
            Store(gradient + k * out.channels + c, w[k]);
        }
    }
}

// The alignment network's first layer, whose results are stored like any other's.
inline void FirstForward(const Picture& picture, const float* weights, const Finish& finish,
                         size_t number, RowScratch* scratch, Tensor* out, Sums* sums) {
    scratch->Use(*out);
    Row& row = scratch->stored[0];
    for (int y = 0; y < out->size; ++y) {
        StemRow(picture, weights, finish, y, *out, &row);
        uint16_t* to = out->values + number * out->Length() +
                       static_cast<size_t>(y * out->size * out->channels);
        for (int c = 0; c < out->channels; c += kLanes) {
            V first = Zero(), second = Zero();
            for (int x = 0; x < out->size; ++x) {
                const V value = Load(row.At(x) + c);
                first += value;
                second = Fma(value, value, second);
                Store(to + x * out->channels + c, value);
            }
            sums->Add(c, first, second);
        }
    }
}

inline void FirstBackward(const Picture& picture, const Tensor& out, size_t number,
                          RowScratch* scratch, float* gradient) {
    scratch->Use(out);
    Row& row = scratch->below[0];
    for (int y = 0; y < out.size; ++y) {
        ReadGradientRow(out, number * out.Pixels() + static_cast<size_t>(y * out.size), &row);
        StemRowGradient(picture, y, out, row, gradient);
    }
}

// Computes the recognition network's first rows, and sums gradient x patch for its weights: [9][32]
// and, without a tap, [32].
struct StemRows {
    const Tensor& source;
    const float* weights; // [9][32]
    const Finish& finish;
    const Picture& picture;
    float* gradient;
    Sums* sums;

    void Provide(int y, Row* stored) const { StemRow(picture, weights, finish, y, source, stored); }

    // Clears what the clamp holds back.
    void Accept(int y, const Row& stored, Row* slopes) const {
        for (int c = 0; c < source.channels; c += kLanes) {
            const Reading reading(source, c);
            V first = Zero();
            for (int x = 0; x < source.size; ++x) {
                const V slope = _mm512_maskz_mov_ps(reading.Passes(Load(stored.At(x) + c)),
                                                    Load(slopes->At(x) + c));
                first += slope;
                Store(slopes->At(x) + c, slope);
            }
            sums->Add(c, first, Zero());
        }
        StemRowGradient(picture, y, source, *slopes, gradient);
    }
};

} // namespace engine
