// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "reference/reference_conv.h"

// The shapes and shifts of every convolution of both networks, in the order in which they run.
namespace orvo_test {

enum class LayerKernel { kGeneric, kPointwise, kDepthwise, kDepthwiseRelu };

struct Layer {
    int step;
    LayerKernel kernel;
    int srcChannels;
    int size; // width and height of input and output
    int dstChannels;
    uint32_t outShift;
};

// clang-format off
inline constexpr Layer kAlignLayers[] = {
    {1, LayerKernel::kGeneric, 1, 24, 32, 8},
    {2, LayerKernel::kPointwise, 32, 24, 18, 7},
    {3, LayerKernel::kDepthwiseRelu, 18, 24, 18, 6},
    {4, LayerKernel::kPointwise, 18, 24, 36, 7},
    {5, LayerKernel::kDepthwise, 36, 24, 36, 6},
    {7, LayerKernel::kPointwise, 36, 24, 20, 5},
    {8, LayerKernel::kDepthwiseRelu, 20, 24, 20, 7},
    {9, LayerKernel::kPointwise, 20, 24, 40, 6},
    {10, LayerKernel::kDepthwise, 40, 24, 40, 6},
    {12, LayerKernel::kPointwise, 40, 24, 22, 6},
    {13, LayerKernel::kDepthwiseRelu, 22, 24, 22, 6},
    {14, LayerKernel::kPointwise, 22, 24, 44, 7},
    {15, LayerKernel::kDepthwise, 44, 24, 44, 7},
    {18, LayerKernel::kPointwise, 44, 12, 24, 6},
    {19, LayerKernel::kDepthwiseRelu, 24, 12, 24, 6},
    {20, LayerKernel::kPointwise, 24, 12, 48, 6},
    {21, LayerKernel::kDepthwise, 48, 12, 48, 6},
    {23, LayerKernel::kPointwise, 48, 12, 26, 6},
    {24, LayerKernel::kDepthwiseRelu, 26, 12, 26, 7},
    {25, LayerKernel::kPointwise, 26, 12, 52, 7},
    {26, LayerKernel::kDepthwise, 52, 12, 52, 7},
    {28, LayerKernel::kPointwise, 52, 12, 28, 5},
    {29, LayerKernel::kDepthwiseRelu, 28, 12, 28, 6},
    {30, LayerKernel::kPointwise, 28, 12, 56, 6},
    {31, LayerKernel::kDepthwise, 56, 12, 56, 7},
    {34, LayerKernel::kPointwise, 56, 6, 30, 5},
    {35, LayerKernel::kDepthwiseRelu, 30, 6, 30, 6},
    {36, LayerKernel::kPointwise, 30, 6, 60, 7},
    {37, LayerKernel::kDepthwise, 60, 6, 60, 5},
    {39, LayerKernel::kPointwise, 60, 6, 32, 5},
    {40, LayerKernel::kDepthwiseRelu, 32, 6, 32, 7},
    {41, LayerKernel::kPointwise, 32, 6, 64, 6},
    {42, LayerKernel::kDepthwise, 64, 6, 64, 6},
    {44, LayerKernel::kPointwise, 64, 6, 34, 6},
    {45, LayerKernel::kDepthwiseRelu, 34, 6, 34, 7},
    {46, LayerKernel::kPointwise, 34, 6, 68, 6},
    {47, LayerKernel::kDepthwise, 68, 6, 68, 6},
};

inline constexpr Layer kRecognitionLayers[] = {
    {1, LayerKernel::kGeneric, 3, 96, 32, 11},
    {3, LayerKernel::kDepthwise, 32, 95, 32, 9},
    {6, LayerKernel::kDepthwiseRelu, 32, 48, 32, 4},
    {7, LayerKernel::kPointwise, 32, 48, 64, 7},
    {9, LayerKernel::kDepthwise, 64, 48, 64, 7},
    {11, LayerKernel::kDepthwise, 64, 47, 64, 9},
    {14, LayerKernel::kPointwise, 64, 24, 32, 6},
    {15, LayerKernel::kPointwise, 32, 24, 64, 8},
    {17, LayerKernel::kDepthwiseRelu, 64, 24, 64, 4},
    {18, LayerKernel::kPointwise, 64, 24, 32, 7},
    {20, LayerKernel::kPointwise, 32, 24, 64, 6},
    {22, LayerKernel::kDepthwiseRelu, 64, 24, 64, 6},
    {23, LayerKernel::kPointwise, 64, 24, 32, 6},
    {25, LayerKernel::kPointwise, 32, 24, 64, 7},
    {27, LayerKernel::kDepthwiseRelu, 64, 24, 64, 6},
    {28, LayerKernel::kPointwise, 64, 24, 32, 6},
    {30, LayerKernel::kPointwise, 32, 24, 64, 7},
    {32, LayerKernel::kDepthwiseRelu, 64, 24, 64, 7},
    {33, LayerKernel::kPointwise, 64, 24, 32, 5},
    {35, LayerKernel::kPointwise, 32, 24, 128, 7},
    {37, LayerKernel::kDepthwise, 128, 24, 128, 8},
    {39, LayerKernel::kDepthwise, 128, 23, 128, 8},
    {42, LayerKernel::kPointwise, 128, 12, 64, 7},
    {43, LayerKernel::kPointwise, 64, 12, 128, 9},
    {45, LayerKernel::kDepthwiseRelu, 128, 12, 128, 4},
    {46, LayerKernel::kPointwise, 128, 12, 64, 6},
    {48, LayerKernel::kPointwise, 64, 12, 128, 8},
    {50, LayerKernel::kDepthwiseRelu, 128, 12, 128, 4},
    {51, LayerKernel::kPointwise, 128, 12, 64, 6},
    {53, LayerKernel::kPointwise, 64, 12, 128, 7},
    {55, LayerKernel::kDepthwiseRelu, 128, 12, 128, 7},
    {56, LayerKernel::kPointwise, 128, 12, 64, 5},
    {58, LayerKernel::kPointwise, 64, 12, 128, 8},
    {60, LayerKernel::kDepthwiseRelu, 128, 12, 128, 5},
    {61, LayerKernel::kPointwise, 128, 12, 64, 6},
    {63, LayerKernel::kPointwise, 64, 12, 128, 8},
    {65, LayerKernel::kDepthwiseRelu, 128, 12, 128, 6},
    {66, LayerKernel::kPointwise, 128, 12, 64, 6},
    {68, LayerKernel::kPointwise, 64, 12, 128, 7},
    {70, LayerKernel::kDepthwiseRelu, 128, 12, 128, 6},
    {71, LayerKernel::kPointwise, 128, 12, 64, 7},
    {73, LayerKernel::kPointwise, 64, 12, 256, 8},
    {75, LayerKernel::kDepthwise, 256, 12, 256, 7},
    {77, LayerKernel::kDepthwise, 256, 11, 256, 8},
    {80, LayerKernel::kPointwise, 256, 6, 64, 7},
    {81, LayerKernel::kPointwise, 64, 6, 128, 9},
    {83, LayerKernel::kDepthwiseRelu, 128, 6, 128, 6},
    {84, LayerKernel::kPointwise, 128, 6, 64, 6},
    {86, LayerKernel::kPointwise, 64, 6, 128, 8},
    {88, LayerKernel::kDepthwiseRelu, 128, 6, 128, 5},
    {89, LayerKernel::kPointwise, 128, 6, 64, 7},
    {91, LayerKernel::kPointwise, 64, 6, 256, 7},
};
// clang-format on

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
