// SPDX-License-Identifier: MIT
//
// Pointwise convolution: pixels x channels times a matrix. Forward and both gradients in blocks of
// rows (pixels) that stay in the cache.
#pragma once

#include "tiles.h"

namespace engine {

constexpr int kRows = 32;       // of one product
constexpr int kBlockRows = 288; // whose weight gradient is summed at a time

struct PointwiseWeights {
    int inputs = 0, outputs = 0;
    uint16_t* forward = nullptr;  // tiles [outputs / 16][inputs / 32]
    uint16_t* backward = nullptr; // tiles [inputs / 16][outputs / 32]

    static uint16_t Round(float value) {
        uint16_t out[kLanes];
        Store(out, All(value));
        return out[0];
    }

    // From [outputs][inputs].
    void Pack(const float* w) {
        for (int n = 0; n < outputs; ++n) {
            for (int k = 0; k < inputs; ++k) {
                const uint16_t value = Round(w[n * inputs + k]);
                forward[((n / 16) * (inputs / 32) + k / 32) * kTileValues + (k % 32 / 2) * 32 +
                        2 * (n % 16) + k % 2] = value;
                backward[((k / 16) * (outputs / 32) + n / 32) * kTileValues + (n % 32 / 2) * 32 +
                         2 * (k % 16) + n % 2] = value;
            }
        }
    }
};

// Rows begin ... begin + 31 of the source, as the layer reads them.
inline void ReadRows(const Tensor& source, size_t begin, uint16_t* to) {
    const int channels = source.channels;
    const uint16_t* from = source.values + begin * channels;
    for (int c = 0; c < channels; c += kLanes) {
        const Reading reading(source, c);
        for (int row = 0; row < kRows; ++row) {
            Store(to + row * channels + c, reading.Value(Load(from + row * channels + c)));
        }
    }
}

inline void PointwiseForward(const Tensor& source, const PointwiseWeights& weights,
                             const Finish& finish, size_t begin, size_t end, Tensor* out,
                             Sums* sums) {
    alignas(64) uint16_t rows[kRows * kMostChannels];
    alignas(64) float product[kRows * 32];
    const int steps = weights.inputs / 32;
    for (size_t row = begin; row < end; row += kRows) {
        ReadRows(source, row, rows);
        for (int n = 0; n < weights.outputs; n += 32) {
            const uint16_t* right = weights.forward + (n / 16) * steps * kTileValues;
            Multiply(rows, weights.inputs, right, right + steps * kTileValues, steps, product);
            for (int c = 0; c < 32; c += kLanes) {
                uint16_t* to = out->values + row * weights.outputs + n + c;
                V first = Zero(), second = Zero();
                for (int r = 0; r < kRows; ++r) {
                    const V value = finish.Apply(Load(product + 32 * r + c), n + c);
                    first += value;
                    second = Fma(value, value, second);
                    Store(to + r * weights.outputs, value);
                }
                sums->Add(n + c, first, second);
            }
        }
    }
}

// One operand of the weight gradient: tiles [channels / 16][groups of 32 rows], transposed for the
// left side.
struct GradientOperand {
    uint16_t* tiles;
    int groups;
    bool left;

    void Put(int channel, int group, const __m512i* pairs) const {
        auto* to =
            reinterpret_cast<__m512i*>(tiles + ((channel / 16) * groups + group) * kTileValues);
        if (left) {
            Transpose(pairs, to);
        } else {
            std::copy(pairs, pairs + 16, to);
        }
    }
};

// Weight gradients of one thread, tiles of [left channels / 16][right channels / 16]: the left side
// is the narrower one, since it has to be transposed.
struct PointwiseGradient {
    float* tiles = nullptr;

    static bool OutputsLeft(const PointwiseWeights& w) { return w.outputs <= w.inputs; }

