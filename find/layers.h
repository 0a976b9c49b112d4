// SPDX-License-Identifier: MIT
//
// The layers of all networks, and their calls. A network's outputs lie in quarters of its memory.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>

#include "find/levels.h"
#include "find/model.h"
#include "orvo/q7_kernels.h"

namespace orvo::find {

enum class Kind { Pointwise, Depthwise, FullyConnected };

struct Layer {
    int32_t number;
    Kind kind;
    uint16_t inputs, stride, outputs, shift;
    const int8_t* weights;
    const int32_t* bias;
};

#define ORVO_LAYER(kind, number, inputs, stride, outputs, shift) \
    {number, Kind::kind, inputs, stride, outputs, shift, g_findWeights##number, g_findBias##number},

inline constexpr Layer kLayers[] = {ORVO_FIND_NETWORK(ORVO_LAYER, ORVO_NO_LAYER) ORVO_LOOK_NETWORK(
    ORVO_LAYER, ORVO_NO_LAYER) ORVO_CLOSE_NETWORK(ORVO_LAYER, ORVO_NO_LAYER)};
#undef ORVO_LAYER

#define ORVO_ONE_LAYER(...) +1
inline constexpr size_t kFirstsLayers = 0 ORVO_FIND_NETWORK(ORVO_ONE_LAYER, ORVO_NO_LAYER);
inline constexpr size_t kSecondsLayers = 0 ORVO_LOOK_NETWORK(ORVO_ONE_LAYER, ORVO_NO_LAYER);
#undef ORVO_ONE_LAYER

using Layers = std::span<const Layer>;
inline constexpr Layers kFirstNetwork = Layers(kLayers).first(kFirstsLayers);
inline constexpr Layers kSecondNetwork = Layers(kLayers).subspan(kFirstsLayers, kSecondsLayers);
inline constexpr Layers kThirdNetwork = Layers(kLayers).subspan(kFirstsLayers + kSecondsLayers);

inline constexpr size_t kQuarters = 4;

constexpr bool EveryLayerStandsAtItsNumber() {
    int32_t number = 0;
    return std::all_of(std::begin(kLayers), std::end(kLayers),
                       [&](const Layer& layer) { return layer.number == number++; });
}
static_assert(EveryLayerStandsAtItsNumber());

// One function runs both networks that look, and one memory holds either's planes. They differ in the
// patches that they begin with.
constexpr bool TheThirdHasTheSecondsLayers() {
    return std::equal(kSecondNetwork.begin(), kSecondNetwork.end(), kThirdNetwork.begin(),
                      kThirdNetwork.end(), [](const Layer& a, const Layer& b) {
                          const bool isFirst = a.number == kSecondNetwork.front().number;
                          return a.kind == b.kind && (isFirst || a.inputs == b.inputs) &&
                                 a.stride == b.stride && a.outputs == b.outputs &&
                                 a.shift == b.shift;
                      });
}
static_assert(TheThirdHasTheSecondsLayers());

// How many quarters an output may take: a network begins with few layers of large planes.
constexpr size_t QuartersOf(const Layer& layer) { return layer.stride == 4 ? 2 : 1; }

// Bytes of each quarter for each pixel of the picture, in 256ths, so that every output has room.
constexpr size_t QuarterOf(Layers layers) {
    size_t most = 0;
    for (const Layer& layer : layers) {
        if (layer.kind != Kind::FullyConnected) {
            const size_t pixels = size_t{layer.stride} * layer.stride * QuartersOf(layer);
            most = std::max(most, layer.outputs * size_t{256} / pixels);
        }
    }
    return most;
}

inline constexpr size_t kFirstsQuarter = QuarterOf(kFirstNetwork);
inline constexpr size_t kSecondsQuarter = QuarterOf(kSecondNetwork);

// The patches that a network begins with lie in two quarters. Without overlapping they are a byte for
// each pixel.
constexpr bool PatchesHaveRoom(Layers layers, size_t quarter) {
    const Layer& first = layers.front();
    return first.inputs * size_t{256} / (size_t{first.stride} * first.stride) <= 2 * quarter;
}
static_assert(PatchesHaveRoom(kFirstNetwork, kFirstsQuarter));
static_assert(PatchesHaveRoom(kSecondNetwork, kSecondsQuarter));
static_assert(PatchesHaveRoom(kThirdNetwork, kSecondsQuarter));

// Planes keep their number and size in a depthwise layer.
constexpr bool EveryFilterHasItsPlane() {
    return std::all_of(std::begin(kLayers), std::end(kLayers), [](const Layer& layer) {
        return layer.kind != Kind::Depthwise || layer.inputs == layer.outputs;
    });
}
static_assert(EveryFilterHasItsPlane());

constexpr size_t QuarterBytes(size_t quarter, Size padded) {
    return quarter * static_cast<size_t>(padded.width) * static_cast<size_t>(padded.height) / 256;
}

// Planes of a picture's size divided by a stride.
struct Tensor {
    int8_t* data;
    uint16_t channels, stride;
};

// The steps on planes of a picture.
struct Planes {
    Size picture;
    int8_t* scratch;

    uint16_t width(uint16_t stride) const { return static_cast<uint16_t>(picture.width / stride); }
    uint16_t height(uint16_t stride) const {
        return static_cast<uint16_t>(picture.height / stride);
    }

    Tensor layer(int32_t number, const Tensor& src, int8_t* dst) const {
        const Layer& l = kLayers[number];
        const uint16_t w = width(l.stride);
        const uint16_t h = height(l.stride);
        if (l.kind == Kind::Pointwise) {
            ArmAConvolve1x1s1p0ChwQ7(src.data, w, h, l.inputs, l.weights, l.outputs, 1, 0, 1,
                                     l.bias, l.shift, dst, w, h, scratch);
        } else {
            arma_convolvedw_3x3_s1_chw_q7(src.data, w, h, l.inputs, l.weights, l.outputs, 3, 1, 1,
                                          l.bias, l.shift, dst, w, h, scratch);
        }
        return {dst, l.outputs, l.stride};
    }
    Tensor rectify(const Tensor& t) const {
        const uint32_t count = uint32_t{t.channels} * width(t.stride) * height(t.stride);
        ArmAReluChwQ7(t.data, t.data, count);
        return t;
    }
    Tensor maxPool(const Tensor& src, int8_t* dst) const {
        ArmAMaxPool2x2S2ChwQ7(src.data, dst, width(src.stride), height(src.stride), src.channels, 0,
                              scratch);
        return {dst, src.channels, static_cast<uint16_t>(2 * src.stride)};
    }
};

// What q7_kernels.h asks for.
constexpr size_t ScratchOf(const Layer& layer, Size padded) {
    const size_t w = static_cast<size_t>(padded.width / layer.stride);
    const size_t h = static_cast<size_t>(padded.height / layer.stride);
    if (layer.kind == Kind::FullyConnected) {
        return 0;
    }
    if (layer.kind == Kind::Depthwise) {
        return layer.inputs * (w + 2) * (h + 2);
    }
    const size_t n = w * h;
    return 32 * (layer.inputs / 4u + layer.inputs % 4u) * (n / 8 + n % 8 / 4 + n % 4);
}

constexpr uint32_t ScratchBytes(Layers layers, Size padded) {
    size_t most = 0;
    for (const Layer& layer : layers) {
        most = std::max(most, ScratchOf(layer, padded));
    }
    return static_cast<uint32_t>(most);
}

} // namespace orvo::find
