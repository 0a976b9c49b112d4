// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/pack_models/layers.h"

namespace orvo::pack {

// The length in bytes of a layer's weight array in the library.
size_t PackedWeightSize(const Layer& layer);

// Puts weights given in natural order into the order that the layer's kernel reads. Bytes that the
// kernel does not read are 0.
std::vector<uint8_t> PackWeights(const Layer& layer, const std::vector<int32_t>& weights);

// Biases as the library keeps them: 32-bit, little-endian.
std::vector<uint8_t> PackBiases(const std::vector<int32_t>& biases);

} // namespace orvo::pack
