// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "find/model.h"
#include "reference/reference_conv.h"
#include "reference/reference_find_network.h"

namespace orvo_test {

inline const ModelArray& FindArray(const std::string& name) {
    for (const ModelArray& array : orvo::find::g_findArray) {
        if (name == array.name) {
            return array;
        }
    }
    throw std::runtime_error("no array " + name);
}

inline std::vector<int8_t> PackedWeights(const orvo_reference::Layer& layer,
                                         const std::vector<int8_t>& natural) {
    if (layer.kind != orvo_reference::LayerKind::kPointwise) {
        return natural;
    }
    std::vector<int8_t> packed(natural.size());
    orvo_reference::PackPointwiseWeights(natural.data(), layer.outChannels, layer.inChannels,
                                         packed.data(), packed.size());
    return packed;
}

// Writes natural-order parameters straight into the library's arrays, in each kernel's order.
inline void Install(const orvo_reference::Model& model) {
    for (const orvo_reference::Layer& layer : orvo_reference::FindLayers()) {
        const orvo_reference::LayerParameters& p = model.at(layer.number);
        const std::string number = std::to_string(layer.number);
        const ModelArray& weights = FindArray("g_findWeights" + number);
        const ModelArray& bias = FindArray("g_findBias" + number);
        const std::vector<int8_t> packed = PackedWeights(layer, p.weights);
        if (weights.size != packed.size() || bias.size != 4 * p.bias.size()) {
            throw std::runtime_error("layer " + number + " has another size");
        }
        std::memcpy(weights.data, packed.data(), packed.size());
        std::memcpy(bias.data, p.bias.data(), bias.size);
    }
}

} // namespace orvo_test
