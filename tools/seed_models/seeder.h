// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <span>

#include "tools/pack_models/layers.h"
#include "tools/pack_models/model_file.h"
#include "tools/seed_models/q7_batch.h"
#include "tools/seed_models/random.h"

namespace orvo::seed {

// Draws a network's parameters layer by layer, in the order in which the network runs. Each
// channel's weights are scaled, and its bias chosen, from what the layer is given for the pictures
// at hand, so that activations neither die out nor saturate.
class Seeder {
  public:
    Seeder(std::span<const pack::Layer> layers, uint64_t seed) : layers_(layers), random_(seed) {}

    // Draws layer `number`, whose results are shifted right by `shift`, and runs it. A channel's
    // results get about the given spread (standard deviation) around its centre.
    Batch Run(const Batch& in, int number, int shift, double spread,
              std::span<const double> centres = {});

    const std::map<int, pack::LayerParameters>& parameters() const { return parameters_; }

  private:
    std::vector<double> DrawWeights(const pack::Layer& layer);

    std::span<const pack::Layer> layers_;
    Random random_;
    std::map<int, pack::LayerParameters> parameters_;
};

} // namespace orvo::seed
