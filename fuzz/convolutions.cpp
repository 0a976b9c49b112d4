// SPDX-License-Identifier: MIT
//
// The convolutions on every path of this machine: the bytes of the plain one, and nothing outside the sizes
// that the interface states.
#include <algorithm>

#include "arena.h"
#include "input.h"
#include "orvo/q7_kernels.h"
#include "paths.h"
#include "quiet.h"
#include "values.h"

namespace orvo_fuzz {
namespace {

using Kernel = void (*)(const int8_t*, uint16_t, uint16_t, uint16_t, const int8_t*, uint16_t,
                        uint16_t, uint16_t, uint16_t, const int32_t*, uint16_t, int8_t*, uint16_t,
                        uint16_t, int8_t*);
using HwcKernel = int32_t (*)(const int8_t*, uint16_t, uint16_t, uint16_t, const int8_t*, uint16_t,
                              uint16_t, uint16_t, uint16_t, const int32_t*, uint16_t, int8_t*,
                              uint16_t, int16_t, int8_t*, uint32_t);

// A case has so many products at most, that many of them run in a second; one in sixteen has more.
constexpr uint32_t kFewProducts = 1500;
constexpr uint32_t kMostProducts = 20000;

Arena<size_t{1} << 20> arena;
int8_t expected[size_t{1} << 16];

struct Shape {
    uint32_t srcWidth, srcHeight, srcChannels, dstWidth, dstHeight, dstChannels;
    uint32_t kernel, pad, stride, shift;
    uint32_t mostProducts;

