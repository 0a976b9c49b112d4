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

#include <cstddef>

#include "find/trunk.h"

namespace orvo::find {

static_assert(kLayers[50].outputs == kAnswerPlanes && kLayers[50].stride == kHeatStride);
static_assert(kLayers[59].outputs == kAnswerPlanes);

constexpr size_t kQuarterBytes = QuarterBytes(kSecondsQuarter, kLookSize);
static_assert(2 * size_t{kLayers[59].inputs} <= kQuarterBytes);

uint32_t LookOutputBytes() { return kQuarters * kQuarterBytes; }

uint32_t LookScratchBytes() {
    constexpr uint32_t kBytes = ScratchBytes(kSecondNetwork, kLookSize);
    return kBytes;
}

LookAnswers RunLookNetwork(const NetworkMemory& memory) {
    const Planes net{kLookSize, memory.scratch};
    int8_t* const A = memory.outputs;
    int8_t* const A2 = A + kQuarterBytes;
    int8_t* const B = A2 + kQuarterBytes;
    int8_t* const B2 = B + kQuarterBytes;
    int8_t* const behind8 = A2 + ptrdiff_t{kLayers[51].outputs} * net.width(8) * net.height(8);
    int8_t* const heat = A2 + kQuarterBytes / 2;

    const Tensor kept = Trunk(net, 27, 46, A, B);

    // Where each point is
    Tensor t = net.layer(46, kept, B);
    t = net.rectify(net.layer(47, t, B2));
    t = net.layer(48, t, B);
    t = net.rectify(net.layer(49, t, B2));
    net.layer(50, t, heat);

    net.rectify(net.layer(51, kept, A2));

    // Stride 16
    t = net.maxPool(kept, B);
    t = net.layer(52, t, B2);
    t = net.rectify(net.layer(53, t, A));
    t = net.layer(54, t, B);
    t = net.rectify(net.layer(55, t, A));
    t = net.layer(56, t, B);
    t = net.rectify(net.layer(57, t, A));
    net.rectify(net.layer(58, t, behind8));

    // The rest
    const Layer& last = kLayers[59];
    ArmAFcQ7(A2, last.weights, last.inputs, last.outputs, last.shift, last.bias, B, memory.scratch);
    return {heat, B};
}

} // namespace orvo::find
