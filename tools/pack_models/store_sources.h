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

// The C++ source that defines a model's arrays, enciphered, and its key material.
//
// model       what the names begin with: "align" or "fr"
// keys        the model's own
// wrappingKey the key of the white-box tables, under which the model's key is wrapped
std::string ModelStoreSource(const std::string& model, std::span<const Layer> layers,
                             const std::vector<LayerParameters>& parameters, const ModelKeys& keys,
                             const Block& wrappingKey);

std::string DecryptTableSource(const std::vector<uint32_t>& table);
std::string EncryptTableSource(const std::vector<uint32_t>& table);

} // namespace orvo::pack
