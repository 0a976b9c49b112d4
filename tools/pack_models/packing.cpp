// SPDX-License-Identifier: MIT
#include "tools/pack_models/packing.h"

namespace orvo::pack {
namespace {

// A first layer's array carries 8 bytes behind its filters.
constexpr size_t kFirstLayerExtra = 8;

// The channel count that a pointwise array reserves room for.
size_t StoredChannels(int channels) {
    const auto count = static_cast<size_t>(channels);
    return channels % 4 == 2 ? count + 8 : count;
}

// Where the convolution kernels look for a weight: four output channels are woven together, and
// every group of four, as well as every single channel left over, starts `groupSize` bytes behind
// the one before.
std::vector<uint8_t> Interleave(const std::vector<int32_t>& weights, size_t channels,
                                size_t perChannel, size_t groupSize, size_t arraySize) {
    std::vector<uint8_t> packed(arraySize, 0);
    const size_t groups = channels / 4;
    for (size_t p = 0; p < channels; ++p) {
        const bool woven = p < 4 * groups;
        const size_t start = woven ? groupSize * (p / 4) + p % 4 : groupSize * (groups + p % 4);
        const size_t step = woven ? 4 : 1;
        for (size_t k = 0; k < perChannel; ++k) {
            packed.at(start + step * k) = static_cast<uint8_t>(weights.at(p * perChannel + k));
        }
    }
    return packed;
}

} // namespace

size_t PackedWeightSize(const Layer& layer) {
    const auto in = static_cast<size_t>(layer.in);
    const auto out = static_cast<size_t>(layer.out);
    switch (layer.kind) {
        case LayerKind::kConvolution:
            return out * in * 9 + kFirstLayerExtra;
        case LayerKind::kPointwise:
            return StoredChannels(layer.in) * StoredChannels(layer.out);
        case LayerKind::kDepthwise:
            return out * 9;
        case LayerKind::kGlobal:
            return out * 36;
        case LayerKind::kFullyConnected:
            break;
    }
    return out * in;
}

std::vector<uint8_t> PackWeights(const Layer& layer, const std::vector<int32_t>& weights) {
    const auto in = static_cast<size_t>(layer.in);
    const auto out = static_cast<size_t>(layer.out);
    const size_t size = PackedWeightSize(layer);
    switch (layer.kind) {
        case LayerKind::kConvolution:
            return Interleave(weights, out, 9 * in, 4 * 9 * in, size);
        case LayerKind::kPointwise:
            return Interleave(weights, out, in, 16 * (in / 4 + in % 4), size);
        case LayerKind::kDepthwise:
        case LayerKind::kGlobal:
        case LayerKind::kFullyConnected:
            break;
    }
    return {weights.begin(), weights.end()};
}

std::vector<uint8_t> PackBiases(const std::vector<int32_t>& biases) {
    std::vector<uint8_t> packed;
    packed.reserve(4 * biases.size());
    for (const int32_t bias : biases) {
        const auto value = static_cast<uint32_t>(bias);
        for (unsigned shift = 0; shift < 32; shift += 8) {
            packed.push_back(static_cast<uint8_t>(value >> shift));
        }
    }
    return packed;
}

} // namespace orvo::pack
