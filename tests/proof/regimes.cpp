// SPDX-License-Identifier: MIT
#include "proof/regimes.h"

#include <algorithm>
#include <climits>

#include "support/random.h"

namespace orvo_proof {
namespace {

using orvo_test::ChwSubject;
using orvo_test::ConvData;
using orvo_test::ConvShape;
using orvo_test::Random;

size_t Index(int value) { return static_cast<size_t>(value); }

bool IsDepthwise(const ChwSubject& subject) {
    return subject.kernel == orvo_test::kDepthwiseConv.kernel ||
           subject.kernel == orvo_test::kDepthwiseReluConv.kernel;
}

// The sum of an output value's products, without the bias.
int32_t SumAt(const ChwSubject& subject, const ConvShape& s, const ConvData& data, int channel,
              int y, int x) {
    const bool depthwise = IsDepthwise(subject);
    const int kernel = depthwise ? 3 : s.kernelSize;
    const int inputs = depthwise ? 1 : s.srcChannels;
    uint32_t sum = 0;
    for (int c = 0; c < inputs; ++c) {
        const int plane = depthwise ? channel : c;
        for (int tap = 0; tap < kernel * kernel; ++tap) {
            const int sy = y * s.stride + tap / kernel - s.pad;
            const int sx = x * s.stride + tap % kernel - s.pad;
            if (sy < 0 || sy >= s.srcHeight || sx < 0 || sx >= s.srcWidth) {
                continue;
            }
            const int value = data.src[Index((plane * s.srcHeight + sy) * s.srcWidth + sx)];
            const int weight = data.weights[Index((channel * inputs + c) * kernel * kernel + tap)];
            sum += static_cast<uint32_t>(value * weight);
        }
    }
    return static_cast<int32_t>(sum);
}

// Planes of one value each, but for the first, whose values lie within 2 of 0: then not one sum alone
// is at the edge, but most of a plane's.
void FillLevelPlanes(const ConvShape& s, Random& random, std::vector<int8_t>& src) {
    const size_t plane = Index(s.srcWidth) * Index(s.srcHeight);
    for (size_t c = 0; c < Index(s.srcChannels); ++c) {
        const int8_t level = random.Q7();
        for (size_t i = 0; i < plane; ++i) {
            src[c * plane + i] = c == 0 ? static_cast<int8_t>(random.Between(-2, 2)) : level;
        }
    }
}

void BringToEdges(const ChwSubject& subject, const ConvShape& s, Regime regime, uint64_t seed,
                  Random& random, ConvData& data) {
    if (seed % 2 == 0) {
        FillLevelPlanes(s, random, data.src);
        // What the first plane adds is its value itself.
        const size_t inputs = IsDepthwise(subject) ? 1 : Index(s.srcChannels);
        const size_t taps = Index(s.kernelSize) * Index(s.kernelSize);
        for (size_t at = 0; at < data.weights.size() && !IsDepthwise(subject);
             at += inputs * taps) {
            std::fill_n(data.weights.begin() + static_cast<ptrdiff_t>(at), taps, int8_t{0});
            data.weights[at + taps / 2] = 1;
        }
    }
    for (int c = 0; c < s.dstChannels; ++c) {
        const int32_t sum = SumAt(subject, s, data, c, random.Between(0, s.dstHeight - 1),
                                  random.Between(0, s.dstWidth - 1));
        data.bias[Index(c)] =
            BiasToEdge(regime, sum, s.outShift, seed / 2 + static_cast<uint64_t>(c));
    }
}

} // namespace

const char* Name(Regime regime) {
    switch (regime) {
        case Regime::kUniform:
            return "uniform";
        case Regime::kAllLowest:
            return "all -128";
        case Regime::kAllHighest:
            return "all 127";
        case Regime::kAlternating:
            return "alternating";
        case Regime::kZero:
            return "zero";
        case Regime::kEdges:
            return "at the edges";
        case Regime::kWrap:
            return "wrapping";
    }
    return "";
}

void Fill(Regime regime, uint64_t seed, std::vector<int8_t>& values) {
    Random random(seed);
    for (size_t i = 0; i < values.size(); ++i) {
        switch (regime) {
            case Regime::kAllLowest:
                values[i] = -128;
                break;
            case Regime::kAllHighest:
                values[i] = 127;
                break;
            case Regime::kAlternating:
                values[i] = (i + seed) % 2 == 0 ? int8_t{-128} : int8_t{127};
                break;
            case Regime::kZero:
                values[i] = 0;
                break;
            default:
                values[i] = random.Q7();
                break;
        }
    }
}

int32_t BiasToEdge(Regime regime, int32_t sum, uint32_t shift, uint64_t choice) {
    const auto distance = static_cast<int64_t>(choice % 5) - 2;
    const bool upper = choice / 5 % 2 == 0;
    // The first sums that are too large, and too small. Under shifts of 24 and more there are none.
    const bool saturates = regime == Regime::kEdges && shift < 24;
    const int64_t above = saturates ? int64_t{128} << shift : int64_t{INT32_MAX} + 1;
    const int64_t edge = upper ? above : -above - 1;
    return static_cast<int32_t>(static_cast<uint32_t>(edge + distance - sum));
}

ConvData MakeData(const ChwSubject& subject, const ConvShape& shape, Regime regime, uint64_t seed) {
    ConvData data = orvo_test::LivelyData(subject, shape, seed);
    if (regime == Regime::kUniform && seed % 2 == 0) {
        return data; // few of whose results saturate
    }
    Random random(seed);
    if (regime != Regime::kUniform) {
        Fill(regime, seed, data.src);
    }
    // Of the weights a third is of the regime, a third at random, and a third as small as it must be for
    // results in the middle of the range, which is what they are already.
    const bool ofRegime = seed % 3 == 0 && regime != Regime::kZero;
    if (ofRegime) {
        Fill(regime, seed / 3, data.weights);
    } else if (seed % 3 == 1) {
        random.Fill(data.weights.data(), data.weights.size());
    }
    if (regime == Regime::kEdges || regime == Regime::kWrap) {
        BringToEdges(subject, shape, regime, seed, random, data);
    } else if (seed % 5 == 4) {
        random.Fill(data.bias.data(), data.bias.size()); // anywhere in 32 bits
    }
    return data;
}

} // namespace orvo_proof
