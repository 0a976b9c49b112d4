// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace orvo::pack {

// What a layer computes, and with it the shape of its weights and the order its kernel reads them.
enum class LayerKind {
    kConvolution,    // [out, in, 3, 3]
    kPointwise,      // [out, in, 1, 1]
    kDepthwise,      // [channels, 1, 3, 3]
    kGlobal,         // [channels, 1, 6, 6]
    kFullyConnected, // [out, in]
};

// One parametric layer. Numbers are those of the trained graph, in which layers without
// parameters count too.
struct Layer {
    int number;
    LayerKind kind;
    int in;
    int out;
};

std::span<const Layer> AlignLayers();
std::span<const Layer> FrLayers();
std::span<const Layer> FindLayers();

// The shape of a layer's weights in a model file.
std::vector<int64_t> WeightShape(const Layer& layer);

// The names of a layer's tensors in a model file.
std::string WeightName(const Layer& layer);
std::string BiasName(const Layer& layer);

} // namespace orvo::pack
