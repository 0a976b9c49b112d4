// SPDX-License-Identifier: MIT
#include "reference/reference_networks.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

#include "reference/reference_conv.h"
#include "reference/reference_small.h"
#include "support/random.h"

namespace orvo_reference {
namespace {

size_t DotLengthOf(const Layer& layer) {
    const auto inputs = static_cast<size_t>(layer.inChannels);
    switch (layer.kind) {
        case LayerKind::kConvolution:
            return inputs * 9;
        case LayerKind::kDepthwise:
            return 9;
        case LayerKind::kGlobal:
            return 36;
        case LayerKind::kPointwise:
        case LayerKind::kFullyConnected:
            return inputs;
    }
    throw std::logic_error("no such kind of layer");
}

Model SeededModel(const std::vector<Layer>& layers, uint64_t seed, double gain) {
    Model model;
    for (const Layer& layer : layers) {
        orvo_test::Random random(seed * 1000 + static_cast<uint64_t>(layer.number));
        const size_t dotLength = DotLengthOf(layer);
        const auto outputs = static_cast<size_t>(layer.outChannels);
        const double spread =
            gain * std::ldexp(1.0, layer.outShift) / std::sqrt(static_cast<double>(dotLength));
        // A uniform distribution over [-limit, limit] spreads by limit / sqrt(3).
        const auto limit =
            static_cast<int32_t>(std::clamp(std::lround(spread * std::sqrt(3.0)), 1L, 127L));
        LayerParameters& p = model[layer.number];
        for (size_t i = 0; i < dotLength * outputs; ++i) {
            p.weights.push_back(static_cast<int8_t>(random.Between(-limit, limit)));
        }
        const int32_t biasLimit = 8 << layer.outShift;
        for (size_t i = 0; i < outputs; ++i) {
            p.bias.push_back(random.Between(-biasLimit, biasLimit));
        }
    }
    return model;
}

// The three slots that the layers pass their outputs through, and one function a kind of step.
class Network {
  public:
    using Slot = std::vector<int8_t>;

    Network(const Model& model, const AfterStep& afterStep)
        : model_(model), afterStep_(afterStep) {}

    void GreyToQ7(int step, const std::vector<uint8_t>& picture, Slot& dst) {
        std::vector<uint8_t> bytes = picture;
        orvo_reference::GreyToQ7(bytes.data(), static_cast<uint32_t>(bytes.size()));
        dst.assign(bytes.begin(), bytes.end());
        Done(step, dst);
    }

    void Convolution(int step, const Slot& src, int inChannels, int size, int layer,
                     int outChannels, uint32_t outShift, Slot& dst) {
        Convolve(step, src, Shape(inChannels, size, outChannels, 3, outShift), layer, dst);
    }

    void Pointwise(int step, const Slot& src, int inChannels, int size, int layer, int outChannels,
                   uint32_t outShift, Slot& dst) {
        Convolve(step, src, Shape(inChannels, size, outChannels, 1, outShift), layer, dst);
    }

    void Depthwise(int step, const Slot& src, int channels, int size, int layer, uint32_t outShift,
                   Slot& dst) {
        ConvolveDepthwise(step, src, Shape(channels, size, channels, 3, outShift), layer, false,
                          dst);
    }

    void DepthwiseRectified(int step, const Slot& src, int channels, int size, int layer,
                            uint32_t outShift, Slot& dst) {
        ConvolveDepthwise(step, src, Shape(channels, size, channels, 3, outShift), layer, true,
                          dst);
    }

    void Add(int step, const Slot& in1, const Slot& in2, Slot& dst, uint32_t in1Shift,
             uint32_t in2Shift, uint32_t outShift, int size, int outChannels, int in2Channels) {
        Require(in1, outChannels, size);
        Require(in2, in2Channels, size);
        dst.assign(in1.size(), 0);
        ZeroPadPlus(in1.data(), in2.data(), dst.data(), in1Shift, in2Shift, outShift, Count(size),
                    Count(size), Count(outChannels), Count(in2Channels));
        Done(step, dst);
    }

    void Rectify(int step, Slot& data, int count) {
        Require(data, count, 1);
        orvo_reference::Rectify(data.data(), data.data(), Count(count));
        Done(step, data);
    }

