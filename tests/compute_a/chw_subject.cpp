// SPDX-License-Identifier: MIT
#include "compute_a/chw_subject.h"

#include <algorithm>
#include <climits>
#include <cmath>

#include "support/random.h"

namespace orvo_test {
namespace {

using orvo_reference::DotLength;
using orvo_reference::DstBytes;
using orvo_reference::SrcBytes;

// Whatever stands in the gaps of a packed order must not matter.
constexpr int8_t kGapFill = 0x55;

size_t Pixels(const ConvShape& s) {
    return static_cast<size_t>(s.dstWidth) * static_cast<size_t>(s.dstHeight);
}

std::vector<int8_t> PackedGeneric(const ConvShape& s, const std::vector<int8_t>& natural) {
    std::vector<int8_t> packed(
        orvo_reference::PackedConvWeightsSize(s.dstChannels, s.srcChannels, s.kernelSize),
        kGapFill);
    orvo_reference::PackConvWeights(natural.data(), s.dstChannels, s.srcChannels, s.kernelSize,
                                    packed.data(), packed.size());
    return packed;
}

std::vector<int8_t> PackedPointwise(const ConvShape& s, const std::vector<int8_t>& natural) {
    std::vector<int8_t> packed(
        orvo_reference::PackedPointwiseWeightsSize(s.dstChannels, s.srcChannels), kGapFill);
    orvo_reference::PackPointwiseWeights(natural.data(), s.dstChannels, s.srcChannels,
                                         packed.data(), packed.size());
    return packed;
}

std::vector<int8_t> Unpacked(const ConvShape&, const std::vector<int8_t>& natural) {
    return natural;
}

size_t GenericScratch(const ConvShape& s) {
    const size_t k = DotLength(s);
    const size_t n = Pixels(s);
    return (k * n + 3) / 4 * 4 + 8 * k * (n / 8 + n % 8);
}

size_t PointwiseScratch(const ConvShape& s) {
    const size_t ci = static_cast<size_t>(s.srcChannels);
    const size_t n = static_cast<size_t>(s.srcWidth) * static_cast<size_t>(s.srcHeight);
    return 32 * (ci / 4 + ci % 4) * (n / 8 + n % 8 / 4 + n % 4);
}

size_t DepthwiseScratch(const ConvShape& s) {
    return s.pad == 0
               ? 0
               : static_cast<size_t>(s.srcChannels) * static_cast<size_t>(s.srcWidth + 2 * s.pad) *
                     static_cast<size_t>(s.srcHeight + 2 * s.pad);
}

std::vector<int8_t> ReferenceChw(const ConvShape& s, const ConvData& data) {
    std::vector<int8_t> dst(DstBytes(s));
    orvo_reference::ConvolveChw(s, data.src.data(), data.weights.data(), data.bias.data(),
                                dst.data());
    return dst;
}

template <bool rectify>
std::vector<int8_t> ReferenceDepthwise(const ConvShape& s, const ConvData& data) {
    std::vector<int8_t> dst(DstBytes(s));
    orvo_reference::ConvolveDepthwiseChw(s, rectify, data.src.data(), data.weights.data(),
                                         data.bias.data(), dst.data());
    return dst;
}

size_t DenseWeights(const ConvShape& s) {
    return static_cast<size_t>(s.dstChannels) * DotLength(s);
}

size_t DepthwiseWeights(const ConvShape& s) { return static_cast<size_t>(s.dstChannels) * 9; }

} // namespace

const ChwSubject kGenericConv = {arma_convolve_chw_q7, PackedGeneric, GenericScratch, ReferenceChw,
                                 DenseWeights};
const ChwSubject kPointwiseConv = {ArmAConvolve1x1s1p0ChwQ7, PackedPointwise, PointwiseScratch,
                                   ReferenceChw, DenseWeights};
const ChwSubject kDepthwiseConv = {arma_convolvedw_3x3_s1_chw_q7, Unpacked, DepthwiseScratch,
                                   ReferenceDepthwise<false>, DepthwiseWeights};
const ChwSubject kDepthwiseReluConv = {ArmAConvolvedwRelu3x3s1ChwQ7, Unpacked, DepthwiseScratch,
                                       ReferenceDepthwise<true>, DepthwiseWeights};

uint32_t LivelyShift(size_t dotLength) {
    uint32_t shift = 7;
    for (size_t k = dotLength; k > 1; k /= 4) {
        ++shift;
    }
    return shift;
}

ConvData LivelyData(const ChwSubject& subject, const ConvShape& shape, uint64_t seed) {
    Random random(seed);
    ConvData data = UniformData(subject, shape, 0, 0, 0);
    random.Fill(data.src.data(), data.src.size());
    // A sum of K products of an input (deviation 74) and a weight (amplitude / sqrt(3)) deviates by
    // their product times sqrt(K): make that about 40 units of the output.
    const double unit = std::ldexp(1.0, static_cast<int>(std::min(shape.outShift, 20u)));
    const size_t products =
        shape.dstChannels == 0 ? 0 : data.weights.size() / static_cast<size_t>(shape.dstChannels);
    const double amplitude =
        40 * unit * 1.732 / (74 * std::sqrt(static_cast<double>(products) + 1));
    const int bound = static_cast<int>(std::clamp(amplitude, 1.0, 127.0));
    for (int8_t& w : data.weights) {
        w = static_cast<int8_t>(bound == 127 ? random.Between(-128, 127)
                                             : random.Between(-bound, bound));
    }
    const int32_t biasBound = static_cast<int32_t>(20 * unit);
    for (int32_t& b : data.bias) {
        b = random.Between(-biasBound, biasBound);
    }
    return data;
}

ConvData ExtremeData(const ChwSubject& subject, const ConvShape& shape, uint64_t seed) {
    Random random(seed);
    ConvData data = UniformData(subject, shape, 0, 0, 0);
    for (int8_t& x : data.src) {
        x = random.Next() % 2 == 0 ? int8_t{-128} : int8_t{127};
    }
    for (int8_t& w : data.weights) {
        w = random.Next() % 2 == 0 ? int8_t{-128} : int8_t{127};
    }
    for (size_t i = 0; i < data.bias.size(); ++i) {
        const int32_t choices[] = {INT32_MAX, INT32_MIN, 0, static_cast<int32_t>(random.Next())};
        data.bias[i] = choices[i % 4];
    }
    return data;
}

ConvData UniformData(const ChwSubject& subject, const ConvShape& shape, int8_t input, int8_t weight,
                     int32_t bias) {
    return {std::vector<int8_t>(SrcBytes(shape), input),
            std::vector<int8_t>(subject.weightCount(shape), weight),
            std::vector<int32_t>(static_cast<size_t>(shape.dstChannels), bias)};
}

void Call(ChwKernel kernel, const ConvShape& s, const int8_t* src, const int8_t* weights,
          const int32_t* bias, int8_t* dst, int8_t* scratch) {
    const auto u16 = [](auto value) { return static_cast<uint16_t>(value); };
    kernel(src, u16(s.srcWidth), u16(s.srcHeight), u16(s.srcChannels), weights, u16(s.dstChannels),
           u16(s.kernelSize), u16(s.pad), u16(s.stride), bias, u16(s.outShift), dst,
           u16(s.dstWidth), u16(s.dstHeight), scratch);
}

} // namespace orvo_test
