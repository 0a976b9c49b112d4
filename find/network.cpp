// SPDX-License-Identifier: MIT
//
// Separable convolutions: a depthwise filter, a pointwise one with a rectifier, again and again. The
// planes shrink twice by a maximum. Behind the fifth pair of stride 8 and the fourth of stride 16
// stands a head each, whose last layer answers for every 8 x 8 and 16 x 16 pixels of the picture.
//
// Where things lie, in units of a plane of stride 4 (16 of them are a picture):
//
//     0         16        32        48        64
//     | A       | A'      | B       | B'      |
//
// At stride 4 an output of 32 planes takes A with A' or B with B'. At stride 8 a quarter of these
// bytes makes a plane, so that 64 planes fit each of the four, and there is room for what stride 16
// starts from, in A, and for the answers, in A'.
#include "find/network.h"

#include <cstddef>

#include "find/trunk.h"

namespace orvo::find {

static_assert(kLayers[15].outputs == kAnswerPlanes && kLayers[26].outputs == kAnswerPlanes);

uint32_t NetworkOutputBytes(Size padded) {
    return static_cast<uint32_t>(kQuarters * QuarterBytes(kFirstsQuarter, padded));
}

uint32_t NetworkScratchBytes(Size padded) { return ScratchBytes(kFirstNetwork, padded); }

Answers RunNetwork(Size padded, const NetworkMemory& memory) {
    const Planes net{padded, memory.scratch};
    const size_t quarterBytes = QuarterBytes(kFirstsQuarter, padded);
    int8_t* const A = memory.outputs;
    int8_t* const A2 = A + quarterBytes;
    int8_t* const B = A2 + quarterBytes;
    int8_t* const B2 = B + quarterBytes;
    int8_t* const answer8 = A2;
    int8_t* const answer16 =
        A2 + static_cast<ptrdiff_t>(kAnswerPlanes) * net.width(8) * net.height(8);

    const Tensor kept = Trunk(net, 0, 13, A, B);

    // What stride 8 answers
    Tensor t = net.layer(13, kept, B);
    t = net.rectify(net.layer(14, t, B2));
    net.layer(15, t, answer8);

    // Stride 16
    t = net.maxPool(kept, B);
    t = net.layer(16, t, B2);
    t = net.rectify(net.layer(17, t, A));
    t = net.layer(18, t, B);
    t = net.rectify(net.layer(19, t, A));
    t = net.layer(20, t, B);
    t = net.rectify(net.layer(21, t, A));
    t = net.layer(22, t, B);
    t = net.rectify(net.layer(23, t, A));

    // What stride 16 answers
    t = net.layer(24, t, B);
    t = net.rectify(net.layer(25, t, A));
    net.layer(26, t, answer16);
    return {answer8, answer16};
}

} // namespace orvo::find
