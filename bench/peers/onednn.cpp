// SPDX-License-Identifier: MIT
//
// Both networks on oneDNN (https://github.com/oneapi-src/oneDNN), through its public interface.
//
// What it is given: its own choice of layouts (format any) with weights reordered beforehand; fused
// rectifiers; residual additions fused into the layer before them (in place, the "sum" post-op);
// stride 2 in the depthwise layers that we follow with sampling; unsigned activations wherever a
// rectifier makes them so, which its multiply instruction prefers; channels padded to its block of
// 16; prepared argument lists, executed through the C interface, which costs less than the C++ one;
// every instruction set that it finds, AMX included (ONEDNN_MAX_CPU_ISA=AVX512_CORE_VNNI leaves
// that out).
//
// What does not match: it rounds where we shift down. Where an addition's result is wider than its
// shortcut by more than the padding, the shortcut goes through a concatenation with zeros, which
// our addition does in passing. The last layer, the normalisation, is a plain loop.
#include <oneapi/dnnl/dnnl.hpp>
#include <stdexcept>

#include "bench/peers/normalise.h"
#include "bench/peers/peer.h"

namespace orvo_bench {
namespace {

using dnnl::memory;
using Dims = memory::dims;
using Type = memory::data_type;
using enum LayerKind;

constexpr int kChannelBlock = 16;
constexpr float kScale = 1.0f / 128;

int Padded(int channels) { return (channels + kChannelBlock - 1) / kChannelBlock * kChannelBlock; }

struct Tensor {
    memory data;
    int channels;
    int size;
    Type type;
};

class NetworkBuilder {
  public:
    NetworkBuilder(const dnnl::engine& engine, const dnnl::stream& stream)
        : engine_(engine), stream_(stream) {
        for (std::vector<int8_t>& slot : *slots_) {
            slot = RandomValues<int8_t>(kSlotBytes, 0, 127);
        }
    }

    std::vector<PeerStep> build(const Network& network) {
        const std::vector<FusedLayer> layers = Fuse(network);
        for (size_t i = 0; i < layers.size(); ++i) {
            const bool addFollows = i + 1 < layers.size() && layers[i + 1].layer.kind == kAdd;
            append(layers[i], addFollows,
                   layers[i].layer.kind == kConvolution && layers[i].layer.keep
                       ? nextAddition(layers, i)
                       : layers[i].layer.outChannels);
            i += addFollows;
            if (layers[i].layer.keep) {
                slot_.wrote(slot_.input(), true);
                shortcut_ = tensor_;
            }
        }
        return std::move(steps_);
    }

  private:
    // A kept stem is made as wide as the addition needs it.
    static int nextAddition(const std::vector<FusedLayer>& layers, size_t i) {
        while (layers[i].layer.kind != kAdd) {
            ++i;
        }
        return layers[i].layer.outChannels;
    }

    void append(const FusedLayer& fused, bool addFollows, int outChannels) {
        switch (fused.layer.kind) {
            case kMaxPool1:
                return tensor_.channels < 128 ? maxPoolInSteps(fused)
                                              : pool(fused, dnnl::algorithm::pooling_max, 2, 1);
            case kMaxPool2:
                return pool(fused, dnnl::algorithm::pooling_max, 2, 2);
            case kAverage:
                return pool(fused, dnnl::algorithm::pooling_avg, fused.layer.size, 1);
            case kFullyConnected:
                return fullyConnected(fused.layer);
            case kNormalise:
                return normalise();
            default:
                return convolution(fused, addFollows, Padded(outChannels));
        }
    }

    // dims are those of NCHW.
    memory::desc activations(int channels, int size, Type type) const {
        return {{1, channels, size, size}, type, memory::format_tag::any};
    }
    memory inSlot(const memory::desc& desc, int slot) const {
        if (desc.get_size() > kSlotBytes) {
            throw std::length_error("oneDNN: the tensor is larger than a slot");
        }
        return {desc, engine_, (*slots_)[slot].data()};
    }

