// SPDX-License-Identifier: MIT
//
// Vectors of 16 channels, and the tensors that the operators pass on. Pictures lie in the order
// row, column, channel; values are stored as bfloat16 and computed with as single precision.
#pragma once

#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace engine {

using V = __m512;

constexpr int kLanes = 16;
constexpr int kMostChannels = 256;

inline V Load(const uint16_t* from) {
    const __m256i half = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
    return _mm512_castsi512_ps(_mm512_slli_epi32(_mm512_cvtepu16_epi32(half), 16));
}

inline void Store(uint16_t* to, V value) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to),
                        reinterpret_cast<__m256i>(_mm512_cvtneps_pbh(value)));
}

inline V Load(const float* from) { return _mm512_loadu_ps(from); }
inline void Store(float* to, V value) { _mm512_storeu_ps(to, value); }
inline V Zero() { return _mm512_setzero_ps(); }
inline V All(float value) { return _mm512_set1_ps(value); }
inline V Fma(V a, V b, V c) { return _mm512_fmadd_ps(a, b, c); }

// What a layer leaves for those that read it. A normalised layer stores the plain sums of products;
// its reader applies the normalisation and the rectifier. In quantised training the stored values
// are the integers, and a and b are 1 and 0.
struct Tensor {
    int channels = 0;
    int size = 0; // of a side of the plane
    uint16_t* values = nullptr;
    alignas(64) float a[kMostChannels]; // the value is clamp(a * stored + b, low, high)
    alignas(64) float b[kMostChannels];
    float low = 0, high = 0;
    float passLow = 0, passHigh = 0; // a gradient passes strictly between
    // The gradient behind the clamp, 0 where it does not pass, and its sums.
    uint16_t* gradient = nullptr;
    double gradientSum[kMostChannels];
    double gradientProduct[kMostChannels]; // of gradient and stored value
    // What a residual addition passes back to its shortcut, added to the gradient.
    const uint16_t* extra = nullptr;
    float extraScale = 0;
    // The gradient of the stored sums: c1 * gradient + c2 * stored + c3.
    alignas(64) float c1[kMostChannels], c2[kMostChannels], c3[kMostChannels];

    size_t Pixels() const { return static_cast<size_t>(size) * size; }
    size_t Length() const { return Pixels() * channels; }
};

// The readings of 16 channels of a tensor.
struct Reading {
    V a, b, low, high, passLow, passHigh;

    Reading(const Tensor& t, int channel)
        : a(Load(t.a + channel)),
          b(Load(t.b + channel)),
          low(All(t.low)),
          high(All(t.high)),
          passLow(All(t.passLow)),
          passHigh(All(t.passHigh)) {}

    V Value(V stored) const { return _mm512_min_ps(_mm512_max_ps(Fma(a, stored, b), low), high); }
    __mmask16 Passes(V stored) const {
        const V value = Fma(a, stored, b);
        return _mm512_mask_cmp_ps_mask(_mm512_cmp_ps_mask(value, passLow, _CMP_GT_OQ), value,
                                       passHigh, _CMP_LT_OQ);
    }
};

struct GradientReading {
    V c1, c2, c3;

    GradientReading(const Tensor& t, int channel)
        : c1(Load(t.c1 + channel)), c2(Load(t.c2 + channel)), c3(Load(t.c3 + channel)) {}

    V Value(V gradient, V stored) const { return Fma(c1, gradient, Fma(c2, stored, c3)); }
};

// Two sums for each channel: of a layer's results and their squares, or of gradients.
struct Sums {
    float first[kMostChannels] = {};
    float second[kMostChannels] = {};

    void Add(int channel, V a, V b) {
        Store(first + channel, Load(first + channel) + a);
        Store(second + channel, Load(second + channel) + b);
    }
};

// How a layer's sums become stored values.
struct Finish {
    bool quantised = false;
    float scale = 1; // 2^-shift
    const float* bias = nullptr;

    V Apply(V sum, int channel) const {
        if (!quantised) {
            return sum;
        }
        const V shifted = _mm512_mul_ps(sum + Load(bias + channel), All(scale));
        const V floor = _mm512_roundscale_ps(shifted, _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC);
        return _mm512_min_ps(_mm512_max_ps(floor, All(-128)), All(127));
    }
};

} // namespace engine
