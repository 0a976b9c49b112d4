// SPDX-License-Identifier: MIT
#include "bench/own_layers.h"

#include <algorithm>
#include <memory>
#include <random>
#include <stdexcept>

#include "orvo/q7_kernels.h"

namespace orvo_bench {
namespace {

constexpr size_t kSlotBytes = 32 * 96 * 96; // the largest activation tensor
constexpr size_t kWorkspaceBytes = 497668;

constexpr uint16_t kShift = 7;

std::vector<int8_t> RandomBytes(size_t count) {
    static std::minstd_rand generator(1);
    std::vector<int8_t> bytes(count);
    for (int8_t& byte : bytes) {
        byte = static_cast<int8_t>(generator() >> 8);
    }
    return bytes;
}

struct Slots {
    std::vector<int8_t> src = RandomBytes(kSlotBytes);
    std::vector<int8_t> shortcut = RandomBytes(kSlotBytes);
    std::vector<int8_t> dst = std::vector<int8_t>(kSlotBytes);
    std::vector<int8_t> workspace = std::vector<int8_t>(kWorkspaceBytes);
    std::vector<float> floats = std::vector<float>(128);
};

Slots& TheSlots() {
    static Slots slots;
    return slots;
}

// Enough for every kernel's packing, leftover groups of channels included.
std::vector<int8_t> Weights(const Layer& layer) {
    const size_t products = Products(layer);
    const size_t outputs = static_cast<size_t>(layer.size) * layer.size;
    return RandomBytes(4 * products / outputs + 64 * static_cast<size_t>(layer.outChannels));
}

using Convolution = decltype(&arma_convolve_chw_q7);

// As the networks have them: the planes of a picture without colours.
void MakeEqualPlanes(const Layer& layer, std::vector<int8_t>& planes) {
    const ptrdiff_t plane = ptrdiff_t{layer.size} * layer.size;
    for (int c = 1; c < layer.channels; ++c) {
        std::copy_n(planes.begin(), plane, planes.begin() + c * plane);
    }
}

Step ConvolutionStep(Convolution kernel, const Layer& layer, int kernelSize) {
    auto weights = std::make_shared<std::vector<int8_t>>(Weights(layer));
    auto bias = std::make_shared<std::vector<int32_t>>(layer.outChannels, 100);
    const auto size = static_cast<uint16_t>(layer.size);
    return [=] {
        Slots& s = TheSlots();
        kernel(s.src.data(), size, size, static_cast<uint16_t>(layer.channels), weights->data(),
               static_cast<uint16_t>(layer.outChannels), static_cast<uint16_t>(kernelSize),
               static_cast<uint16_t>(kernelSize / 2), 1, bias->data(), kShift, s.dst.data(), size,
               size, s.workspace.data());
    };
}

Step GlobalStep(const Layer& layer) {
    auto weights = std::make_shared<std::vector<int8_t>>(RandomBytes(Products(layer)));
    auto bias = std::make_shared<std::vector<int32_t>>(layer.outChannels, 100);
    return [=] {
        Slots& s = TheSlots();
        ArmAConvolveGlobalChwQ7(s.src.data(), layer.size, layer.size, layer.channels,
                                weights->data(), bias->data(), kShift, s.dst.data(), nullptr);
    };
}

Step FullyConnectedStep(const Layer& layer) {
    auto weights = std::make_shared<std::vector<int8_t>>(RandomBytes(Products(layer)));
    auto bias = std::make_shared<std::vector<int32_t>>(layer.outChannels, 100);
    return [=] {
        Slots& s = TheSlots();
        ArmAFcQ7(s.src.data(), weights->data(), layer.channels, layer.outChannels, kShift,
                 bias->data(), s.dst.data(), nullptr);
    };
}

} // namespace

Step OwnStep(const Layer& layer) {
    const auto channels = static_cast<uint16_t>(layer.channels);
    const auto size = static_cast<uint16_t>(layer.size);
    Slots& s = TheSlots();
    switch (layer.kind) {
        case LayerKind::kConvolution:
            MakeEqualPlanes(layer, s.src);
            return ConvolutionStep(arma_convolve_chw_q7, layer, 3);
        case LayerKind::kPointwise:
            return ConvolutionStep(ArmAConvolve1x1s1p0ChwQ7, layer, 1);
        case LayerKind::kDepthwise:
            return ConvolutionStep(arma_convolvedw_3x3_s1_chw_q7, layer, 3);
        case LayerKind::kDepthwiseRelu:
            return ConvolutionStep(ArmAConvolvedwRelu3x3s1ChwQ7, layer, 3);
        case LayerKind::kMaxPool1:
            return [=, &s] {
                ArmAMaxpoolK2x2S1x1ChwQ7(s.src.data(), size, size, channels, s.dst.data(), nullptr);
            };
        case LayerKind::kMaxPool2:
            return [=, &s] {
                ArmAMaxPool2x2S2ChwQ7(s.src.data(), s.dst.data(), size, size, channels, 0, nullptr);
            };
        case LayerKind::kSample:
            return [=, &s] {
                ArmADownsample(s.src.data(), size, size, channels, s.dst.data(), nullptr);
            };
        case LayerKind::kRectify:
            return [=, &s, count = uint32_t{1} * channels * size * size] {
                ArmAReluChwQ7(s.dst.data(), s.dst.data(), count);
            };
        case LayerKind::kAdd:
            return [=, &s, outChannels = static_cast<uint16_t>(layer.outChannels)] {
                ArmAZpadPlusChwQ7(s.src.data(), s.shortcut.data(), s.dst.data(), 1, 0, 1, size,
                                  size, outChannels, channels, nullptr);
            };
        case LayerKind::kAverage:
            return [=, &s] {
                ArmAGapQ7Chw(s.src.data(), size, size, channels, 3, nullptr, s.dst.data());
            };
        case LayerKind::kGlobal:
            return GlobalStep(layer);
        case LayerKind::kFullyConnected:
            return FullyConnectedStep(layer);
        case LayerKind::kNormalise:
            return [=, &s] { ArmAL2Norm(s.src.data(), channels, s.floats.data()); };
    }
    throw std::invalid_argument("no such layer");
}

} // namespace orvo_bench
