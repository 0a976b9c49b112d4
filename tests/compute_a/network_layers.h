// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "orvo/network_layers.h"
#include "reference/reference_conv.h"

// The shapes and shifts of every convolution of both networks, in the order in which they run.
namespace orvo_test {

enum class LayerKernel { kGeneric, kPointwise, kDepthwise, kDepthwiseRelu, kOther };

struct Layer {
    int number;
    LayerKernel kernel;
    int srcChannels;
    int size; // width and height of input and output
    int dstChannels;
    uint32_t outShift;
};

namespace layer_kind { // as network_layers.h names them

inline constexpr LayerKernel Convolution = LayerKernel::kGeneric;
inline constexpr LayerKernel Pointwise = LayerKernel::kPointwise;
inline constexpr LayerKernel Depthwise = LayerKernel::kDepthwise;
inline constexpr LayerKernel DepthwiseRelu = LayerKernel::kDepthwiseRelu;
inline constexpr LayerKernel Global = LayerKernel::kOther;
inline constexpr LayerKernel FullyConnected = LayerKernel::kOther;

} // namespace layer_kind

#define ORVO_LAYER(kind, number, inputs, side, outputs, shift) \
    {number, layer_kind::kind, inputs, side, outputs, shift},

inline constexpr Layer kAlignLayers[] = {
    ORVO_ALIGN_NETWORK(ORVO_LAYER, ORVO_NO_LAYER, ORVO_NO_LAYER)};
inline constexpr Layer kRecognitionLayers[] = {
    ORVO_FR_NETWORK(ORVO_LAYER, ORVO_NO_LAYER, ORVO_NO_LAYER)};

#undef ORVO_LAYER

inline orvo_reference::ConvShape ShapeOf(const Layer& layer) {
    orvo_reference::ConvShape shape;
    shape.srcWidth = shape.srcHeight = shape.dstWidth = shape.dstHeight = layer.size;
    shape.srcChannels = layer.srcChannels;
    shape.dstChannels = layer.dstChannels;
    shape.kernelSize = layer.kernel == LayerKernel::kPointwise ? 1 : 3;
    shape.pad = layer.kernel == LayerKernel::kPointwise ? 0 : 1;
    shape.outShift = layer.outShift;
    return shape;
}

} // namespace orvo_test
