// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "reference/reference_layers.h"

// Both networks, step by step over plain definitions of their operations and weights in natural
// order (output channel, input channel, kernel row, kernel column).
namespace orvo_reference {

struct LayerParameters {
    std::vector<int8_t> weights;
    std::vector<int32_t> bias;
};

// The parameters by layer number.
using Model = std::map<int, LayerParameters>;

// Random parameters, the same on every machine, of a scale that keeps the activations alive and
// mostly unsaturated: the weights of a layer with dot products of length K spread by
// gain * 2^outShift / sqrt(K), as far as 8 bits allow.
Model SeededModel(const std::vector<Layer>& layers, uint64_t seed, double gain);
Model SeededAlignModel();
Model SeededFrModel();

// Grey levels for a network's input. Picture 0 is smooth, picture 1 is noise; the planes differ.
inline constexpr int kPictures = 2;
std::vector<uint8_t> SeededPicture(int picture, int planes, int size);

// Called after every step with its number and the bytes of its output.
using AfterStep = std::function<void(int step, const void* output, size_t size)>;

// 24 x 24 grey levels to four signed bytes.
std::array<int8_t, 4> RunAlign(const Model& model, const std::vector<uint8_t>& picture,
                               const AfterStep& afterStep);
// Three planes of 96 x 96 grey levels to a feature.
std::array<float, 128> RunFr(const Model& model, const std::vector<uint8_t>& picture,
                             const AfterStep& afterStep);

} // namespace orvo_reference