    void convolution(const FusedLayer& fused, bool addFollows, int outChannels) {
        const Layer& layer = fused.layer;
        const bool first = steps_.empty();
        const bool global = layer.kind == kGlobal;
        const bool depthwise = layer.kind == kDepthwise || layer.kind == kDepthwiseRelu || global;
        const int inChannels = first ? layer.channels : tensor_.channels;
        const int kernel = global ? layer.size : layer.kind == kPointwise ? 1 : 3;
        const int pad = global ? 0 : kernel / 2;
        const Type outType = fused.rectified ? Type::u8 : Type::s8;
        const Dims weightDims = depthwise ? Dims{outChannels, 1, 1, kernel, kernel}
                                          : Dims{outChannels, inChannels, kernel, kernel};
        if (addFollows) {
            widenShortcut(outChannels);
        }

        dnnl::primitive_attr attributes;
        attributes.set_output_scales(0, {kScale});
        dnnl::post_ops after;
        if (addFollows) {
            after.append_sum(0.5f);
        }
        if (fused.rectified) {
            after.append_eltwise(1.0f, dnnl::algorithm::eltwise_relu, 0.0f, 0.0f);
        }
        attributes.set_post_ops(after);

        const memory::desc source =
            first ? activations(inChannels, layer.size, Type::u8) : tensor_.data.get_desc();
        const memory::desc destination = addFollows
                                             ? shortcut_.data.get_desc()
                                             : activations(outChannels, fused.outSize(), outType);
        const dnnl::convolution_forward::primitive_desc primitive(
            {dnnl::prop_kind::forward_inference, dnnl::algorithm::convolution_direct, source,
             memory::desc(weightDims, Type::s8, memory::format_tag::any),
             memory::desc({outChannels}, Type::s32, memory::format_tag::x), destination,
             Dims{fused.stride, fused.stride}, Dims{pad, pad}, Dims{pad, pad}},
            attributes, engine_);

        if (first) {
            takeInput(layer, primitive.src_desc());
        }
        const memory weights = prepared(weightDims, primitive.weights_desc());
        const int slot = addFollows ? slot_.shortcut() : slot_.output();
        const memory result = inSlot(primitive.dst_desc(), slot);
        add(KindName(layer.kind), dnnl::convolution_forward(primitive),
            {{DNNL_ARG_SRC, tensor_.data},
             {DNNL_ARG_WEIGHTS, weights},
             {DNNL_ARG_BIAS, bias(outChannels)},
             {DNNL_ARG_DST, result}});
        tensor_ = {result, outChannels, fused.outSize(), outType};
        slot_.wrote(slot, false);
    }

    // The picture comes in planes; the reorder into what the first layer wants is timed with it.
    void takeInput(const Layer& layer, const memory::desc& wanted) {
        const memory planes = inSlot(
            {{1, layer.channels, layer.size, layer.size}, Type::u8, memory::format_tag::nchw},
            slot_.input());
        tensor_ = {planes, layer.channels, layer.size, Type::u8};
        if (wanted != planes.get_desc()) {
            const int slot = slot_.output();
            const memory ordered = inSlot(wanted, slot);
            add(KindName(layer.kind), dnnl::reorder(planes, ordered),
                {{DNNL_ARG_FROM, planes}, {DNNL_ARG_TO, ordered}});
            tensor_.data = ordered;
            slot_.wrote(slot, false);
        }
    }

    void widenShortcut(int channels) {
        const int missing = channels - shortcut_.channels;
        if (missing == 0) {
            return;
        }
        const auto nhwc = [&](int count) {
            return memory::desc({1, count, shortcut_.size, shortcut_.size}, Type::s8,
                                memory::format_tag::nhwc);
        };
        static std::vector<int8_t> zeros(kSlotBytes);
        const memory nothing(nhwc(missing), engine_, zeros.data());
        const dnnl::concat::primitive_desc primitive(
            nhwc(channels), 1, {shortcut_.data.get_desc(), nothing.get_desc()}, engine_);
        // Three slots are in use: the layer's input, the shortcut and this.
        const int slot = slot_.output();
        const memory wide = inSlot(primitive.dst_desc(), slot);
        add("add", dnnl::concat(primitive),
            {{DNNL_ARG_MULTIPLE_SRC, shortcut_.data},
             {DNNL_ARG_MULTIPLE_SRC + 1, nothing},
             {DNNL_ARG_DST, wide}});
        shortcut_ = {wide, channels, shortcut_.size, shortcut_.type};
        slot_.moveShortcut(slot);
    }

