// SPDX-License-Identifier: MIT
#include "bench/networks.h"

#include "orvo/network_layers.h"

namespace orvo_bench {
namespace {

using enum LayerKind;

struct Keep {};
constexpr Keep kKeep;

struct Builder {
    Network layers = {};

    void layer(LayerKind kind, int channels, int side, int outChannels) {
        layers.push_back({kind, channels, side, outChannels});
    }
    void step(LayerKind kind, int channels, int side) { layer(kind, channels, side, channels); }
    // What is kept for an addition is marked where it comes from.
    void step(Keep, int, int) { layers.back().keep = true; }
};

#define ORVO_LAYER(kind, number, inputs, side, outputs, shift) \
    net.layer(k##kind, inputs, side, outputs);
#define ORVO_STEP(kind, channels, side, shift) net.step(k##kind, channels, side);
#define ORVO_ADD(channels, side, shortcutChannels, branchShift, shortcutShift, outShift) \
    net.layer(kAdd, shortcutChannels, side, channels);

} // namespace

Network AlignNetwork() {
    Builder net;
    ORVO_ALIGN_NETWORK(ORVO_LAYER, ORVO_STEP, ORVO_ADD)
    return net.layers;
}

Network RecognitionNetwork() {
    Builder net;
    ORVO_FR_NETWORK(ORVO_LAYER, ORVO_STEP, ORVO_ADD)
    return net.layers;
}

int OutSize(const Layer& layer) {
    switch (layer.kind) {
        case kMaxPool1:
            return layer.size - 1;
        case kMaxPool2:
            return layer.size / 2;
        case kSample:
            return (layer.size + 1) / 2;
        case kAverage:
        case kGlobal:
        case kFullyConnected:
            return 1;
        default:
            return layer.size;
    }
}

uint64_t Products(const Layer& layer) {
    const uint64_t values = uint64_t{1} * layer.outChannels * layer.size * layer.size;
    switch (layer.kind) {
        case kConvolution:
            return values * layer.channels * 9;
        case kPointwise:
        case kFullyConnected:
            return values * layer.channels;
        case kDepthwise:
        case kDepthwiseRelu:
            return values * 9;
        case kGlobal:
            return values;
        default:
            return 0;
    }
}

std::string ShapeName(const Layer& layer) {
    static const char* const names[] = {"conv", "pw",  "dw",  "dw+relu", "max1", "max2", "sample",
                                        "relu", "add", "gap", "global",  "fc",   "norm"};
    std::string name = names[static_cast<int>(layer.kind)];
    const std::string size = std::to_string(layer.size);
    name += " " + std::to_string(layer.channels) + "x" + size + "x" + size;
    if (layer.outChannels != layer.channels) {
        name += ">" + std::to_string(layer.outChannels);
    }
    return name;
}

std::string KindName(LayerKind kind) {
    switch (kind) {
        case kConvolution:
            return "conv";
        case kPointwise:
            return "pw";
        case kDepthwise:
        case kDepthwiseRelu:
            return "dw";
        case kMaxPool1:
        case kMaxPool2:
            return "maxpool";
        case kSample:
            return "ds";
        case kRectify:
            return "relu";
        case kAdd:
            return "add";
        default:
            return "head";
    }
}

} // namespace orvo_bench
