// SPDX-License-Identifier: MIT
//
// The shapes of both networks, layer by layer in the order in which they run. Times depend on
// nothing else: requantisation shifts and weights are whatever a benchmark likes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvo_bench {

enum class LayerKind {
    kConvolution,   // 3 x 3, padded
    kPointwise,     // 1 x 1
    kDepthwise,     // 3 x 3, padded
    kDepthwiseRelu, // the same with a rectifier
    kMaxPool1,      // 2 x 2 maximum, stride 1
    kMaxPool2,      // 2 x 2 maximum, stride 2
    kSample,        // every second pixel of every second row
    kRectify,
    kAdd,     // channels: the shortcut's, outChannels: the result's
    kAverage, // of each plane
    kGlobal,  // one filter of the plane's size a channel
    kFullyConnected,
    kNormalise, // to unit length
};

struct Layer {
    LayerKind kind;
    int channels;
    int size; // width and height of the input
    int outChannels;
    bool keep = false; // the output is the shortcut of the next addition
};

using Network = std::vector<Layer>;

Network AlignNetwork();
Network RecognitionNetwork();

int OutSize(const Layer& layer);
// Multiply-adds; 0 where a layer has none worth counting.
uint64_t Products(const Layer& layer);

// The layer's name and shape, such as "pw 64x24x24>32". Equal names are equal work.
std::string ShapeName(const Layer& layer);
// The wider class that tables sum over: conv, pw, dw, maxpool, ds, relu, add or head.
std::string KindName(LayerKind kind);

} // namespace orvo_bench
