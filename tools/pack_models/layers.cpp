// SPDX-License-Identifier: MIT
#include "tools/pack_models/layers.h"

#include "orvo/find_layers.h"
#include "orvo/network_layers.h"

namespace orvo::pack {
namespace {

using enum LayerKind;

// A rectifier changes nothing in how weights are stored.
constexpr LayerKind kDepthwiseRelu = kDepthwise;

#define ORVO_LAYER(kind, number, inputs, side, outputs, shift) {number, k##kind, inputs, outputs},

constexpr Layer kAlignLayers[] = {ORVO_ALIGN_NETWORK(ORVO_LAYER, ORVO_NO_LAYER, ORVO_NO_LAYER)};
constexpr Layer kFrLayers[] = {ORVO_FR_NETWORK(ORVO_LAYER, ORVO_NO_LAYER, ORVO_NO_LAYER)};
constexpr Layer kFindLayers[] = {ORVO_FIND_NETWORK(ORVO_LAYER, ORVO_NO_LAYER) ORVO_LOOK_NETWORK(
    ORVO_LAYER, ORVO_NO_LAYER) ORVO_CLOSE_NETWORK(ORVO_LAYER, ORVO_NO_LAYER)};

} // namespace

std::span<const Layer> AlignLayers() { return kAlignLayers; }

std::span<const Layer> FrLayers() { return kFrLayers; }

std::span<const Layer> FindLayers() { return kFindLayers; }

std::vector<int64_t> WeightShape(const Layer& layer) {
    switch (layer.kind) {
        case kConvolution:
            return {layer.out, layer.in, 3, 3};
        case kPointwise:
            return {layer.out, layer.in, 1, 1};
        case kDepthwise:
            return {layer.out, 1, 3, 3};
        case kGlobal:
            return {layer.out, 1, 6, 6};
        case kFullyConnected:
            break;
    }
    return {layer.out, layer.in};
}

std::string WeightName(const Layer& layer) { return std::to_string(layer.number) + ".weight"; }

std::string BiasName(const Layer& layer) { return std::to_string(layer.number) + ".bias"; }

} // namespace orvo::pack