    // Adds to [outputs][inputs].
    void AddTo(const PointwiseWeights& w, float* gradient) const {
        const bool outputsLeft = OutputsLeft(w);
        const int rightTiles = (outputsLeft ? w.inputs : w.outputs) / 16;
        for (int n = 0; n < w.outputs; ++n) {
            for (int k = 0; k < w.inputs; ++k) {
                const int left = outputsLeft ? n : k;
                const int right = outputsLeft ? k : n;
                gradient[n * w.inputs + k] += tiles[((left / 16) * rightTiles + right / 16) * 256 +
                                                    (left % 16) * 16 + right % 16];
            }
        }
    }
};

struct PointwiseScratch {
    alignas(64) uint16_t rows[kRows * kMostChannels];
    alignas(64) float product[kRows * 32];
    alignas(64) uint16_t inputs[kBlockRows * kMostChannels];
    alignas(64) uint16_t outputs[kBlockRows * kMostChannels];
};

// Gradient of the sums of 32 rows: row by row for the product with the weights, and as an operand
// of the weight gradient.
inline void ReadGradientRows(const Tensor& out, size_t begin, int group, uint16_t* rows,
                             const GradientOperand& operand) {
    const int channels = out.channels;
    for (int c = 0; c < channels; c += kLanes) {
        const GradientReading reading(out, c);
        const uint16_t* gradient = out.gradient + begin * channels + c;
        const uint16_t* stored = out.values + begin * channels + c;
        __m512i pairs[16];
        for (int r = 0; r < kRows; r += 2) {
            const size_t at = static_cast<size_t>(r) * channels;
            const V first = reading.Value(Load(gradient + at), Load(stored + at));
            const V second =
                reading.Value(Load(gradient + at + channels), Load(stored + at + channels));
            Store(rows + at + c, first);
            Store(rows + at + channels + c, second);
            pairs[r / 2] = Interleave(first, second);
        }
        operand.Put(c, group, pairs);
    }
}

inline void ReadInputRows(const Tensor& source, size_t begin, int group,
                          const GradientOperand& operand) {
    const int channels = source.channels;
    for (int c = 0; c < channels; c += kLanes) {
        const Reading reading(source, c);
        const uint16_t* stored = source.values + begin * channels + c;
        __m512i pairs[16];
        for (int r = 0; r < kRows; r += 2) {
            const uint16_t* at = stored + static_cast<size_t>(r) * channels;
            pairs[r / 2] = Interleave(reading.Value(Load(at)), reading.Value(Load(at + channels)));
        }
        operand.Put(c, group, pairs);
    }
}

// Stores 16 channels of a row's gradient in front of the source's clamp.
struct GradientWriter {
    const Tensor& source;
    Reading reading;
    V first = Zero(), second = Zero(), extraScale;

    GradientWriter(const Tensor& tensor, int channel)
        : source(tensor), reading(tensor, channel), extraScale(All(tensor.extraScale)) {}

    void Put(size_t at, V gradient) {
        if (source.extra != nullptr) {
            gradient = Fma(extraScale, Load(source.extra + at), gradient);
        }
        const V stored = Load(source.values + at);
        gradient = _mm512_maskz_mov_ps(reading.Passes(stored), gradient);
        first += gradient;
        second = Fma(gradient, stored, second);
        Store(source.gradient + at, gradient);
    }
};

inline void PointwiseBackward(const Tensor& source, const PointwiseWeights& weights,
                              const Tensor& out, size_t begin, size_t end,
                              PointwiseScratch* scratch, PointwiseGradient* gradient, Sums* sums) {
    const int groups = static_cast<int>((end - begin) / kRows);
    const bool outputsLeft = PointwiseGradient::OutputsLeft(weights);
    const GradientOperand inputs{scratch->inputs, groups, !outputsLeft};
    const GradientOperand outputs{scratch->outputs, groups, outputsLeft};
    const int steps = weights.outputs / 32;
    for (int group = 0; group < groups; ++group) {
        const size_t row = begin + static_cast<size_t>(group) * kRows;
        ReadGradientRows(out, row, group, scratch->rows, outputs);
        ReadInputRows(source, row, group, inputs);
        for (int k = 0; k < weights.inputs; k += 32) {
            const uint16_t* right = weights.backward + (k / 16) * steps * kTileValues;
            Multiply(scratch->rows, weights.outputs, right, right + steps * kTileValues, steps,
                     scratch->product);
            for (int c = 0; c < 32; c += kLanes) {
                GradientWriter writer(source, k + c);
                for (int r = 0; r < kRows; ++r) {
                    writer.Put((row + r) * weights.inputs + k + c,
                               Load(scratch->product + 32 * r + c));
                }
                sums->Add(k + c, writer.first, writer.second);
            }
        }
    }
    const GradientOperand& left = outputsLeft ? outputs : inputs;
    const GradientOperand& right = outputsLeft ? inputs : outputs;
    const int leftTiles = (outputsLeft ? weights.outputs : weights.inputs) / 16;
    const int rightTiles = (outputsLeft ? weights.inputs : weights.outputs) / 16;
    const int pitch = groups * kTileValues;
    for (int i = 0; i < leftTiles; i += 2) {
        for (int j = 0; j < rightTiles; j += 2) {
            float* tile = gradient->tiles + (i * rightTiles + j) * 256;
            MultiplyAdd(left.tiles + i * pitch, left.tiles + (i + 1) * pitch,
                        right.tiles + j * pitch, right.tiles + (j + 1) * pitch, groups, tile,
                        tile + 256, tile + rightTiles * 256, tile + (rightTiles + 1) * 256);
        }
    }
}

} // namespace engine
