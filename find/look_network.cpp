// SPDX-License-Identifier: MIT
//
// The same separable convolutions as in the network that finds faces, on one face. Behind stride 8 stands
// a head that answers where the points are. Behind stride 8 and stride 16 a layer each leaves few planes,
// all of whose values the last layer reads.
//
//     0         16        32        48        64
//     | A       | A'      | B       | B'      |
//
// The quarters are used as in network.cpp. In A' lie the values for the last layer, those of stride 8
// before those of stride 16, and in its second half the heat.
#include "find/look_network.h"

#include <algorithm>
#include <cstddef>

#include "find/trunk.h"

namespace orvo::find {

static_assert(kLayers[50].outputs == kAnswerPlanes && kLayers[50].stride == kHeatStride);
static_assert(kLayers[59].outputs == kAnswerPlanes);
static_assert(kSecondNetwork.front().number == static_cast<int32_t>(LookNetwork::kWide));
static_assert(kThirdNetwork.front().number == static_cast<int32_t>(LookNetwork::kClose));

constexpr size_t kQuarterBytes = QuarterBytes(kSecondsQuarter, kLookSize);
static_assert(2 * size_t{kLayers[59].inputs} <= kQuarterBytes);

uint32_t LookOutputBytes() { return kQuarters * kQuarterBytes; }

uint32_t LookScratchBytes() {
    constexpr uint32_t kBytes =
        std::max(ScratchBytes(kSecondNetwork, kLookSize), ScratchBytes(kThirdNetwork, kLookSize));
    return kBytes;
}

// The numbers are the wide network's; those of the close one are as many further on.
LookAnswers RunLookNetwork(LookNetwork network, const NetworkMemory& memory) {
    const int32_t further =
        static_cast<int32_t>(network) - static_cast<int32_t>(LookNetwork::kWide);
    const Planes net{kLookSize, memory.scratch};
    const auto layer = [&](int32_t number, const Tensor& src, int8_t* dst) {
        return net.layer(number + further, src, dst);
    };
    int8_t* const A = memory.outputs;
    int8_t* const A2 = A + kQuarterBytes;
    int8_t* const B = A2 + kQuarterBytes;
    int8_t* const B2 = B + kQuarterBytes;
    int8_t* const behind8 = A2 + ptrdiff_t{kLayers[51].outputs} * net.width(8) * net.height(8);
    int8_t* const heat = A2 + kQuarterBytes / 2;

    const Tensor kept = Trunk(net, 27 + further, 46 + further, A, B);

    // Where each point is
    Tensor t = layer(46, kept, B);
    t = net.rectify(layer(47, t, B2));
    t = layer(48, t, B);
    t = net.rectify(layer(49, t, B2));
    layer(50, t, heat);

    net.rectify(layer(51, kept, A2));

    // Stride 16
    t = net.maxPool(kept, B);
    t = layer(52, t, B2);
    t = net.rectify(layer(53, t, A));
    t = layer(54, t, B);
    t = net.rectify(layer(55, t, A));
    t = layer(56, t, B);
    t = net.rectify(layer(57, t, A));
    net.rectify(layer(58, t, behind8));

    // The rest
    const Layer& last = kLayers[59 + further];
    ArmAFcQ7(A2, last.weights, last.inputs, last.outputs, last.shift, last.bias, B, memory.scratch);
    return {heat, B};
}

} // namespace orvo::find