    void pool(const FusedLayer& fused, dnnl::algorithm algorithm, int kernel, int stride) {
        const dnnl::pooling_forward::primitive_desc primitive(
            {dnnl::prop_kind::forward_inference, algorithm, tensor_.data.get_desc(),
             activations(tensor_.channels, fused.outSize(), tensor_.type), Dims{stride, stride},
             Dims{kernel, kernel}, Dims{0, 0}, Dims{0, 0}},
            engine_);
        const int slot = slot_.output();
        const memory result = inSlot(primitive.dst_desc(), slot);
        add(KindName(fused.layer.kind), dnnl::pooling_forward(primitive),
            {{DNNL_ARG_SRC, tensor_.data}, {DNNL_ARG_DST, result}});
        tensor_ = {result, tensor_.channels, fused.outSize(), tensor_.type};
        slot_.wrote(slot, false);
    }

    // Its pooling costs a call a pixel, which is much for few channels. Taken apart it is faster:
    // the maximum of rows, for which whole rows are the channels; the maximum of neighbours, which
    // are the same memory one pixel further; and a copy that leaves out each row's last pixel.
    void maxPoolInSteps(const FusedLayer& fused) {
        const std::string kind = KindName(fused.layer.kind);
        const int size = tensor_.size;
        const int row = size * tensor_.channels;
        const auto nhwc = [&](const Dims& dims) {
            return memory::desc(dims, tensor_.type, memory::format_tag::nhwc);
        };
        const dnnl::pooling_forward::primitive_desc ofRows(
            {dnnl::prop_kind::forward_inference, dnnl::algorithm::pooling_max,
             nhwc({1, row, size, 1}), nhwc({1, row, size - 1, 1}), Dims{1, 1}, Dims{2, 1},
             Dims{0, 0}, Dims{0, 0}},
            engine_);
        const int rows = slot_.output();
        add(kind, dnnl::pooling_forward(ofRows),
            {{DNNL_ARG_SRC, inSlot(ofRows.src_desc(), slot_.input())},
             {DNNL_ARG_DST, inSlot(ofRows.dst_desc(), rows)}});

        slot_.wrote(rows, true);
        const memory::desc all({(size - 1) * row - tensor_.channels}, tensor_.type,
                               memory::format_tag::a);
        const dnnl::binary::primitive_desc ofNeighbours(
            {dnnl::algorithm::binary_max, all, all, all}, engine_);
        const int both = slot_.output();
        add(kind, dnnl::binary(ofNeighbours),
            {{DNNL_ARG_SRC_0, inSlot(all, rows)},
             {DNNL_ARG_SRC_1, memory(all, engine_, (*slots_)[rows].data() + tensor_.channels)},
             {DNNL_ARG_DST, inSlot(all, both)}});

        const memory::desc wide({1, tensor_.channels, size - 1, size - 1}, tensor_.type,
                                Dims{(size - 1) * row, 1, row, tensor_.channels});
        const memory from = inSlot(wide, both);
        const memory result = inSlot(nhwc(wide.dims()), rows);
        add(kind, dnnl::reorder(from, result), {{DNNL_ARG_FROM, from}, {DNNL_ARG_TO, result}});
        tensor_ = {result, tensor_.channels, size - 1, tensor_.type};
    }

