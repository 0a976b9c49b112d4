// SPDX-License-Identifier: MIT
//
// Models in safetensors, as the packer reads them: a network of three small layers, so that a whole model is
// a short input. What is taken has the shapes that were asked for, and is packed.
#include <cstring>

#include "memory_file.h"
#include "require.h"
#include "tools/pack_models/model_file.h"
#include "tools/pack_models/pack_error.h"
#include "tools/pack_models/packing.h"

namespace {

using orvo::pack::Layer;
using orvo::pack::LayerKind;

constexpr Layer kLayers[] = {{0, LayerKind::kPointwise, 4, 4},
                             {2, LayerKind::kDepthwise, 1, 1},
                             {5, LayerKind::kFullyConnected, 2, 5}};

void Check(const Layer& layer, const orvo::pack::LayerParameters& parameters) {
    size_t weights = 1;
    for (const int64_t extent : orvo::pack::WeightShape(layer)) {
        weights *= static_cast<size_t>(extent);
    }
    orvo_fuzz::Require(parameters.weights.size() == weights, "all weights are there");
    orvo_fuzz::Require(parameters.biases.size() == static_cast<size_t>(layer.out),
                       "so are the biases");
    orvo_fuzz::Require(orvo::pack::PackWeights(layer, parameters.weights).size() ==
                           orvo::pack::PackedWeightSize(layer),
                       "weights are packed to their size");
    orvo_fuzz::Require(
        orvo::pack::PackBiases(parameters.biases).size() == 4 * parameters.biases.size(),
        "biases are packed to theirs");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const orvo_fuzz::MemoryFile file;
    file.Write({data, size});
    try {
        const auto parameters = orvo::pack::ReadModel(file.path(), kLayers);
        for (size_t i = 0; i < parameters.size(); ++i) {
            Check(kLayers[i], parameters[i]);
        }
    } catch (const orvo::pack::PackError& error) {
        orvo_fuzz::Require(std::strchr(error.what(), '\n') == nullptr, "a message is one line");
    }
    return 0;
}
