// SPDX-License-Identifier: MIT
//
// Depthwise 3 x 3 convolution without rectifier; see depthwise_shared.h.
#include "common/diagnostics.h"
#include "compute_a/depthwise_shared.h"
#include "orvo/bounded_memory.h"
#include "orvo/q7_kernels.h"

namespace {

constexpr char kUnit[] = "../compute_a/convolutiondepthwise_3x3_int8";

// Callers may watch for these lines and this wording: a failed copy is reported as a fill. The size
// bound is the byte count itself.
bool Succeeded(int ret, int line) {
    if (ret != 0) {
        ORVO_ERR_AT(kUnit, line, "memset_s dst failed: %d\n", ret);
    }
    return ret == 0;
}

bool PutZeros(int8_t* to, size_t count, int line) {
    return Succeeded(memset_s(to, count, 0, count), line);
}

// One row between two borders. Ends at the first failure.
void PadRow(const int8_t* src, const orvo::DepthwiseGeometry& g, int8_t* to) {
    int8_t* const middle = orvo::Offset(to, g.pad);
    (void)(PutZeros(to, g.pad, 81) &&
           Succeeded(memcpy_s(middle, g.srcWidth, src, g.srcWidth), 85) &&
           PutZeros(orvo::Offset(middle, g.srcWidth), g.pad, 90));
}

// Copies the planes into zero-bordered ones. A row that fails is left where it fails, and the next
// one is gone on with.
void PadPlanes(const int8_t* src, const orvo::DepthwiseGeometry& g, int8_t* to) {
    const auto putBorderRows = [&](int line) {
        for (size_t y = 0; y < g.pad; ++y) {
            (void)PutZeros(to, g.paddedWidth(), line);
            to = orvo::Offset(to, g.paddedWidth());
        }
    };
    for (size_t c = 0; c < g.srcChannels; ++c) {
        putBorderRows(73);
        for (size_t y = 0; y < g.srcHeight; ++y) {
            PadRow(src, g, to);
            src = orvo::Offset(src, g.srcWidth);
            to = orvo::Offset(to, g.paddedWidth());
        }
        putBorderRows(97);
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
    if (orvo::ConvolveInPlaceOfPadding(src, tmpBuffer, geometry, weights, bias, outShift, INT8_MIN,
                                       dst)) {
        return;
    }
    if (pad > 0) {
        PadPlanes(src, geometry, tmpBuffer);
        src = tmpBuffer;
    }
    // Failures are reported and gone on from, but planes that are nowhere cannot be read.
    if (src == nullptr) {
        return;
    }
    orvo::ConvolveDepthwise3x3(src, geometry, weights, bias, outShift, INT8_MIN, dst);
}
