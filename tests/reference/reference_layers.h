// SPDX-License-Identifier: MIT
//
// What each step of both networks is, written down a second time: independent of the library and of
// its own list, against which this one stands.
#pragma once

#include <vector>

namespace orvo_reference {

enum class StepKind {
    kGreyToQ7,
    kConvolution, // 3 x 3, padded
    kPointwise,
    kDepthwise, // 3 x 3, padded
    kDepthwiseRectified,
    kAdd,
    kRectify,
    kMaxPoolStride1,
    kMaxPoolStride2,
    kDownsample,
    kGlobalAverage,
    kGlobal,
    kFullyConnected,
    kUnitLength,
};

// Where a step reads and writes: the picture, or one of three slots.
enum class Place { kInput, kX, kY, kZ };

struct Step {
    StepKind kind;
    int layer; // number of its parameters, or -1
    Place src;
    int inChannels;
    int size; // width and height of the planes that it reads
    int outChannels;
    int outShift;
    Place dst;
    // Additions: the second operand, which has `inChannels`; the first one has all channels.
    Place second = Place::kInput;
    int firstShift = 0;
    int secondShift = 0;
};

const std::vector<Step>& AlignSteps();
const std::vector<Step>& FrSteps();

enum class LayerKind { kConvolution, kPointwise, kDepthwise, kGlobal, kFullyConnected };

// A layer with parameters. Depthwise and global layers have as many outputs as inputs.
struct Layer {
    int number;
    LayerKind kind;
    int inChannels;
    int outChannels;
    int outShift;
};

const std::vector<Layer>& AlignLayers();
const std::vector<Layer>& FrLayers();

} // namespace orvo_reference