    void MaxPoolStride2(int step, const Slot& src, int channels, int size, Slot& dst) {
        Require(src, channels, size);
        Resize(dst, channels, size / 2);
        MaxPool2x2Stride2(src.data(), dst.data(), Count(size), Count(size), Count(channels), 0);
        Done(step, dst);
    }

    void MaxPoolStride1(int step, const Slot& src, int channels, int size, Slot& dst) {
        Require(src, channels, size);
        Resize(dst, channels, size - 1);
        MaxPool2x2Stride1(src.data(), Count(size), Count(size), Count(channels), dst.data());
        Done(step, dst);
    }

    void Downsample(int step, const Slot& src, int channels, int size, Slot& dst) {
        Require(src, channels, size);
        Resize(dst, channels, (size + 1) / 2);
        orvo_reference::Downsample(src.data(), Count(size), Count(size), Count(channels),
                                   dst.data());
        Done(step, dst);
    }

    void GlobalAverage(int step, const Slot& src, int channels, int size, uint16_t shift,
                       Slot& dst) {
        Require(src, channels, size);
        Resize(dst, channels, 1);
        orvo_reference::GlobalAverage(src.data(), Count(size), Count(size), Count(channels), shift,
                                      dst.data());
        Done(step, dst);
    }

    void Global(int step, const Slot& src, int channels, int size, int layer, uint16_t outShift,
                Slot& dst) {
        Require(src, channels, size);
        const LayerParameters& p = Parameters(layer, src.size(), channels);
        Resize(dst, channels, 1);
        GlobalConvolution(src.data(), Count(size), Count(size), Count(channels), p.weights.data(),
                          p.bias.data(), outShift, dst.data());
        Done(step, dst);
    }

    void FullyConnected(int step, const Slot& src, int inCount, int layer, int outCount,
                        uint16_t outShift, Slot& dst) {
        Require(src, inCount, 1);
        const LayerParameters& p = Parameters(layer, src.size() * Count(outCount), outCount);
        Resize(dst, outCount, 1);
        orvo_reference::FullyConnected(src.data(), p.weights.data(), Count(inCount),
                                       Count(outCount), outShift, p.bias.data(), dst.data());
        Done(step, dst);
    }

    void UnitLength(int step, const Slot& src, int count, std::array<float, 128>& dst) {
        Require(src, count, 1);
        orvo_reference::UnitLength(src.data(), count, dst.data());
        afterStep_(step, dst.data(), sizeof dst);
    }

  private:
    static uint32_t Count(int value) { return static_cast<uint32_t>(value); }

    // A layer that does not find the tensor it expects is a slip in the sequence below.
    static void Require(const Slot& slot, int channels, int size) {
        if (slot.size() != size_t{Count(channels)} * Count(size) * Count(size)) {
            throw std::logic_error("a layer does not fit the one before it");
        }
    }

    static void Resize(Slot& slot, int channels, int size) {
        slot.assign(size_t{Count(channels)} * Count(size) * Count(size), 0);
    }

    static ConvShape Shape(int inChannels, int size, int outChannels, int kernelSize,
                           uint32_t outShift) {
        ConvShape shape;
        shape.srcWidth = shape.srcHeight = shape.dstWidth = shape.dstHeight = size;
        shape.srcChannels = inChannels;
        shape.dstChannels = outChannels;
        shape.kernelSize = kernelSize;
        shape.pad = kernelSize / 2;
        shape.outShift = outShift;
        return shape;
    }

    const LayerParameters& Parameters(int layer, size_t weights, int biases) const {
        const LayerParameters& p = model_.at(layer);
        if (p.weights.size() != weights || p.bias.size() != Count(biases)) {
            throw std::logic_error("the parameters of a layer have another size");
        }
        return p;
    }

    void Convolve(int step, const Slot& src, const ConvShape& shape, int layer, Slot& dst) {
        Require(src, shape.srcChannels, shape.srcWidth);
        const LayerParameters& p =
            Parameters(layer, DotLength(shape) * Count(shape.dstChannels), shape.dstChannels);
        Resize(dst, shape.dstChannels, shape.dstWidth);
        ConvolveChw(shape, src.data(), p.weights.data(), p.bias.data(), dst.data());
        Done(step, dst);
    }

    void ConvolveDepthwise(int step, const Slot& src, const ConvShape& shape, int layer,
                           bool rectify, Slot& dst) {
        Require(src, shape.srcChannels, shape.srcWidth);
        const LayerParameters& p =
            Parameters(layer, size_t{9} * Count(shape.dstChannels), shape.dstChannels);
        Resize(dst, shape.dstChannels, shape.dstWidth);
        ConvolveDepthwiseChw(shape, rectify, src.data(), p.weights.data(), p.bias.data(),
                             dst.data());
        Done(step, dst);
    }

