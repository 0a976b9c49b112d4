// SPDX-License-Identifier: MIT
//
// The two depthwise kernels and a shape for them, for the tests of their results and of their
// padding.
#pragma once

#include "compute_a/chw_case.h"

namespace orvo_test {

// The two kernels: their results differ in the rectifier, their diagnostics in everything.
struct Kernel {
    const ChwSubject* subject;
    bool rectify;
    bool boundIsCount; // the destination size given to a bounded call is its count
    const char* unit;
    int topLine, leftLine, rowLine, rightLine, bottomLine;
    const char* rowFunction;
};

inline const Kernel kPlain = {
    &kDepthwiseConv, false, true, "../compute_a/convolutiondepthwise_3x3_int8", 73, 81, 85, 90, 97,
    "memset_s"};
inline const Kernel kRelu = {
    &kDepthwiseReluConv, true, false, "../compute_a/arma_dwconv", 66, 77, 85, 94, 104, "memcpy_s"};

inline ConvShape Shape(int width, int height, int channels, int pad) {
    ConvShape s;
    s.srcWidth = width;
    s.srcHeight = height;
    s.srcChannels = s.dstChannels = channels;
    s.kernelSize = 3;
    s.pad = pad;
    s.dstWidth = width + 2 * pad - 2;
    s.dstHeight = height + 2 * pad - 2;
    s.outShift = LivelyShift(9);
    return s;
}

} // namespace orvo_test
