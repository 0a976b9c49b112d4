// SPDX-License-Identifier: MIT
//
// Both networks on XNNPACK (https://github.com/google/XNNPACK), through its public interface.
//
// What it is given: its layout (channels last), also for the picture, whose conversion from planes
// is left out because it has no operator for that; its operators prepared and run one by one,
// without the graph around them; fused rectifiers (clamps); stride 2 in the depthwise layers that
// we follow with sampling; additions in place; and instead of copies that widen the shortcuts with
// zero channels, a distance between pixels that has room for the widest tensor of a plane size, so
// that the addition simply runs over all of it.
//
// What does not match: it rounds where we shift down; it has no residual addition inside a
// convolution. The last layer, the normalisation, is a plain loop.
#include <xnnpack.h>

#include <stdexcept>

#include "bench/peers/normalise.h"
#include "bench/peers/peer.h"

namespace orvo_bench {
namespace {

using enum LayerKind;

constexpr float kScale = 1.0f / 128;

void Check(xnn_status status) {
    if (status != xnn_status_success) {
        throw std::runtime_error("XNNPACK: status " + std::to_string(status));
    }
}

using Buffer = std::shared_ptr<std::vector<int8_t>>;

Buffer NewBuffer(size_t bytes) {
    return std::make_shared<std::vector<int8_t>>(bytes + XNN_EXTRA_BYTES);
}

struct Tensor {
    Buffer buffer;
    size_t channels;
    size_t stride; // from pixel to pixel
    size_t size;

    int8_t* data() const { return buffer->data(); }
};

class NetworkBuilder {
  public:
    std::vector<PeerStep> build(const Network& network) {
        const std::vector<FusedLayer> layers = Fuse(network);
        tensor_ = {NewBuffer(kSlotBytes), static_cast<size_t>(layers[0].layer.channels),
                   static_cast<size_t>(layers[0].layer.channels),
                   static_cast<size_t>(layers[0].layer.size)};
        for (size_t i = 0; i < layers.size(); ++i) {
            const bool addFollows = i + 1 < layers.size() && layers[i + 1].layer.kind == kAdd;
            append(layers[i], widest(layers, i), layers[i].layer.keep || addFollows);
            if (layers[i].layer.keep) {
                shortcut_ = tensor_;
            }
        }
        return std::move(steps_);
    }

  private:
    // The channels of the widest addition from here on at the size that layer i gives.
    static size_t widest(const std::vector<FusedLayer>& layers, size_t i) {
        int channels = layers[i].layer.outChannels;
        const int size = layers[i].outSize();
        for (; i < layers.size() && layers[i].outSize() == size; ++i) {
            if (layers[i].layer.kind == kAdd) {
                channels = std::max(channels, layers[i].layer.outChannels);
            }
        }
        return channels;
    }

    // Tensors of additions have buffers of their own, whose spare channels stay zero; all others
    // take turns in two.
    Tensor output(const FusedLayer& fused, size_t widestChannels, bool ofAddition) {
        const size_t channels = fused.layer.outChannels;
        const size_t size = fused.outSize();
        if (ofAddition) {
            return {NewBuffer(size * size * widestChannels), channels, widestChannels, size};
        }
        const Buffer& buffer = tensor_.buffer == turns_[0] ? turns_[1] : turns_[0];
        return {buffer, channels, channels, size};
    }

    void append(const FusedLayer& fused, size_t widestChannels, bool ofAddition) {
        switch (fused.layer.kind) {
            case kAdd:
                return addition(fused);
            case kMaxPool1:
                return maxPool(fused, 1, output(fused, widestChannels, ofAddition));
            case kMaxPool2:
                return maxPool(fused, 2, output(fused, widestChannels, ofAddition));
            case kAverage:
                return average(output(fused, widestChannels, ofAddition));
            case kFullyConnected:
                return fullyConnected(output(fused, widestChannels, ofAddition));
            case kNormalise:
                return normalise();
            case kGlobal:
                return global(output(fused, widestChannels, ofAddition));
            default:
                return convolution(fused, output(fused, widestChannels, ofAddition));
        }
    }

    struct Window {
        size_t height; // of the input
        uint32_t kernelHeight, kernelWidth, pad, stride;
    };

    xnn_operator_t convolutionOperator(const Window& window, bool depthwise, int8_t lowest,
                                       const int8_t* from, size_t toChannels, size_t toStride,
                                       int8_t* to) {
        const uint32_t groups = depthwise ? tensor_.channels : 1;
        const size_t groupInputs = tensor_.channels / groups;
        const auto weights = RandomValues<int8_t>(
            window.kernelHeight * window.kernelWidth * groupInputs * toChannels, -127, 127);
        const std::vector<int32_t> bias(toChannels, 100);
        xnn_operator_t op = nullptr;
        Check(xnn_create_convolution2d_nhwc_qs8(
            window.pad, window.pad, window.pad, window.pad, window.kernelHeight, window.kernelWidth,
            window.stride, window.stride, 1, 1, groups, groupInputs, toChannels / groups,
            tensor_.stride, toStride, 0, 1.0f, kScale, weights.data(), bias.data(), 0, 1.0f, lowest,
            127, depthwise ? XNN_FLAG_DEPTHWISE_CONVOLUTION : 0, &op));
        Check(xnn_setup_convolution2d_nhwc_qs8(op, 1, window.height, tensor_.size, from, to,
                                               nullptr));
        return op;
    }