    void fullyConnected(const Layer& layer) {
        dnnl::primitive_attr attributes;
        attributes.set_output_scales(0, {kScale});
        const Dims weightDims = {layer.outChannels, tensor_.channels};
        const memory::desc vector({1, tensor_.channels}, Type::s8, memory::format_tag::nc);
        const dnnl::inner_product_forward::primitive_desc primitive(
            {dnnl::prop_kind::forward_inference, vector,
             memory::desc(weightDims, Type::s8, memory::format_tag::any),
             memory::desc({layer.outChannels}, Type::s32, memory::format_tag::x),
             memory::desc({1, layer.outChannels}, Type::s8, memory::format_tag::nc)},
            attributes, engine_);
        const int slot = slot_.output();
        const memory result = inSlot(primitive.dst_desc(), slot);
        add(KindName(layer.kind), dnnl::inner_product_forward(primitive),
            {{DNNL_ARG_SRC, inSlot(vector, slot_.input())},
             {DNNL_ARG_WEIGHTS, prepared(weightDims, primitive.weights_desc())},
             {DNNL_ARG_BIAS, bias(layer.outChannels)},
             {DNNL_ARG_DST, result}});
        tensor_ = {result, layer.outChannels, 1, Type::s8};
        slot_.wrote(slot, false);
    }

    void normalise() {
        const auto feature = std::make_shared<std::array<float, 128>>();
        steps_.push_back({"head", [slots = slots_, slot = slot_.input(), feature] {
                              Normalise128((*slots)[slot].data(), feature->data());
                          }});
    }

    // Random weights in the order that the primitive wants.
    memory prepared(const Dims& dims, const memory::desc& wanted) {
        const memory::format_tag tags[] = {memory::format_tag::ab, memory::format_tag::abcd,
                                           memory::format_tag::abcde};
        const memory plain({dims, Type::s8,
                            dims.size() == 2   ? tags[0]
                            : dims.size() == 4 ? tags[1]
                                               : tags[2]},
                           engine_);
        const std::vector<int8_t> values =
            RandomValues<int8_t>(plain.get_desc().get_size(), -127, 127);
        std::copy(values.begin(), values.end(), static_cast<int8_t*>(plain.get_data_handle()));
        memory ordered(wanted, engine_);
        dnnl::reorder(plain, ordered).execute(stream_, const_cast<memory&>(plain), ordered);
        return ordered;
    }

    memory bias(int channels) {
        memory values({{channels}, Type::s32, memory::format_tag::x}, engine_);
        std::fill_n(static_cast<int32_t*>(values.get_data_handle()), channels, 100);
        return values;
    }

    void add(std::string kind, const dnnl::primitive& primitive,
             const std::vector<std::pair<int, memory>>& arguments) {
        std::vector<dnnl_exec_arg_t> list;
        for (const auto& [index, data] : arguments) {
            list.push_back({index, data.get()});
        }
        // The list refers to memories, and these to the slots: the closure keeps all of them.
        steps_.push_back(
            {std::move(kind), [primitive, stream = stream_, slots = slots_, arguments, list] {
                 dnnl_primitive_execute(primitive.get(), stream.get(),
                                        static_cast<int>(list.size()), list.data());
             }});
    }

    dnnl::engine engine_;
    dnnl::stream stream_;
    std::shared_ptr<std::array<std::vector<int8_t>, 3>> slots_ =
        std::make_shared<std::array<std::vector<int8_t>, 3>>();
    SlotChooser slot_;
    Tensor tensor_ = {};
    Tensor shortcut_ = {};
    std::vector<PeerStep> steps_;
};

} // namespace

Peer OneDnn() {
    const dnnl::engine engine(dnnl::engine::kind::cpu, 0);
    const dnnl::stream stream(engine);
    const bool amx = dnnl::get_effective_cpu_isa() == dnnl::cpu_isa::avx512_core_amx;
    return {amx ? "oneDNN, AMX" : "oneDNN", NetworkBuilder(engine, stream).build(AlignNetwork()),
            NetworkBuilder(engine, stream).build(RecognitionNetwork())};
}

} // namespace orvo_bench
