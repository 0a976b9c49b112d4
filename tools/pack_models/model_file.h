// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/pack_models/layers.h"

namespace orvo::pack {

// The plain parameters of one layer, in natural order.
struct LayerParameters {
    std::vector<int32_t> weights; // each in [-128, 127]
    std::vector<int32_t> biases;
};

// Reads a model from a safetensors file: exactly one weight and one bias tensor a layer, of any
// signed integer type, in range. Returns them in the order of `layers`.
std::vector<LayerParameters> ReadModel(const std::string& path, std::span<const Layer> layers);

} // namespace orvo::pack
