// SPDX-License-Identifier: MIT
#include "bench/own_layers.h"
#include "bench/peers/peer.h"

namespace orvo_bench {
namespace {

std::vector<PeerStep> Steps(const Network& network) {
    std::vector<PeerStep> steps;
    for (const Layer& layer : network) {
        steps.push_back({KindName(layer.kind), OwnStep(layer)});
    }
    return steps;
}

} // namespace

Peer OwnLayers() { return {"own", Steps(AlignNetwork()), Steps(RecognitionNetwork())}; }

} // namespace orvo_bench
