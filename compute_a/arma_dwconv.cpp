// SPDX-License-Identifier: MIT
//
// Depthwise 3 x 3 convolution with rectifier; see depthwise_shared.h.
#include "common/diagnostics.h"
#include "compute_a/bounded_writer.h"
#include "compute_a/depthwise_shared.h"
#include "orvo/q7_kernels.h"

namespace {

constexpr char kUnit[] = "../compute_a/arma_dwconv";

// `line` names the step that failed. It is a number of its own, not the source's, so that a log
// reads the same after the source has changed.
bool Zeros(orvo::BoundedWriter& out, size_t count, int line) {
    const int ret = out.Fill(0, count);
    if (ret != 0) {
        ORVO_ERR_AT(kUnit, line, "memset_s dst failed: %d\n", ret);
    }
    return ret == 0;
}

bool Copy(orvo::BoundedWriter& out, const int8_t* from, size_t count, int line) {
    const int ret = out.Copy(from, count);
    if (ret != 0) {
        ORVO_ERR_AT(kUnit, line, "memcpy_s dst failed: %d\n", ret);
    }
    return ret == 0;
}

bool PadPlane(const int8_t* src, const orvo::DepthwiseGeometry& g, orvo::BoundedWriter& out) {
    for (size_t y = 0; y < g.pad; ++y) {
        if (!Zeros(out, g.paddedWidth(), 66)) {
            return false;
        }
    }
    for (size_t y = 0; y < g.srcHeight; ++y, src += g.srcWidth) {
        if (!Zeros(out, g.pad, 77) || !Copy(out, src, g.srcWidth, 85) || !Zeros(out, g.pad, 94)) {
            return false;
        }
    }
    for (size_t y = 0; y < g.pad; ++y) {
        if (!Zeros(out, g.paddedWidth(), 104)) {
            return false;
        }
    }
    return true;
}

// Copies the planes into zero-bordered ones. Gives up at the first failure.
bool PadPlanes(const int8_t* src, const orvo::DepthwiseGeometry& g, int8_t* scratch) {
    orvo::BoundedWriter out{scratch, g.srcChannels * g.paddedPlane()};
    for (size_t c = 0; c < g.srcChannels; ++c) {
        if (!PadPlane(src + c * g.srcWidth * g.srcHeight, g, out)) {
            return false;
        }
    }
    return true;
}

} // namespace

void ArmAConvolvedwRelu3x3s1ChwQ7(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,
                                  uint16_t srcChannels, const int8_t* weights, uint16_t dstChannels,
                                  uint16_t kernelSize, uint16_t pad, uint16_t stride,
                                  const int32_t* bias, uint16_t outShift, int8_t* dst,
                                  uint16_t dstWidth, uint16_t dstHeight, int8_t* tmpBuffer) {
    if (!orvo::IsDepthwise3x3s1(kernelSize, stride)) {
        return;
    }
    const orvo::DepthwiseGeometry geometry{srcWidth, srcHeight, srcChannels, pad,
                                           dstWidth, dstHeight, dstChannels};
    if (orvo::ConvolveInPlaceOfPadding(src, tmpBuffer, geometry, weights, bias, outShift, 0, dst)) {
        return;
    }
    if (pad > 0) {
        if (!PadPlanes(src, geometry, tmpBuffer)) {
            return;
        }
        src = tmpBuffer;
    }
    orvo::ConvolveDepthwise3x3(src, geometry, weights, bias, outShift, 0, dst);
}
