// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/pack_models/key_file.h"
#include "tools/pack_models/layers.h"
#include "tools/pack_models/model_file.h"

namespace orvo::pack {

// Where a model's arrays are declared, and what their names begin with.
struct StoreNames {
    std::string model;  // "align", "fr" or "find"
    std::string header; // that declares them
    std::string space;  // namespace that they are in; none where they are exported
};

// The C++ source that defines a model's arrays, enciphered, and its key material.
//
// keys        the model's own
// wrappingKey the key of the white-box tables, under which the model's key is wrapped
std::string ModelStoreSource(const StoreNames& names, std::span<const Layer> layers,
                             const std::vector<LayerParameters>& parameters, const ModelKeys& keys,
                             const Block& wrappingKey);

std::string DecryptTableSource(const std::vector<uint32_t>& table);
std::string EncryptTableSource(const std::vector<uint32_t>& table);

} // namespace orvo::pack
