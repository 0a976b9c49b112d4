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

using Slot = std::vector<int8_t>;

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

uint32_t Count(int value) { return static_cast<uint32_t>(value); }

// The picture and the three slots that the steps pass their outputs through.
class Network {
  public:
    Network(const Model& model, const std::vector<uint8_t>& picture)
        : model_(model), slots_{Slot(picture.begin(), picture.end()), {}, {}, {}} {}

    // Returns the output.
    const Slot& Run(const Step& step) {
        const Slot& src = At(step.src);
        Slot& dst = At(step.dst);
        const uint32_t size = Count(step.size);
        const uint32_t channels = Count(step.inChannels);
        if (step.kind != StepKind::kAdd) {
            Require(src, step.inChannels, step.size);
        }
        switch (step.kind) {
            case StepKind::kGreyToQ7:
                GreyToQ7(reinterpret_cast<uint8_t*>(dst.data()),
                         Count(static_cast<int>(dst.size())));
                break;
            case StepKind::kConvolution:
            case StepKind::kPointwise:
                Convolve(step, src, dst);
                break;
            case StepKind::kDepthwise:
                ConvolveDepthwise(step, src, false, dst);
                break;
            case StepKind::kDepthwiseRectified:
                ConvolveDepthwise(step, src, true, dst);
                break;
            case StepKind::kAdd:
                Add(step, src, At(step.second), dst);
                break;
            case StepKind::kRectify:
                Rectify(dst.data(), dst.data(), Count(static_cast<int>(dst.size())));
                break;
            case StepKind::kMaxPoolStride1:
                Resize(dst, step.inChannels, step.size - 1);
                MaxPool2x2Stride1(src.data(), size, size, channels, dst.data());
                break;
            case StepKind::kMaxPoolStride2:
                Resize(dst, step.inChannels, step.size / 2);
                MaxPool2x2Stride2(src.data(), dst.data(), size, size, channels, 0);
                break;
            case StepKind::kDownsample:
                Resize(dst, step.inChannels, (step.size + 1) / 2);
                Downsample(src.data(), size, size, channels, dst.data());
                break;
            case StepKind::kGlobalAverage:
                Resize(dst, step.inChannels, 1);
                GlobalAverage(src.data(), size, size, channels, Shift(step), dst.data());
                break;
            case StepKind::kGlobal:
                MultiplyPlanes(step, src, dst);
                break;
            case StepKind::kFullyConnected:
                Connect(step, src, dst);
                break;
            case StepKind::kUnitLength:
                break; // leaves the slots as they are; see RunFr()
        }
        return dst;
    }

  private:
    Slot& At(Place place) { return slots_[static_cast<size_t>(place)]; }

    static uint16_t Shift(const Step& step) { return static_cast<uint16_t>(step.outShift); }

    // A layer that does not find the tensor it expects is a slip in the list of the steps.
    static void Require(const Slot& slot, int channels, int size) {
        if (slot.size() != size_t{Count(channels)} * Count(size) * Count(size)) {
            throw std::logic_error("a layer does not fit the one before it");
        }
    }

    static void Resize(Slot& slot, int channels, int size) {
        slot.assign(size_t{Count(channels)} * Count(size) * Count(size), 0);
    }

    static ConvShape Shape(const Step& step, int kernelSize) {
        ConvShape shape;
        shape.srcWidth = shape.srcHeight = shape.dstWidth = shape.dstHeight = step.size;
        shape.srcChannels = step.inChannels;
        shape.dstChannels = step.outChannels;
        shape.kernelSize = kernelSize;
        shape.pad = kernelSize / 2;
        shape.outShift = Count(step.outShift);
        return shape;
    }

    const LayerParameters& Parameters(const Step& step, size_t weights) const {
        const LayerParameters& p = model_.at(step.layer);
        if (p.weights.size() != weights || p.bias.size() != Count(step.outChannels)) {
            throw std::logic_error("the parameters of a layer have another size");
        }
        return p;
    }

    void Convolve(const Step& step, const Slot& src, Slot& dst) const {
        const ConvShape shape = Shape(step, step.kind == StepKind::kPointwise ? 1 : 3);
        const LayerParameters& p = Parameters(step, DotLength(shape) * Count(step.outChannels));
        Resize(dst, step.outChannels, step.size);
        ConvolveChw(shape, src.data(), p.weights.data(), p.bias.data(), dst.data());
    }

    void ConvolveDepthwise(const Step& step, const Slot& src, bool rectify, Slot& dst) const {
        const LayerParameters& p = Parameters(step, size_t{9} * Count(step.outChannels));
        Resize(dst, step.outChannels, step.size);
        ConvolveDepthwiseChw(Shape(step, 3), rectify, src.data(), p.weights.data(), p.bias.data(),
                             dst.data());
    }

    static void Add(const Step& step, const Slot& first, const Slot& second, Slot& dst) {
        Require(first, step.outChannels, step.size);
        Require(second, step.inChannels, step.size);
        dst.assign(first.size(), 0);
        ZeroPadPlus(first.data(), second.data(), dst.data(), Count(step.firstShift),
                    Count(step.secondShift), Count(step.outShift), Count(step.size),
                    Count(step.size), Count(step.outChannels), Count(step.inChannels));
    }

    void MultiplyPlanes(const Step& step, const Slot& src, Slot& dst) const {
        const LayerParameters& p = Parameters(step, src.size());
        Resize(dst, step.outChannels, 1);
        GlobalConvolution(src.data(), Count(step.size), Count(step.size), Count(step.inChannels),
                          p.weights.data(), p.bias.data(), Shift(step), dst.data());
    }

    void Connect(const Step& step, const Slot& src, Slot& dst) const {
        const LayerParameters& p = Parameters(step, src.size() * Count(step.outChannels));
        Resize(dst, step.outChannels, 1);
        FullyConnected(src.data(), p.weights.data(), Count(step.inChannels),
                       Count(step.outChannels), Shift(step), p.bias.data(), dst.data());
    }

    const Model& model_;
    std::array<Slot, 4> slots_;
};

} // namespace

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
    Network network(model, picture);
    Slot output;
    for (size_t i = 0; i < AlignSteps().size(); ++i) {
        output = network.Run(AlignSteps()[i]);
        afterStep(static_cast<int>(i), output.data(), output.size());
    }
    return {output.at(0), output.at(1), output.at(2), output.at(3)};
}

std::array<float, 128> RunFr(const Model& model, const std::vector<uint8_t>& picture,
                             const AfterStep& afterStep) {
    Network network(model, picture);
    std::array<float, 128> feature{};
    for (size_t i = 0; i < FrSteps().size(); ++i) {
        const Step& step = FrSteps()[i];
        const Slot& output = network.Run(step);
        if (step.kind == StepKind::kUnitLength) {
            UnitLength(output.data(), step.inChannels, feature.data());
            afterStep(static_cast<int>(i), feature.data(), sizeof feature);
        } else {
            afterStep(static_cast<int>(i), output.data(), output.size());
        }
    }
    return feature;
}

} // namespace orvo_reference
