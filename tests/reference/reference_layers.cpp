// SPDX-License-Identifier: MIT
#include "reference/reference_layers.h"

#include <stdexcept>

namespace orvo_reference {
namespace {

using enum Place;

Step Convolution(int layer, Place src, int in, int size, int out, int shift, Place dst) {
    return {StepKind::kConvolution, layer, src, in, size, out, shift, dst};
}
Step Pointwise(int layer, Place src, int in, int size, int out, int shift, Place dst) {
    return {StepKind::kPointwise, layer, src, in, size, out, shift, dst};
}
Step Depthwise(int layer, Place src, int channels, int size, int shift, Place dst) {
    return {StepKind::kDepthwise, layer, src, channels, size, channels, shift, dst};
}
Step DepthwiseRectified(int layer, Place src, int channels, int size, int shift, Place dst) {
    return {StepKind::kDepthwiseRectified, layer, src, channels, size, channels, shift, dst};
}
Step Global(int layer, Place src, int channels, int size, int shift, Place dst) {
    return {StepKind::kGlobal, layer, src, channels, size, channels, shift, dst};
}
Step FullyConnected(int layer, Place src, int in, int out, int shift, Place dst) {
    return {StepKind::kFullyConnected, layer, src, in, 1, out, shift, dst};
}
Step Add(Place first, Place second, int channels, int secondChannels, int size, int firstShift,
         int secondShift, int outShift, Place dst) {
    return {StepKind::kAdd, -1,  first,  secondChannels, size,       channels,
            outShift,       dst, second, firstShift,     secondShift};
}
Step Plain(StepKind kind, Place src, int channels, int size, Place dst, int shift = 0) {
    return {kind, -1, src, channels, size, channels, shift, dst};
}
Step GreyToQ7(int planes, int size) {
    return Plain(StepKind::kGreyToQ7, kInput, planes, size, kInput);
}
Step Rectify(Place data, int channels, int size) {
    return Plain(StepKind::kRectify, data, channels, size, data);
}
Step MaxPoolStride1(Place src, int channels, int size, Place dst) {
    return Plain(StepKind::kMaxPoolStride1, src, channels, size, dst);
}
Step MaxPoolStride2(Place src, int channels, int size, Place dst) {
    return Plain(StepKind::kMaxPoolStride2, src, channels, size, dst);
}
Step Downsample(Place src, int channels, int size, Place dst) {
    return Plain(StepKind::kDownsample, src, channels, size, dst);
}
Step GlobalAverage(Place src, int channels, int size, int shift, Place dst) {
    return Plain(StepKind::kGlobalAverage, src, channels, size, dst, shift);
}
Step UnitLength(Place src, int count) { return Plain(StepKind::kUnitLength, src, count, 1, src); }

LayerKind KindOf(const Step& step) {
    switch (step.kind) {
        case StepKind::kConvolution:
            return LayerKind::kConvolution;
        case StepKind::kPointwise:
            return LayerKind::kPointwise;
        case StepKind::kDepthwise:
        case StepKind::kDepthwiseRectified:
            return LayerKind::kDepthwise;
        case StepKind::kGlobal:
            return LayerKind::kGlobal;
        case StepKind::kFullyConnected:
            return LayerKind::kFullyConnected;
        default:
            throw std::logic_error("a step without parameters has a layer's number");
    }
}

std::vector<Layer> LayersOf(const std::vector<Step>& steps) {
    std::vector<Layer> layers;
    for (const Step& step : steps) {
        if (step.layer >= 0) {
            layers.push_back(
                {step.layer, KindOf(step), step.inChannels, step.outChannels, step.outShift});
        }
    }
    return layers;
}

} // namespace

const std::vector<Step>& AlignSteps() {
    // clang-format off
    static const std::vector<Step> steps = {
        GreyToQ7(1, 24),
        Convolution(0, kInput, 1, 24, 32, 8, kX),
        Pointwise(1, kX, 32, 24, 18, 7, kY),
        DepthwiseRectified(2, kY, 18, 24, 6, kZ),
        Pointwise(4, kZ, 18, 24, 36, 7, kY),
        Depthwise(5, kY, 36, 24, 6, kZ),
        Add(kZ, kX, 36, 32, 24, 1, 0, 1, kY),
        Pointwise(7, kY, 36, 24, 20, 5, kX),
        DepthwiseRectified(8, kX, 20, 24, 7, kZ),
        Pointwise(10, kZ, 20, 24, 40, 6, kX),
        Depthwise(11, kX, 40, 24, 6, kZ),
        Add(kZ, kY, 40, 36, 24, 0, 1, 1, kX),
        Pointwise(13, kX, 40, 24, 22, 6, kY),
        DepthwiseRectified(14, kY, 22, 24, 6, kZ),
        Pointwise(16, kZ, 22, 24, 44, 7, kY),
        Depthwise(17, kY, 44, 24, 7, kZ),
        Add(kZ, kX, 44, 40, 24, 0, 1, 0, kY),
        MaxPoolStride2(kY, 44, 24, kX),
        Pointwise(20, kX, 44, 12, 24, 6, kY),
        DepthwiseRectified(21, kY, 24, 12, 6, kZ),
        Pointwise(23, kZ, 24, 12, 48, 6, kY),
        Depthwise(24, kY, 48, 12, 6, kZ),
        Add(kZ, kX, 48, 44, 12, 0, 0, 0, kY),
        Pointwise(26, kY, 48, 12, 26, 6, kX),
        DepthwiseRectified(27, kX, 26, 12, 7, kZ),
        Pointwise(29, kZ, 26, 12, 52, 7, kX),
        Depthwise(30, kX, 52, 12, 7, kZ),
        Add(kZ, kY, 52, 48, 12, 1, 0, 1, kX),
        Pointwise(32, kX, 52, 12, 28, 5, kY),
        DepthwiseRectified(33, kY, 28, 12, 6, kZ),
        Pointwise(35, kZ, 28, 12, 56, 6, kY),
        Depthwise(36, kY, 56, 12, 7, kZ),
        Add(kZ, kX, 56, 52, 12, 0, 0, 0, kY),
        MaxPoolStride2(kY, 56, 12, kX),
        Pointwise(39, kX, 56, 6, 30, 5, kY),
        DepthwiseRectified(40, kY, 30, 6, 6, kZ),
        Pointwise(42, kZ, 30, 6, 60, 7, kY),
        Depthwise(43, kY, 60, 6, 5, kZ),
        Add(kZ, kX, 60, 56, 6, 0, 0, 0, kY),
        Pointwise(45, kY, 60, 6, 32, 5, kX),
        DepthwiseRectified(46, kX, 32, 6, 7, kZ),
        Pointwise(48, kZ, 32, 6, 64, 6, kX),
        Depthwise(49, kX, 64, 6, 6, kZ),
        Add(kZ, kY, 64, 60, 6, 0, 0, 1, kX),
        Pointwise(51, kX, 64, 6, 34, 6, kY),
        DepthwiseRectified(52, kY, 34, 6, 7, kZ),
        Pointwise(54, kZ, 34, 6, 68, 6, kY),
        Depthwise(55, kY, 68, 6, 6, kZ),
        Add(kZ, kX, 68, 64, 6, 0, 1, 1, kY),
        GlobalAverage(kY, 68, 6, 3, kX),
        FullyConnected(58, kX, 68, 4, 8, kY),
    };
    // clang-format on
    return steps;
}

const std::vector<Step>& FrSteps() {
    // clang-format off
    static const std::vector<Step> steps = {
        GreyToQ7(3, 96),
        Convolution(0, kInput, 3, 96, 32, 11, kX),
        MaxPoolStride1(kX, 32, 96, kY),
        Depthwise(2, kY, 32, 95, 9, kX),
        Downsample(kX, 32, 95, kY),
        Rectify(kY, 32, 48),
        DepthwiseRectified(5, kY, 32, 48, 4, kX),
        Pointwise(7, kX, 32, 48, 64, 7, kY),
        Rectify(kY, 64, 48),
        Depthwise(9, kY, 64, 48, 7, kX),
        MaxPoolStride1(kX, 64, 48, kY),
        Depthwise(11, kY, 64, 47, 9, kX),
        Downsample(kX, 64, 47, kY),
        Rectify(kY, 64, 24),
        Pointwise(14, kY, 64, 24, 32, 6, kX),
        Pointwise(15, kX, 32, 24, 64, 8, kY),
        Rectify(kY, 64, 24),
        DepthwiseRectified(17, kY, 64, 24, 4, kZ),
        Pointwise(19, kZ, 64, 24, 32, 7, kY),
        Add(kX, kY, 32, 32, 24, 1, 0, 1, kZ),
        Pointwise(21, kZ, 32, 24, 64, 6, kY),
        Rectify(kY, 64, 24),
        DepthwiseRectified(23, kY, 64, 24, 6, kX),
        Pointwise(25, kX, 64, 24, 32, 6, kY),
        Add(kZ, kY, 32, 32, 24, 1, 0, 1, kX),
        Pointwise(27, kX, 32, 24, 64, 7, kY),
        Rectify(kY, 64, 24),
        DepthwiseRectified(29, kY, 64, 24, 6, kZ),
        Pointwise(31, kZ, 64, 24, 32, 6, kY),
        Add(kX, kY, 32, 32, 24, 1, 0, 1, kZ),
        Pointwise(33, kZ, 32, 24, 64, 7, kY),
        Rectify(kY, 64, 24),
        DepthwiseRectified(35, kY, 64, 24, 7, kX),
        Pointwise(37, kX, 64, 24, 32, 5, kY),
        Add(kZ, kY, 32, 32, 24, 1, 0, 1, kX),
        Pointwise(39, kX, 32, 24, 128, 7, kY),
        Rectify(kY, 128, 24),
        Depthwise(41, kY, 128, 24, 8, kX),
        MaxPoolStride1(kX, 128, 24, kY),
        Depthwise(43, kY, 128, 23, 8, kX),
        Downsample(kX, 128, 23, kY),
        Rectify(kY, 128, 12),
        Pointwise(46, kY, 128, 12, 64, 7, kX),
        Pointwise(47, kX, 64, 12, 128, 9, kY),
        Rectify(kY, 128, 12),
        DepthwiseRectified(49, kY, 128, 12, 4, kZ),
        Pointwise(51, kZ, 128, 12, 64, 6, kY),
        Add(kX, kY, 64, 64, 12, 1, 0, 1, kZ),
        Pointwise(53, kZ, 64, 12, 128, 8, kY),
        Rectify(kY, 128, 12),
        DepthwiseRectified(55, kY, 128, 12, 4, kX),
        Pointwise(57, kX, 128, 12, 64, 6, kY),
        Add(kZ, kY, 64, 64, 12, 1, 0, 1, kX),
        Pointwise(59, kX, 64, 12, 128, 7, kY),
        Rectify(kY, 128, 12),
        DepthwiseRectified(61, kY, 128, 12, 7, kZ),
        Pointwise(63, kZ, 128, 12, 64, 5, kY),
        Add(kX, kY, 64, 64, 12, 0, 0, 0, kZ),
        Pointwise(65, kZ, 64, 12, 128, 8, kY),
        Rectify(kY, 128, 12),
        DepthwiseRectified(67, kY, 128, 12, 5, kX),
        Pointwise(69, kX, 128, 12, 64, 6, kY),
        Add(kZ, kY, 64, 64, 12, 0, 0, 1, kX),
        Pointwise(71, kX, 64, 12, 128, 8, kY),
        Rectify(kY, 128, 12),
        DepthwiseRectified(73, kY, 128, 12, 6, kZ),
        Pointwise(75, kZ, 128, 12, 64, 6, kY),
        Add(kX, kY, 64, 64, 12, 1, 0, 1, kZ),
        Pointwise(77, kZ, 64, 12, 128, 7, kY),
        Rectify(kY, 128, 12),
        DepthwiseRectified(79, kY, 128, 12, 6, kX),
        Pointwise(81, kX, 128, 12, 64, 7, kY),
        Add(kZ, kY, 64, 64, 12, 0, 0, 0, kX),
        Pointwise(83, kX, 64, 12, 256, 8, kY),
        Rectify(kY, 256, 12),
        Depthwise(85, kY, 256, 12, 7, kX),
        MaxPoolStride1(kX, 256, 12, kY),
        Depthwise(87, kY, 256, 11, 8, kX),
        Downsample(kX, 256, 11, kY),
        Rectify(kY, 256, 6),
        Pointwise(90, kY, 256, 6, 64, 7, kX),
        Pointwise(91, kX, 64, 6, 128, 9, kY),
        Rectify(kY, 128, 6),
        DepthwiseRectified(93, kY, 128, 6, 6, kZ),
        Pointwise(95, kZ, 128, 6, 64, 6, kY),
        Add(kX, kY, 64, 64, 6, 1, 0, 1, kZ),
        Pointwise(97, kZ, 64, 6, 128, 8, kY),
        Rectify(kY, 128, 6),
        DepthwiseRectified(99, kY, 128, 6, 5, kX),
        Pointwise(101, kX, 128, 6, 64, 7, kY),
        Add(kZ, kY, 64, 64, 6, 0, 0, 1, kX),
        Pointwise(103, kX, 64, 6, 256, 7, kY),
        Rectify(kY, 256, 6),
        Global(105, kY, 256, 6, 6, kX),
        FullyConnected(106, kX, 256, 128, 7, kY),
        UnitLength(kY, 128),
    };
    // clang-format on
    return steps;
}

const std::vector<Layer>& AlignLayers() {
    static const std::vector<Layer> layers = LayersOf(AlignSteps());
    return layers;
}

const std::vector<Layer>& FrLayers() {
    static const std::vector<Layer> layers = LayersOf(FrSteps());
    return layers;
}

} // namespace orvo_reference
