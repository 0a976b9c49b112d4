// SPDX-License-Identifier: MIT
//
// Depthwise 3 x 3 convolution without rectifier; see depthwise_3x3.h.
#include "common/diagnostics.h"
#include "compute_a/depthwise_3x3.h"
#include "orvo/bounded_memory.h"
#include "orvo/q7_kernels.h"

namespace {

constexpr char kUnit[] = "../compute_a/convolutiondepthwise_3x3_int8";

// The lines that the failures are reported with are fixed, as is the wording: a failed copy is
// reported as a fill, and the size bound is the byte count itself.
void Report(int ret, int line) {
    if (ret != 0) {
        ORVO_ERR_AT(kUnit, line, "memset_s dst failed: %d\n", ret);
    }
}

// Writes `count` zeros and returns the position after them, written or not.
int8_t* PutZeros(int8_t* to, size_t count, int line) {
    Report(memset_s(to, count, 0, count), line);
    return to + count;
}

// Copies the planes into zero-bordered ones. Goes on after a failure.
void PadPlanes(const int8_t* src, const orvo::DepthwiseGeometry& g, int8_t* to) {
    for (size_t c = 0; c < g.srcChannels; ++c) {
        for (size_t y = 0; y < g.pad; ++y) {
            to = PutZeros(to, g.paddedWidth(), 73);
        }
        for (size_t y = 0; y < g.srcHeight; ++y) {
            to = PutZeros(to, g.pad, 81);
            Report(memcpy_s(to, g.srcWidth, src, g.srcWidth), 85);
            to = PutZeros(to + g.srcWidth, g.pad, 90);
            src += g.srcWidth;
        }
        for (size_t y = 0; y < g.pad; ++y) {
            to = PutZeros(to, g.paddedWidth(), 97);
        }
    }
}

} // namespace

void arma_convolvedw_3x3_s1_chw_q7(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,
                                   uint16_t srcChannels, const int8_t* weights,
                                   uint16_t dstChannels, uint16_t kernelSize, uint16_t pad,
                                   uint16_t stride, const int32_t* bias, uint16_t outShift,
                                   int8_t* dst, uint16_t dstWidth, uint16_t dstHeight,
                                   int8_t* tmpBuffer) {
    if (!orvo::IsDepthwise3x3s1(kernelSize, stride)) {
        return;
    }
    const orvo::DepthwiseGeometry geometry{srcWidth, srcHeight, srcChannels, pad,
                                           dstWidth, dstHeight, dstChannels};
    if (orvo::ConvolveInPlaceOfPadding(src, geometry, weights, bias, outShift, INT8_MIN, dst)) {
        return;
    }
    if (pad > 0) {
        PadPlanes(src, geometry, tmpBuffer);
        src = tmpBuffer;
    }
    orvo::ConvolveDepthwise3x3(src, geometry, weights, bias, outShift, INT8_MIN, dst);
}
