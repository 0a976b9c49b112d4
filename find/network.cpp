// SPDX-License-Identifier: MIT
//
// Separable convolutions: a depthwise filter, a pointwise one with a rectifier, again and again. The
// planes shrink twice by a maximum. Behind the fifth pair of stride 8 and the fourth of stride 16
// stands a head each, whose last layer answers for every 8 x 8 and 16 x 16 pixels of the picture.
//
// Where things lie, in units of a plane of stride 4 (16 of them are a picture):
//
//     0         16        32        48        64
//     | A       | A'      | B       | B'      |
//
// At stride 4 an output of 32 planes takes A with A' or B with B'. At stride 8 a quarter of these
// bytes makes a plane, so that 64 planes fit each of the four, and there is room for what stride 16
// starts from, in A, and for the answers, in A'.
#include "find/network.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "find/model.h"
#include "orvo/q7_kernels.h"

namespace orvo::find {
namespace {

enum class Kind { Pointwise, Depthwise };

struct Layer {
    int32_t number;
    Kind kind;
    uint16_t inputs, stride, outputs, shift;
    const int8_t* weights;
    const int32_t* bias;
};

#define ORVO_LAYER(kind, number, inputs, stride, outputs, shift) \
    {number, Kind::kind, inputs, stride, outputs, shift, g_findWeights##number, g_findBias##number},

constexpr Layer kLayers[] = {ORVO_FIND_NETWORK(ORVO_LAYER, ORVO_NO_LAYER)};
#undef ORVO_LAYER

// Planes of stride 4 that A takes, and each of the others.
constexpr size_t kQuarter = 16;
constexpr size_t kQuarters = 4;
constexpr size_t kPixelsOfPlane = 16; // a plane of stride 4 has one for so many of the picture

constexpr bool EveryLayerStandsAtItsNumber() {
    int32_t number = 0;
    return std::all_of(std::begin(kLayers), std::end(kLayers),
                       [&](const Layer& layer) { return layer.number == number++; });
}
static_assert(EveryLayerStandsAtItsNumber());

// At stride 4 an output may take two quarters.
constexpr bool EveryOutputHasRoom() {
    return std::all_of(std::begin(kLayers), std::end(kLayers), [](const Layer& layer) {
        const size_t room = layer.stride == 4 ? 2 * kQuarter : kQuarter;
        return layer.outputs * size_t{16} <= room * layer.stride * layer.stride &&
               (layer.kind == Kind::Pointwise || layer.inputs == layer.outputs);
    });
}
static_assert(EveryOutputHasRoom());
static_assert(kLayers[15].outputs == kAnswerPlanes && kLayers[26].outputs == kAnswerPlanes);

// Planes of a picture's size divided by a stride.
struct Tensor {
    int8_t* data;
    uint16_t channels, stride;
};

struct Network {
    Size picture;
    int8_t* scratch;

    uint16_t width(uint16_t stride) const { return static_cast<uint16_t>(picture.width / stride); }
    uint16_t height(uint16_t stride) const {
        return static_cast<uint16_t>(picture.height / stride);
    }

    Tensor layer(int32_t number, const Tensor& src, int8_t* dst) const {
        const Layer& l = kLayers[number];
        const uint16_t w = width(l.stride);
        const uint16_t h = height(l.stride);
        if (l.kind == Kind::Pointwise) {
            ArmAConvolve1x1s1p0ChwQ7(src.data, w, h, l.inputs, l.weights, l.outputs, 1, 0, 1,
                                     l.bias, l.shift, dst, w, h, scratch);
        } else {
            arma_convolvedw_3x3_s1_chw_q7(src.data, w, h, l.inputs, l.weights, l.outputs, 3, 1, 1,
                                          l.bias, l.shift, dst, w, h, scratch);
        }
        return {dst, l.outputs, l.stride};
    }
    Tensor rectify(const Tensor& t) const {
        const uint32_t count = uint32_t{t.channels} * width(t.stride) * height(t.stride);
        ArmAReluChwQ7(t.data, t.data, count);
        return t;
    }
    Tensor maxPool(const Tensor& src, int8_t* dst) const {
        ArmAMaxPool2x2S2ChwQ7(src.data, dst, width(src.stride), height(src.stride), src.channels, 0,
                              scratch);
        return {dst, src.channels, static_cast<uint16_t>(2 * src.stride)};
    }
};

size_t PixelsAtStride4(Size padded) {
    return static_cast<size_t>(padded.width) * static_cast<size_t>(padded.height) / kPixelsOfPlane;
}

// What q7_kernels.h asks for.
size_t ScratchOf(const Layer& layer, Size padded) {
    const size_t w = static_cast<size_t>(padded.width / layer.stride);
    const size_t h = static_cast<size_t>(padded.height / layer.stride);
    if (layer.kind == Kind::Depthwise) {
        return layer.inputs * (w + 2) * (h + 2);
    }
    const size_t n = w * h;
    return 32 * (layer.inputs / 4u + layer.inputs % 4u) * (n / 8 + n % 8 / 4 + n % 4);
}

} // namespace

uint32_t NetworkOutputBytes(Size padded) {
    return static_cast<uint32_t>(kQuarters * kQuarter * PixelsAtStride4(padded));
}

uint32_t NetworkScratchBytes(Size padded) {
    size_t most = 0;
    for (const Layer& layer : kLayers) {
        most = std::max(most, ScratchOf(layer, padded));
    }
    return static_cast<uint32_t>(most);
}

Answers RunNetwork(Size padded, const NetworkMemory& memory) {
    const Network net{padded, memory.scratch};
    const size_t quarterBytes = kQuarter * PixelsAtStride4(padded);
    int8_t* const A = memory.outputs;
    int8_t* const A2 = A + quarterBytes;
    int8_t* const B = A2 + quarterBytes;
    int8_t* const B2 = B + quarterBytes;
    int8_t* const answer8 = A2;
    int8_t* const answer16 =
        A2 + static_cast<ptrdiff_t>(kAnswerPlanes) * net.width(8) * net.height(8);

    ArmAXorQ7(reinterpret_cast<uint8_t*>(A), padded.width * padded.height);
    Tensor t = {A, kLayers[0].inputs, kLayers[0].stride};

    // Stride 4
    t = net.rectify(net.layer(0, t, B));
    t = net.layer(1, t, A);
    t = net.rectify(net.layer(2, t, B));
    t = net.layer(3, t, A);
    t = net.layer(4, t, B);
    t = net.rectify(net.maxPool(t, A));

    // Stride 8
    t = net.layer(5, t, B);
    t = net.rectify(net.layer(6, t, A));
    t = net.layer(7, t, B);
    t = net.rectify(net.layer(8, t, A));
    t = net.layer(9, t, B);
    t = net.rectify(net.layer(10, t, A));
    t = net.layer(11, t, B);
    const Tensor kept = net.rectify(net.layer(12, t, A));

    // What stride 8 answers
    t = net.layer(13, kept, B);
    t = net.rectify(net.layer(14, t, B2));
    net.layer(15, t, answer8);

    // Stride 16
    t = net.maxPool(kept, B);
    t = net.layer(16, t, B2);
    t = net.rectify(net.layer(17, t, A));
    t = net.layer(18, t, B);
    t = net.rectify(net.layer(19, t, A));
    t = net.layer(20, t, B);
    t = net.rectify(net.layer(21, t, A));
    t = net.layer(22, t, B);
    t = net.rectify(net.layer(23, t, A));

    // What stride 16 answers
    t = net.layer(24, t, B);
    t = net.rectify(net.layer(25, t, A));
    net.layer(26, t, answer16);
    return {answer8, answer16};
}

} // namespace orvo::find