    void Done(int step, const Slot& output) { afterStep_(step, output.data(), output.size()); }

    const Model& model_;
    const AfterStep& afterStep_;
};

} // namespace

const std::vector<Layer>& AlignLayers() {
    using enum LayerKind;
    static const std::vector<Layer> layers = {
        {0, kConvolution, 1, 32, 8}, {1, kPointwise, 32, 18, 7},      {2, kDepthwise, 18, 18, 6},
        {4, kPointwise, 18, 36, 7},  {5, kDepthwise, 36, 36, 6},      {7, kPointwise, 36, 20, 5},
        {8, kDepthwise, 20, 20, 7},  {10, kPointwise, 20, 40, 6},     {11, kDepthwise, 40, 40, 6},
        {13, kPointwise, 40, 22, 6}, {14, kDepthwise, 22, 22, 6},     {16, kPointwise, 22, 44, 7},
        {17, kDepthwise, 44, 44, 7}, {20, kPointwise, 44, 24, 6},     {21, kDepthwise, 24, 24, 6},
        {23, kPointwise, 24, 48, 6}, {24, kDepthwise, 48, 48, 6},     {26, kPointwise, 48, 26, 6},
        {27, kDepthwise, 26, 26, 7}, {29, kPointwise, 26, 52, 7},     {30, kDepthwise, 52, 52, 7},
        {32, kPointwise, 52, 28, 5}, {33, kDepthwise, 28, 28, 6},     {35, kPointwise, 28, 56, 6},
        {36, kDepthwise, 56, 56, 7}, {39, kPointwise, 56, 30, 5},     {40, kDepthwise, 30, 30, 6},
        {42, kPointwise, 30, 60, 7}, {43, kDepthwise, 60, 60, 5},     {45, kPointwise, 60, 32, 5},
        {46, kDepthwise, 32, 32, 7}, {48, kPointwise, 32, 64, 6},     {49, kDepthwise, 64, 64, 6},
        {51, kPointwise, 64, 34, 6}, {52, kDepthwise, 34, 34, 7},     {54, kPointwise, 34, 68, 6},
        {55, kDepthwise, 68, 68, 6}, {58, kFullyConnected, 68, 4, 8},
    };
    return layers;
}

const std::vector<Layer>& FrLayers() {
    using enum LayerKind;
    static const std::vector<Layer> layers = {
        {0, kConvolution, 3, 32, 11},  {2, kDepthwise, 32, 32, 9},
        {5, kDepthwise, 32, 32, 4},    {7, kPointwise, 32, 64, 7},
        {9, kDepthwise, 64, 64, 7},    {11, kDepthwise, 64, 64, 9},
        {14, kPointwise, 64, 32, 6},   {15, kPointwise, 32, 64, 8},
        {17, kDepthwise, 64, 64, 4},   {19, kPointwise, 64, 32, 7},
        {21, kPointwise, 32, 64, 6},   {23, kDepthwise, 64, 64, 6},
        {25, kPointwise, 64, 32, 6},   {27, kPointwise, 32, 64, 7},
        {29, kDepthwise, 64, 64, 6},   {31, kPointwise, 64, 32, 6},
        {33, kPointwise, 32, 64, 7},   {35, kDepthwise, 64, 64, 7},
        {37, kPointwise, 64, 32, 5},   {39, kPointwise, 32, 128, 7},
        {41, kDepthwise, 128, 128, 8}, {43, kDepthwise, 128, 128, 8},
        {46, kPointwise, 128, 64, 7},  {47, kPointwise, 64, 128, 9},
        {49, kDepthwise, 128, 128, 4}, {51, kPointwise, 128, 64, 6},
        {53, kPointwise, 64, 128, 8},  {55, kDepthwise, 128, 128, 4},
        {57, kPointwise, 128, 64, 6},  {59, kPointwise, 64, 128, 7},
        {61, kDepthwise, 128, 128, 7}, {63, kPointwise, 128, 64, 5},
        {65, kPointwise, 64, 128, 8},  {67, kDepthwise, 128, 128, 5},
        {69, kPointwise, 128, 64, 6},  {71, kPointwise, 64, 128, 8},
        {73, kDepthwise, 128, 128, 6}, {75, kPointwise, 128, 64, 6},
        {77, kPointwise, 64, 128, 7},  {79, kDepthwise, 128, 128, 6},
        {81, kPointwise, 128, 64, 7},  {83, kPointwise, 64, 256, 8},
        {85, kDepthwise, 256, 256, 7}, {87, kDepthwise, 256, 256, 8},
        {90, kPointwise, 256, 64, 7},  {91, kPointwise, 64, 128, 9},
        {93, kDepthwise, 128, 128, 6}, {95, kPointwise, 128, 64, 6},
        {97, kPointwise, 64, 128, 8},  {99, kDepthwise, 128, 128, 5},
        {101, kPointwise, 128, 64, 7}, {103, kPointwise, 64, 256, 7},
        {105, kGlobal, 256, 256, 6},   {106, kFullyConnected, 256, 128, 7},
    };
    return layers;
}

Model SeededAlignModel() { return SeededModel(AlignLayers(), 1, 1.0); }

// The rectifiers and the filters limited to 8 bits take much of the recognition network's signal.
Model SeededFrModel() { return SeededModel(FrLayers(), 2, 1.5); }

std::vector<uint8_t> SeededPicture(int picture, int planes, int size) {
    std::vector<uint8_t> pixels;
    orvo_test::Random random(static_cast<uint64_t>(picture * 10 + planes));
    for (int p = 0; p < planes; ++p) {
        for (int y = 0; y < size; ++y) {
            for (int x = 0; x < size; ++x) {
                const int fromCentre = std::abs(2 * x - size) + std::abs(2 * y - size) * 3 / 4;
                const int smooth = 30 + 10 * p + 120 * y / size + (fromCentre < size ? 80 : 0);
                const uint8_t noise = random.Byte();
                pixels.push_back(picture == 0 ? static_cast<uint8_t>(smooth + noise % 8) : noise);
            }
        }
    }
    return pixels;
}

std::array<int8_t, 4> RunAlign(const Model& model, const std::vector<uint8_t>& picture,
                               const AfterStep& afterStep) {
    Network n(model, afterStep);
    Network::Slot input;
    Network::Slot x;
    Network::Slot y;
    Network::Slot z;
    n.GreyToQ7(0, picture, input);
    n.Convolution(1, input, 1, 24, 0, 32, 8, x);
    n.Pointwise(2, x, 32, 24, 1, 18, 7, y);
    n.DepthwiseRectified(3, y, 18, 24, 2, 6, z);
    n.Pointwise(4, z, 18, 24, 4, 36, 7, y);
    n.Depthwise(5, y, 36, 24, 5, 6, z);
    n.Add(6, z, x, y, 1, 0, 1, 24, 36, 32);
    n.Pointwise(7, y, 36, 24, 7, 20, 5, x);
    n.DepthwiseRectified(8, x, 20, 24, 8, 7, z);
    n.Pointwise(9, z, 20, 24, 10, 40, 6, x);
    n.Depthwise(10, x, 40, 24, 11, 6, z);
    n.Add(11, z, y, x, 0, 1, 1, 24, 40, 36);
    n.Pointwise(12, x, 40, 24, 13, 22, 6, y);
    n.DepthwiseRectified(13, y, 22, 24, 14, 6, z);
    n.Pointwise(14, z, 22, 24, 16, 44, 7, y);
    n.Depthwise(15, y, 44, 24, 17, 7, z);
    n.Add(16, z, x, y, 0, 1, 0, 24, 44, 40);
    n.MaxPoolStride2(17, y, 44, 24, x);
    n.Pointwise(18, x, 44, 12, 20, 24, 6, y);
    n.DepthwiseRectified(19, y, 24, 12, 21, 6, z);
    n.Pointwise(20, z, 24, 12, 23, 48, 6, y);
    n.Depthwise(21, y, 48, 12, 24, 6, z);
    n.Add(22, z, x, y, 0, 0, 0, 12, 48, 44);
    n.Pointwise(23, y, 48, 12, 26, 26, 6, x);
    n.DepthwiseRectified(24, x, 26, 12, 27, 7, z);
    n.Pointwise(25, z, 26, 12, 29, 52, 7, x);
    n.Depthwise(26, x, 52, 12, 30, 7, z);
    n.Add(27, z, y, x, 1, 0, 1, 12, 52, 48);
    n.Pointwise(28, x, 52, 12, 32, 28, 5, y);
    n.DepthwiseRectified(29, y, 28, 12, 33, 6, z);
    n.Pointwise(30, z, 28, 12, 35, 56, 6, y);
    n.Depthwise(31, y, 56, 12, 36, 7, z);
    n.Add(32, z, x, y, 0, 0, 0, 12, 56, 52);
    n.MaxPoolStride2(33, y, 56, 12, x);
    n.Pointwise(34, x, 56, 6, 39, 30, 5, y);
    n.DepthwiseRectified(35, y, 30, 6, 40, 6, z);
    n.Pointwise(36, z, 30, 6, 42, 60, 7, y);
    n.Depthwise(37, y, 60, 6, 43, 5, z);
    n.Add(38, z, x, y, 0, 0, 0, 6, 60, 56);
    n.Pointwise(39, y, 60, 6, 45, 32, 5, x);
    n.DepthwiseRectified(40, x, 32, 6, 46, 7, z);
    n.Pointwise(41, z, 32, 6, 48, 64, 6, x);
    n.Depthwise(42, x, 64, 6, 49, 6, z);
    n.Add(43, z, y, x, 0, 0, 1, 6, 64, 60);
    n.Pointwise(44, x, 64, 6, 51, 34, 6, y);
    n.DepthwiseRectified(45, y, 34, 6, 52, 7, z);
    n.Pointwise(46, z, 34, 6, 54, 68, 6, y);
    n.Depthwise(47, y, 68, 6, 55, 6, z);
    n.Add(48, z, x, y, 0, 1, 1, 6, 68, 64);
    n.GlobalAverage(49, y, 68, 6, 3, x);
    n.FullyConnected(50, x, 68, 58, 4, 8, y);
    return {y[0], y[1], y[2], y[3]};
}

std::array<float, 128> RunFr(const Model& model, const std::vector<uint8_t>& picture,
                             const AfterStep& afterStep) {
    Network n(model, afterStep);
    Network::Slot input;
    Network::Slot x;
    Network::Slot y;
    Network::Slot z;
    std::array<float, 128> feature{};
    n.GreyToQ7(0, picture, input);
    n.Convolution(1, input, 3, 96, 0, 32, 11, x);
    n.MaxPoolStride1(2, x, 32, 96, y);
    n.Depthwise(3, y, 32, 95, 2, 9, x);
    n.Downsample(4, x, 32, 95, y);
    n.Rectify(5, y, 73728);
    n.DepthwiseRectified(6, y, 32, 48, 5, 4, x);
    n.Pointwise(7, x, 32, 48, 7, 64, 7, y);
    n.Rectify(8, y, 147456);
    n.Depthwise(9, y, 64, 48, 9, 7, x);
    n.MaxPoolStride1(10, x, 64, 48, y);
    n.Depthwise(11, y, 64, 47, 11, 9, x);
    n.Downsample(12, x, 64, 47, y);
    n.Rectify(13, y, 36864);
    n.Pointwise(14, y, 64, 24, 14, 32, 6, x);
    n.Pointwise(15, x, 32, 24, 15, 64, 8, y);
    n.Rectify(16, y, 36864);
    n.DepthwiseRectified(17, y, 64, 24, 17, 4, z);
    n.Pointwise(18, z, 64, 24, 19, 32, 7, y);
    n.Add(19, x, y, z, 1, 0, 1, 24, 32, 32);
    n.Pointwise(20, z, 32, 24, 21, 64, 6, y);
    n.Rectify(21, y, 36864);
    n.DepthwiseRectified(22, y, 64, 24, 23, 6, x);
    n.Pointwise(23, x, 64, 24, 25, 32, 6, y);
    n.Add(24, z, y, x, 1, 0, 1, 24, 32, 32);
    n.Pointwise(25, x, 32, 24, 27, 64, 7, y);
    n.Rectify(26, y, 36864);
    n.DepthwiseRectified(27, y, 64, 24, 29, 6, z);
    n.Pointwise(28, z, 64, 24, 31, 32, 6, y);
    n.Add(29, x, y, z, 1, 0, 1, 24, 32, 32);
    n.Pointwise(30, z, 32, 24, 33, 64, 7, y);
    n.Rectify(31, y, 36864);
    n.DepthwiseRectified(32, y, 64, 24, 35, 7, x);
    n.Pointwise(33, x, 64, 24, 37, 32, 5, y);
    n.Add(34, z, y, x, 1, 0, 1, 24, 32, 32);
    n.Pointwise(35, x, 32, 24, 39, 128, 7, y);
    n.Rectify(36, y, 73728);
    n.Depthwise(37, y, 128, 24, 41, 8, x);
    n.MaxPoolStride1(38, x, 128, 24, y);
    n.Depthwise(39, y, 128, 23, 43, 8, x);
    n.Downsample(40, x, 128, 23, y);
    n.Rectify(41, y, 18432);
    n.Pointwise(42, y, 128, 12, 46, 64, 7, x);
    n.Pointwise(43, x, 64, 12, 47, 128, 9, y);
    n.Rectify(44, y, 18432);
    n.DepthwiseRectified(45, y, 128, 12, 49, 4, z);
    n.Pointwise(46, z, 128, 12, 51, 64, 6, y);
    n.Add(47, x, y, z, 1, 0, 1, 12, 64, 64);
    n.Pointwise(48, z, 64, 12, 53, 128, 8, y);
    n.Rectify(49, y, 18432);
    n.DepthwiseRectified(50, y, 128, 12, 55, 4, x);
    n.Pointwise(51, x, 128, 12, 57, 64, 6, y);
    n.Add(52, z, y, x, 1, 0, 1, 12, 64, 64);
    n.Pointwise(53, x, 64, 12, 59, 128, 7, y);
    n.Rectify(54, y, 18432);
    n.DepthwiseRectified(55, y, 128, 12, 61, 7, z);
    n.Pointwise(56, z, 128, 12, 63, 64, 5, y);
    n.Add(57, x, y, z, 0, 0, 0, 12, 64, 64);
    n.Pointwise(58, z, 64, 12, 65, 128, 8, y);
    n.Rectify(59, y, 18432);
    n.DepthwiseRectified(60, y, 128, 12, 67, 5, x);
    n.Pointwise(61, x, 128, 12, 69, 64, 6, y);
    n.Add(62, z, y, x, 0, 0, 1, 12, 64, 64);
    n.Pointwise(63, x, 64, 12, 71, 128, 8, y);
    n.Rectify(64, y, 18432);
    n.DepthwiseRectified(65, y, 128, 12, 73, 6, z);
    n.Pointwise(66, z, 128, 12, 75, 64, 6, y);
    n.Add(67, x, y, z, 1, 0, 1, 12, 64, 64);
    n.Pointwise(68, z, 64, 12, 77, 128, 7, y);
    n.Rectify(69, y, 18432);
    n.DepthwiseRectified(70, y, 128, 12, 79, 6, x);
    n.Pointwise(71, x, 128, 12, 81, 64, 7, y);
    n.Add(72, z, y, x, 0, 0, 0, 12, 64, 64);
    n.Pointwise(73, x, 64, 12, 83, 256, 8, y);
    n.Rectify(74, y, 36864);
    n.Depthwise(75, y, 256, 12, 85, 7, x);
    n.MaxPoolStride1(76, x, 256, 12, y);
    n.Depthwise(77, y, 256, 11, 87, 8, x);
    n.Downsample(78, x, 256, 11, y);
    n.Rectify(79, y, 9216);
    n.Pointwise(80, y, 256, 6, 90, 64, 7, x);
    n.Pointwise(81, x, 64, 6, 91, 128, 9, y);
    n.Rectify(82, y, 4608);
    n.DepthwiseRectified(83, y, 128, 6, 93, 6, z);
    n.Pointwise(84, z, 128, 6, 95, 64, 6, y);
    n.Add(85, x, y, z, 1, 0, 1, 6, 64, 64);
    n.Pointwise(86, z, 64, 6, 97, 128, 8, y);
    n.Rectify(87, y, 4608);
    n.DepthwiseRectified(88, y, 128, 6, 99, 5, x);
    n.Pointwise(89, x, 128, 6, 101, 64, 7, y);
    n.Add(90, z, y, x, 0, 0, 1, 6, 64, 64);
    n.Pointwise(91, x, 64, 6, 103, 256, 7, y);
    n.Rectify(92, y, 9216);
    n.Global(93, y, 256, 6, 105, 6, x);
    n.FullyConnected(94, x, 256, 106, 128, 7, y);
    n.UnitLength(95, y, 128, feature);
    return feature;
}

} // namespace orvo_reference
