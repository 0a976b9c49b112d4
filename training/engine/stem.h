// SPDX-License-Identifier: MIT
//
// The first layer: 3 x 3 on one plane, 32 channels. Its results are the largest tensor by far and
// are never stored: statistics follow from those of the input's 3 x 3 patches, values are computed
// again wherever they are read, and the weights' gradient needs sums over patches only.
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

    void Read(const float* from) {
        std::fill(std::begin(pixels), std::end(pixels), 0.0f);
        for (int y = 0; y < kPlane; ++y) {
            std::copy(from + y * kPlane, from + (y + 1) * kPlane, pixels + (y + 1) * kPitch + 1);
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

// Computes the first layer's rows, and sums gradient x patch for its weights: [9][32] and, without
// a tap, [32].
struct StemRows {
    const Tensor& source;
    const float* weights; // [9][32]
    const Finish& finish;
    const Picture& picture;
    float* gradient;
    Sums* sums;

    void Provide(int y, Row* stored) const {
        for (int v = 0; v < kStemChannels; v += kLanes) {
            V w[kTaps];
            for (int k = 0; k < kTaps; ++k) {
                w[k] = Load(weights + k * kStemChannels + v);
            }
            for (int x = 0; x < kPlane; x += 4) {
                V sum[4] = {};
                for (int k = 0; k < kTaps; ++k) {
                    const float* tap = picture.Tap(k, y) + x;
                    for (int i = 0; i < 4; ++i) {
                        sum[i] = Fma(w[k], All(tap[i]), sum[i]);
                    }
                }
                for (int i = 0; i < 4; ++i) {
                    Store(stored->At(x + i) + v, finish.Apply(sum[i], v));
                }
            }
        }
    }

    void Accept(int y, const Row& stored, const Row& slopes) const {
        for (int v = 0; v < kStemChannels; v += kLanes) {
            const Reading reading(source, v);
            V w[kTaps], first = Zero();
            for (int k = 0; k < kTaps; ++k) {
                w[k] = Load(gradient + k * kStemChannels + v);
            }
            for (int x = 0; x < kPlane; ++x) {
                const V slope = _mm512_maskz_mov_ps(reading.Passes(Load(stored.At(x) + v)),
                                                    Load(slopes.At(x) + v));
                first += slope;
                for (int k = 0; k < kTaps; ++k) {
                    w[k] = Fma(slope, All(picture.Tap(k, y)[x]), w[k]);
                }
            }
            for (int k = 0; k < kTaps; ++k) {
                Store(gradient + k * kStemChannels + v, w[k]);
            }
            sums->Add(v, first, Zero());
        }
    }
};

} // namespace engine
