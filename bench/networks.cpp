// SPDX-License-Identifier: MIT
#include "bench/networks.h"

namespace orvo_bench {
namespace {

using enum LayerKind;

// Grows a network from its input; each layer takes up the shape that the one before it left.
struct Builder {
    int channels;
    int size;
    Network layers = {};
    int shortcutChannels = 0;

    void to(LayerKind kind, int outChannels) {
        layers.push_back({kind, channels, size, outChannels});
        size = OutSize(layers.back());
        channels = outChannels;
    }
    void same(LayerKind kind) { to(kind, channels); }
    void keep() {
        layers.back().keep = true;
        shortcutChannels = channels;
    }
    void add() { layers.push_back({kAdd, shortcutChannels, size, channels}); }
};

void AlignBlock(Builder& net, int width) {
    net.keep();
    net.to(kPointwise, width / 2);
    net.same(kDepthwiseRelu);
    net.to(kPointwise, width);
    net.same(kDepthwise);
    net.add();
}

// The maximum, a filter and every second pixel: halves the plane.
void Reduce(Builder& net) {
    net.same(kMaxPool1);
    net.same(kDepthwise);
    net.same(kSample);
    net.same(kRectify);
}

void ExpandAndReduce(Builder& net, int width) {
    net.to(kPointwise, width);
    net.same(kRectify);
    net.same(kDepthwise);
    Reduce(net);
}

void RecognitionBlock(Builder& net, int width) {
    net.keep();
    net.to(kPointwise, 2 * width);
    net.same(kRectify);
    net.same(kDepthwiseRelu);
    net.to(kPointwise, width);
    net.add();
}

} // namespace

Network AlignNetwork() {
    Builder net{1, 24};
    net.to(kConvolution, 32);
    for (int width = 36; width <= 68; width += 4) {
        AlignBlock(net, width);
        if (width == 44 || width == 56) {
            net.same(kMaxPool2);
        }
    }
    net.same(kAverage);
    net.to(kFullyConnected, 4);
    return net.layers;
}

Network RecognitionNetwork() {
    Builder net{3, 96};
    net.to(kConvolution, 32);
    Reduce(net);
    net.same(kDepthwiseRelu);
    ExpandAndReduce(net, 64);
    net.to(kPointwise, 32);
    for (int block = 0; block < 4; ++block) {
        RecognitionBlock(net, 32);
    }
    ExpandAndReduce(net, 128);
    net.to(kPointwise, 64);
    for (int block = 0; block < 6; ++block) {
        RecognitionBlock(net, 64);
    }
    ExpandAndReduce(net, 256);
    net.to(kPointwise, 64);
    for (int block = 0; block < 2; ++block) {
        RecognitionBlock(net, 64);
    }
    net.to(kPointwise, 256);
    net.same(kRectify);
    net.same(kGlobal);
    net.to(kFullyConnected, 128);
    net.same(kNormalise);
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