    void convolution(const FusedLayer& fused, const Tensor& to) {
        const LayerKind kind = fused.layer.kind;
        const uint32_t kernel = kind == kPointwise ? 1 : 3;
        const Window window = {tensor_.size, kernel, kernel, kernel / 2,
                               static_cast<uint32_t>(fused.stride)};
        run(kind,
            convolutionOperator(window, kind == kDepthwise || kind == kDepthwiseRelu,
                                fused.rectified ? 0 : -128, tensor_.data(), to.channels, to.stride,
                                to.data()),
            to);
    }

    // Its fast depthwise kernels have 9 or 25 weights a channel. Four quarters of 3 x 3 and their
    // sum are much faster than the whole filter. Each quarter runs over a band of three rows, at
    // both columns, of which one counts.
    void global(const Tensor& to) {
        constexpr uint32_t kPart = 3;
        const size_t bandBytes = kPart * tensor_.size * tensor_.stride;
        if (tensor_.size != 2 * kPart) {
            throw std::logic_error("XNNPACK: the global layer is not 6 x 6");
        }
        const Window window = {kPart, kPart, kPart, 0, kPart};
        std::vector<xnn_operator_t> operators;
        for (size_t quarter = 0; quarter < 4; ++quarter) {
            operators.push_back(
                convolutionOperator(window, true, -128, tensor_.data() + quarter / 2 * bandBytes,
                                    to.channels, to.stride, to.data() + 2 * quarter * to.channels));
        }
        for (size_t quarter = 1; quarter < 4; ++quarter) {
            const int8_t* counted = to.data() + (2 * quarter + quarter % 2) * to.channels;
            xnn_operator_t sum = nullptr;
            Check(xnn_create_add_nd_qs8(0, 1.0f, 0, 1.0f, 0, 1.0f, -128, 127, 0, &sum));
            Check(xnn_setup_add_nd_qs8(sum, 1, &to.channels, 1, &to.channels, to.data(), counted,
                                       to.data(), nullptr));
            operators.push_back(sum);
        }
        for (xnn_operator_t op : operators) {
            run(kGlobal, op, to);
        }
    }

    void maxPool(const FusedLayer& fused, uint32_t stride, const Tensor& to) {
        xnn_operator_t op = nullptr;
        Check(xnn_create_max_pooling2d_nhwc_s8(0, 0, 0, 0, 2, 2, stride, stride, 1, 1, to.channels,
                                               tensor_.stride, to.stride, -128, 127, 0, &op));
        Check(xnn_setup_max_pooling2d_nhwc_s8(op, 1, tensor_.size, tensor_.size, tensor_.data(),
                                              to.data(), nullptr));
        run(fused.layer.kind, op, to);
    }

    void addition(const FusedLayer& fused) {
        const size_t count = tensor_.size * tensor_.size * tensor_.stride;
        if (shortcut_.stride != tensor_.stride) {
            throw std::logic_error("XNNPACK: an addition of unlike tensors");
        }
        xnn_operator_t op = nullptr;
        Check(xnn_create_add_nd_qs8(0, 1.0f, 0, 0.5f, 0, 1.0f, -128, 127, 0, &op));
        Check(xnn_setup_add_nd_qs8(op, 1, &count, 1, &count, tensor_.data(), shortcut_.data(),
                                   tensor_.data(), nullptr));
        run(fused.layer.kind, op, tensor_);
    }

    void average(const Tensor& to) {
        xnn_operator_t op = nullptr;
        Check(xnn_create_global_average_pooling_nwc_qs8(to.channels, tensor_.stride, to.stride, 0,
                                                        1.0f, 0, 1.0f, -128, 127, 0, &op));
        Check(xnn_setup_global_average_pooling_nwc_qs8(op, 1, tensor_.size * tensor_.size,
                                                       tensor_.data(), to.data(), nullptr));
        run(kAverage, op, to);
    }

    void fullyConnected(const Tensor& to) {
        const auto weights = RandomValues<int8_t>(tensor_.channels * to.channels, -127, 127);
        const std::vector<int32_t> bias(to.channels, 100);
        xnn_operator_t op = nullptr;
        Check(xnn_create_fully_connected_nc_qs8(tensor_.channels, to.channels, tensor_.stride,
                                                to.stride, 0, 1.0f, kScale, weights.data(),
                                                bias.data(), 0, 1.0f, -128, 127, 0, &op));
        Check(xnn_setup_fully_connected_nc_qs8(op, 1, tensor_.data(), to.data(), nullptr));
        run(kFullyConnected, op, to);
    }

    void normalise() {
        const auto feature = std::make_shared<std::array<float, 128>>();
        steps_.push_back({KindName(kNormalise), [from = tensor_, feature] {
                              Normalise128(from.data(), feature->data());
                          }});
    }

    void run(LayerKind kind, xnn_operator_t op, const Tensor& to) {
        const std::shared_ptr<xnn_operator> owned(op, xnn_delete_operator);
        steps_.push_back({KindName(kind), [owned, from = tensor_, other = shortcut_, to] {
                              xnn_run_operator(owned.get(), nullptr);
                          }});
        tensor_ = to;
    }

    Buffer turns_[2] = {NewBuffer(kSlotBytes), NewBuffer(kSlotBytes)};
    Tensor tensor_ = {};
    Tensor shortcut_ = {};
    std::vector<PeerStep> steps_;
};

} // namespace

Peer Xnnpack() {
    Check(xnn_initialize(nullptr));
    return {"XNNPACK", NetworkBuilder().build(AlignNetwork()),
            NetworkBuilder().build(RecognitionNetwork())};
}

} // namespace orvo_bench