    uint32_t SrcBytes() const { return srcWidth * srcHeight * srcChannels; }
    uint32_t DstPixels() const { return dstWidth * dstHeight; }
    uint32_t DstBytes() const { return DstPixels() * dstChannels; }
    uint32_t Inner() const { return kernel * kernel * srcChannels; }
};

struct Sizes {
    size_t weights, scratch;
};

uint32_t Groups(uint32_t channels) { return channels / 4 + channels % 4; }

Sizes SizesOfGeneric(const Shape& s) {
    const size_t k = s.Inner();
    const size_t n = s.DstPixels();
    return {4 * k * Groups(s.dstChannels), (k * n + 3) / 4 * 4 + 8 * k * (n / 8 + n % 8)};
}

Sizes SizesOfPointwise(const Shape& s) {
    const size_t slot = Groups(s.srcChannels);
    const size_t n = size_t{s.srcWidth} * s.srcHeight;
    return {16 * slot * Groups(s.dstChannels), 32 * slot * (n / 8 + n % 8 / 4 + n % 4)};
}

Sizes SizesOfDepthwise(const Shape& s) {
    const size_t padded = size_t{s.srcWidth + 2 * s.pad} * (s.srcHeight + 2 * s.pad);
    return {size_t{9} * s.dstChannels, s.pad == 0 ? 0 : padded * s.srcChannels};
}

// Small networks' sizes for the most part, and now and then one that is longer than any vector.
uint32_t Extent(Input& input) {
    const uint32_t byte = input.Byte();
    return byte < 224 ? byte % 20 : 16 + (byte - 224) * 4;
}

// Shifts of the networks for the most part, and those that leave the sign alone.
uint32_t Shift(Input& input) {
    const uint32_t byte = input.Byte();
    return byte < 240 ? byte % 20 : byte == 255 ? 65535 : byte - 212;
}

void KeepProductsFew(Shape& s, bool isDepthwise) {
    const auto products = [&] {
        return uint64_t{s.DstPixels()} * s.dstChannels *
               (isDepthwise ? 9 : std::max(s.Inner(), 1u));
    };
    while (products() > s.mostProducts && s.dstChannels > 1) {
        s.dstChannels /= 2;
    }
    while (products() > s.mostProducts && s.dstHeight > 1) {
        s.dstHeight /= 2;
        s.srcHeight = std::max(s.srcHeight / 2, 1u);
    }
    while (products() > s.mostProducts && s.srcChannels > 1) {
        s.srcChannels /= 2;
    }
}

struct Buffers {
    const int8_t* src;
    const int8_t* weights;
    const int32_t* bias;
    int8_t* dst;
    int8_t* scratch;
};

// Null dst where a case is too large after all.
Buffers MakeBuffers(Input& input, const Shape& s, const Sizes& sizes) {
    const uint8_t skew = input.Byte();
    auto* src = arena.Take<int8_t>(s.SrcBytes(), skew & 7);
    auto* weights = arena.Take<int8_t>(sizes.weights, skew >> 3 & 7);
    auto* bias = arena.Take<int32_t>(s.dstChannels);
    auto* dst = arena.Take<int8_t>(s.DstBytes(), skew >> 5 & 3);
    auto* scratch = arena.Take<int8_t>(sizes.scratch, skew >> 7);
    if (src == nullptr || weights == nullptr || bias == nullptr || scratch == nullptr ||
        s.DstBytes() > sizeof expected) {
        return {};
    }
    FillBytes(input, src, s.SrcBytes());
    FillBytes(input, weights, sizes.weights);
    FillBiases(input, bias, s.dstChannels);
    return {src, weights, bias, dst, scratch};
}

void Compare(Input& input, const char* name, Kernel kernel, const Shape& s, const Sizes& sizes) {
    const Buffers at = MakeBuffers(input, s, sizes);
    if (at.dst == nullptr) {
        return;
    }
    const auto u16 = [](uint32_t value) { return static_cast<uint16_t>(value); };
    SameOnAllPaths(name, at.dst, expected, s.DstBytes(), [&] {
        kernel(at.src, u16(s.srcWidth), u16(s.srcHeight), u16(s.srcChannels), at.weights,
               u16(s.dstChannels), u16(s.kernel), u16(s.pad), u16(s.stride), at.bias, u16(s.shift),
               at.dst, u16(s.dstWidth), u16(s.dstHeight), at.scratch);
    });
}

Shape SourceOf(Input& input) {
    Shape s = {};
    s.mostProducts = input.Byte() < 240 ? kFewProducts : kMostProducts;
    s.srcWidth = Extent(input);
    s.srcHeight = Extent(input) % 24;
    s.srcChannels = Extent(input);
    s.dstChannels = Extent(input);
    s.shift = Shift(input);
    return s;
}

// Output sizes are taken as given: anything up to two more than what the input gives.
void Generic(Input& input) {
    Shape s = SourceOf(input);
    s.kernel = input.Between(1, 5);
    s.pad = input.Between(0, 3);
    s.stride = input.Between(1, 4);
    const auto out = [&](uint32_t size) {
        const uint32_t padded = size + 2 * s.pad;
        return padded < s.kernel ? 0 : (padded - s.kernel) / s.stride + 1;
    };
    const uint8_t other = input.Byte();
    s.dstWidth = out(s.srcWidth) + (other > 250 ? 2 : other > 245 ? 1 : 0);
    s.dstHeight = out(s.srcHeight) + (other > 252 ? 2 : other > 247 ? 1 : 0);
    KeepProductsFew(s, false);
    Compare(input, "arma_convolve_chw_q7", arma_convolve_chw_q7, s, SizesOfGeneric(s));
}

// The networks' own: three equal planes, or a first layer, whose planes are made into one.
void EqualPlanes(Input& input) {
    Shape s = SourceOf(input);
    s.srcChannels = input.Between(1, 6);
    s.kernel = 3;
    s.pad = 1;
    s.stride = 1;
    s.dstWidth = s.srcWidth;
    s.dstHeight = s.srcHeight;
    KeepProductsFew(s, false);
    s.srcHeight = s.dstHeight;
    const Buffers at = MakeBuffers(input, s, SizesOfGeneric(s));
    if (at.dst == nullptr) {
        return;
    }
    const uint32_t plane = s.srcWidth * s.srcHeight;
    for (uint32_t c = 1; c < s.srcChannels; ++c) {
        std::memcpy(const_cast<int8_t*>(at.src) + c * plane, at.src, plane);
    }
    const auto u16 = [](uint32_t value) { return static_cast<uint16_t>(value); };
    SameOnAllPaths("arma_convolve_chw_q7", at.dst, expected, s.DstBytes(), [&] {
        arma_convolve_chw_q7(at.src, u16(s.srcWidth), u16(s.srcHeight), u16(s.srcChannels),
                             at.weights, u16(s.dstChannels), 3, 1, 1, at.bias, u16(s.shift), at.dst,
                             u16(s.dstWidth), u16(s.dstHeight), at.scratch);
    });
}

void Pointwise(Input& input) {
    Shape s = SourceOf(input);
    const uint8_t other = input.Byte(); // shapes that are turned away
    s.kernel = other == 255 ? 3 : 1;
    s.pad = other == 254 ? 1 : 0;
    s.stride = other == 253 ? 2 : 1;
    s.dstWidth = s.srcWidth;
    s.dstHeight = s.srcHeight;
    KeepProductsFew(s, false);
    s.srcHeight = s.dstHeight;
    Compare(input, "ArmAConvolve1x1s1p0ChwQ7", ArmAConvolve1x1s1p0ChwQ7, s, SizesOfPointwise(s));
}

template <bool isRectified>
void Depthwise(Input& input) {
    Shape s = SourceOf(input);
    s.dstChannels = s.srcChannels;
    s.kernel = 3;
    s.stride = 1;
    s.pad = input.Between(0, 2);
    // Smaller planes have no output.
    s.srcWidth = std::max(s.srcWidth, 3u);
    s.srcHeight = std::max(s.srcHeight, 3u);
    s.dstHeight = s.srcHeight + 2 * s.pad - 2;
    s.dstWidth = s.srcWidth + 2 * s.pad - 2;
    while (uint64_t{s.DstBytes()} * 9 > s.mostProducts && s.dstChannels > 1) {
        s.dstChannels /= 2;
    }
    s.srcChannels = s.dstChannels;
    if (isRectified) {
        Compare(input, "ArmAConvolvedwRelu3x3s1ChwQ7", ArmAConvolvedwRelu3x3s1ChwQ7, s,
                SizesOfDepthwise(s));
    } else {
        Compare(input, "arma_convolvedw_3x3_s1_chw_q7", arma_convolvedw_3x3_s1_chw_q7, s,
                SizesOfDepthwise(s));
    }
}

// Three kernels with the same results; a scratch that is too small is refused by all of them.
void Hwc(Input& input) {
    Shape s = SourceOf(input);
    s.srcChannels %= 12;
    s.dstChannels %= 12;
    s.kernel = input.Between(1, 4);
    s.pad = input.Between(0, 2);
    s.stride = input.Between(1, 3);
    s.dstWidth = Extent(input) % 12;
    s.dstHeight = Extent(input) % 12;
    KeepProductsFew(s, false);
    const uint32_t needed = s.DstPixels() * s.Inner();
    const bool isShort = input.Byte() > 245 && needed > 0;
    const Sizes sizes = {size_t{s.dstChannels} * s.Inner(), isShort ? needed - 1 : needed};
    const Buffers at = MakeBuffers(input, s, sizes);
    if (at.dst == nullptr) {
        return;
    }
    const auto u16 = [](uint32_t value) { return static_cast<uint16_t>(value); };
    const auto call = [&](HwcKernel kernel) {
        return kernel(at.src, u16(s.srcWidth), u16(s.srcHeight), u16(s.srcChannels), at.weights,
                      u16(s.dstChannels), u16(s.kernel), u16(s.pad), u16(s.stride), at.bias,
                      u16(s.shift), at.dst, u16(s.dstWidth), static_cast<int16_t>(s.dstHeight),
                      at.scratch, static_cast<uint32_t>(sizes.scratch));
    };
    static constexpr HwcKernel kKernels[] = {ArmAConvHWCQ7Naive, ArmAConvHWCQ7Naive1,
                                             ArmAConvHWCQ7Naive2};
    static int8_t first[sizeof expected];
    for (const HwcKernel kernel : kKernels) {
        SameOnAllPaths("ArmAConvHWCQ7Naive", at.dst, expected, s.DstBytes(),
                       [&] { static_cast<void>(call(kernel)); });
        if (kernel == kKernels[0]) {
            std::memcpy(first, expected, s.DstBytes());
        }
        Require(std::memcmp(first, expected, s.DstBytes()) == 0, "the HWC convolutions agree");
    }
}

} // namespace
} // namespace orvo_fuzz

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    orvo_fuzz::SilenceDiagnostics();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace orvo_fuzz;
    static constexpr void (*kKinds[])(Input&) = {Generic,          EqualPlanes,     Pointwise,
                                                 Depthwise<false>, Depthwise<true>, Hwc};
    Input input(data, size);
    kKinds[input.Byte() % std::size(kKinds)](input);
    arena.Reset();
    return 0;
}
