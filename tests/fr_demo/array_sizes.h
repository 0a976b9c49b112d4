// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <stdexcept>

#include "reference/reference_networks.h"

namespace orvo_test {

// Channels of a pointwise layer as they count for its array: 4k + 2 are stored as 4k + 10.
inline size_t StoredChannels(int channels) {
    return static_cast<size_t>(channels % 4 == 2 ? channels + 8 : channels);
}

// Bytes of a layer's weight array.
inline size_t WeightsSize(const orvo_reference::Layer& layer) {
    using enum orvo_reference::LayerKind;
    const auto in = static_cast<size_t>(layer.inChannels);
    const auto out = static_cast<size_t>(layer.outChannels);
    switch (layer.kind) {
        case kConvolution:
            return in * out * 9 + 8;
        case kPointwise:
            return StoredChannels(layer.inChannels) * StoredChannels(layer.outChannels);
        case kDepthwise:
            return out * 9;
        case kGlobal:
            return out * 36;
        case kFullyConnected:
            return in * out;
    }
    throw std::logic_error("no such kind of layer");
}

// Bytes of a layer's bias array.
inline size_t BiasSize(const orvo_reference::Layer& layer) {
    return static_cast<size_t>(layer.outChannels) * 4;
}

} // namespace orvo_test
