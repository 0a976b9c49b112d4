// SPDX-License-Identifier: MIT
#include "bench/peers/peer.h"

namespace orvo_bench {

std::vector<FusedLayer> Fuse(const Network& network) {
    std::vector<FusedLayer> fused;
    for (const Layer& layer : network) {
        switch (layer.kind) {
            case LayerKind::kRectify:
                fused.back().rectified = true;
                break;
            case LayerKind::kSample:
                fused.back().stride = 2;
                break;
            default:
                fused.push_back({layer, layer.kind == LayerKind::kDepthwiseRelu});
        }
    }
    return fused;
}

} // namespace orvo_bench
