// SPDX-License-Identifier: MIT
//
// What all networks begin with: patches, two pairs of a depthwise and a pointwise layer at stride 4,
// a maximum, more pairs at stride 8. They lie in A and in B, each with the quarter behind it.
#pragma once

#include "find/layers.h"

namespace orvo::find {

// Runs the layers from number `first` to the one before `end`, on patches in A. The tensor that the
// rest of the network begins with lies in A.
inline Tensor Trunk(const Planes& net, int32_t first, int32_t end, int8_t* A, int8_t* B) {
    Tensor t = {A, kLayers[first].inputs, kLayers[first].stride};
    ArmAXorQ7(reinterpret_cast<uint8_t*>(A),
              int32_t{t.channels} * net.width(t.stride) * net.height(t.stride));

    // Stride 4
    t = net.rectify(net.layer(first, t, B));
    t = net.layer(first + 1, t, A);
    t = net.rectify(net.layer(first + 2, t, B));
    t = net.layer(first + 3, t, A);
    t = net.layer(first + 4, t, B);
    t = net.rectify(net.maxPool(t, A));

    // Stride 8
    for (int32_t pair = first + 5; pair < end; pair += 2) {
        t = net.layer(pair, t, B);
        t = net.rectify(net.layer(pair + 1, t, A));
    }
    return t;
}

} // namespace orvo::find
