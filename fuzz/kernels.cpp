// SPDX-License-Identifier: MIT
//
// The kernels beside the convolutions on every path of this machine: the bytes of the plain one, and nothing
// outside the sizes that the interface states.
#include <algorithm>

#include "arena.h"
#include "input.h"
#include "orvo/q7_kernels.h"
#include "paths.h"
#include "quiet.h"
#include "values.h"

namespace orvo_fuzz {
namespace {

constexpr size_t kMostBytes = 8192;

Arena<size_t{1} << 17> arena;
uint8_t expected[4 * kMostBytes];
int8_t before[kMostBytes];

struct Planes {
    uint32_t width, height, channels;

    uint32_t Values() const { return width * height; }
    uint32_t Bytes() const { return Values() * channels; }
};

uint32_t Extent(Input& input) {
    const uint32_t byte = input.Byte();
    return byte < 224 ? byte % 20 : 16 + (byte - 224) * 4;
}

// Small for the most part, that many of them run in a second.
Planes TakePlanes(Input& input) {
    const uint32_t most = input.Byte() < 240 ? 300 : kMostBytes / 4;
    Planes planes = {Extent(input), Extent(input), Extent(input)};
    while (planes.Bytes() > most) {
        (planes.channels > 1 ? planes.channels : planes.height) /= 2;
    }
    return planes;
}

template <typename T = int8_t>
T* TakeFilled(Input& input, size_t count) {
    T* const values = arena.Take<T>(count, sizeof(T) == 1 ? input.Byte() & 7 : 0);
    FillBytes(input, values, count * sizeof(T));
    return values;
}

int32_t* TakeBiases(Input& input, size_t count) {
    auto* const bias = arena.Take<int32_t>(count);
    FillBiases(input, bias, count);
    return bias;
}

void Dot(Input& input) {
    const uint32_t length = Extent(input) * (input.Byte() < 240 ? 1 : 8);
    const int8_t* vectors[5];
    for (const int8_t*& vector : vectors) {
        vector = TakeFilled(input, length);
    }
    auto* const sums = arena.Take<int32_t>(5);
    SameOnAllPaths("MultAccumulate", sums, expected, 5 * sizeof *sums, [&] {
        MultAccumulate4(vectors[0], vectors[1], vectors[2], vectors[3], vectors[4],
                        static_cast<uint16_t>(length), sums);
        sums[4] = MultAccumulate(vectors[0], vectors[4], length);
    });
    Require(sums[0] == sums[4], "four sums and one agree");
}

void Global(Input& input) {
    const Planes p = TakePlanes(input);
    const auto shift = input.Number<uint16_t>();
    const int8_t* const src = TakeFilled(input, p.Bytes());
    const int8_t* const weights = TakeFilled(input, p.Bytes());
    const int32_t* const bias = TakeBiases(input, p.channels);
    auto* const dst = arena.Take<int8_t>(p.channels);
    SameOnAllPaths("ArmAConvolveGlobalChwQ7", dst, expected, p.channels, [&] {
        ArmAConvolveGlobalChwQ7(src, p.width, p.height, p.channels, weights, bias, shift, dst,
                                nullptr);
    });
}

void FullyConnected(Input& input) {
    const uint32_t inputs = Extent(input);
    const uint32_t outputs = Extent(input) % 32;
    const auto shift = input.Number<uint16_t>();
    const int8_t* const src = TakeFilled(input, inputs);
    const int8_t* const weights = TakeFilled(input, size_t{inputs} * outputs);
    const int32_t* const bias = TakeBiases(input, outputs);
    auto* const dst = arena.Take<int8_t>(outputs);
    SameOnAllPaths("ArmAFcQ7", dst, expected, outputs,
                   [&] { ArmAFcQ7(src, weights, inputs, outputs, shift, bias, dst, nullptr); });
}

void Average(Input& input) {
    const Planes p = TakePlanes(input);
    const auto shift = input.Number<uint16_t>();
    const int8_t* const src = TakeFilled(input, p.Bytes());
    auto* const dst = arena.Take<int8_t>(p.channels);
    SameOnAllPaths("ArmAGapQ7Chw", dst, expected, p.channels,
                   [&] { ArmAGapQ7Chw(src, p.width, p.height, p.channels, shift, nullptr, dst); });
}

void PoolStride2(Input& input) {
    const Planes p = TakePlanes(input);
    const int32_t pad = input.Byte() > 250 ? -1 : static_cast<int32_t>(input.Between(0, 2));
    const auto border = static_cast<uint32_t>(2 * std::max(pad, 0));
    const uint32_t width = p.width + border;
    const uint32_t height = p.height + border;
    const int8_t* const src = TakeFilled(input, p.Bytes());
    const size_t dstBytes = size_t{width / 2} * (height / 2) * p.channels;
    auto* const dst = arena.Take<int8_t>(dstBytes);
    auto* const scratch = arena.Take<int8_t>(pad > 0 ? size_t{width} * height * p.channels : 0);
    SameOnAllPaths("ArmAMaxPool2x2S2ChwQ7", dst, expected, dstBytes, [&] {
        ArmAMaxPool2x2S2ChwQ7(src, dst, p.width, p.height, static_cast<uint16_t>(p.channels), pad,
                              scratch);
    });
}

// Both what it writes and what it leaves of its source, in place as well.
void PoolStride1(Input& input) {
    const Planes p = TakePlanes(input);
    const bool inPlace = input.Flag();
    const uint32_t outBytes =
        p.width < 2 || p.height < 2 ? 0 : (p.width - 1) * (p.height - 1) * p.channels;
    int8_t* const src = TakeFilled(input, p.Bytes());
    std::memcpy(before, src, p.Bytes());
    auto* const dst = inPlace ? src : arena.Take<int8_t>(outBytes);
    auto* const both = arena.Take<int8_t>(size_t{outBytes} + p.Bytes());
    SameOnAllPaths("ArmAMaxpoolK2x2S1x1ChwQ7", both, expected, size_t{outBytes} + p.Bytes(), [&] {
        std::memcpy(src, before, p.Bytes());
        ArmAMaxpoolK2x2S1x1ChwQ7(src, p.width, p.height, p.channels, dst, nullptr);
        std::memcpy(both, dst, outBytes);
        // In place the output's own bytes are compared already, and the rest is the maxima's.
        std::memcpy(both + outBytes, src, p.Bytes());
    });
}

void Sample(Input& input) {
    const Planes p = TakePlanes(input);
    const bool inPlace = input.Flag();
    const uint32_t dstBytes = (p.width + 1) / 2 * ((p.height + 1) / 2) * p.channels;
    int8_t* const src = TakeFilled(input, p.Bytes());
    std::memcpy(before, src, p.Bytes());
    auto* const dst = inPlace ? src : arena.Take<int8_t>(dstBytes);
    auto* const result = arena.Take<int8_t>(dstBytes);
    SameOnAllPaths("ArmADownsample", result, expected, dstBytes, [&] {
        std::memcpy(src, before, p.Bytes());
        ArmADownsample(src, p.width, static_cast<int32_t>(p.height), p.channels, dst, nullptr);
        std::memcpy(result, dst, dstBytes);
    });
}

void FlipSigns(Input& input) {
    const int32_t count = static_cast<int32_t>(Extent(input)) - 1;
    const size_t bytes = static_cast<size_t>(std::max(count, 0));
    auto* const data = TakeFilled<uint8_t>(input, bytes);
    std::memcpy(before, data, bytes);
    SameOnAllPaths("ArmAXorQ7", data, expected, bytes, [&] {
        std::memcpy(data, before, bytes);
        ArmAXorQ7(data, count);
    });
}

void Rectify(Input& input) {
    const uint32_t count = Extent(input);
    const bool inPlace = input.Flag();
    int8_t* const src = TakeFilled(input, count);
    std::memcpy(before, src, count);
    auto* const dst = inPlace ? src : arena.Take<int8_t>(count, input.Byte() & 7);
    SameOnAllPaths("ArmAReluChwQ7", dst, expected, count, [&] {
        std::memcpy(src, before, count);
        ArmAReluChwQ7(src, dst, count);
    });
}

// Shifts beyond 8 have a meaning of their own, see the interface.
void Add(Input& input) {
    Planes p = TakePlanes(input);
    const uint32_t shortcut = p.channels == 0 ? 0 : input.Byte() % (p.channels + 1);
    const uint8_t place = input.Byte() % 4;
    const auto shift = [&](uint32_t most) {
        const uint32_t byte = input.Byte();
        return static_cast<uint16_t>(byte < 240 ? byte % (most + 1) : byte - 224);
    };
    const uint16_t in1Shift = shift(8);
    const uint16_t in2Shift = shift(8);
    const uint16_t outShift = shift(15);
    int8_t* const in1 = TakeFilled(input, p.Bytes());
    const uint32_t in2Bytes = p.Values() * shortcut;
    // in2 may be the result only where it is as large.
    int8_t* const in2 = TakeFilled(input, in2Bytes);
    int8_t* const dst = place == 1                             ? in1
                        : place == 2 && shortcut == p.channels ? in2
                                                               : arena.Take<int8_t>(p.Bytes());
    static int8_t before2[kMostBytes];
    std::memcpy(before, in1, p.Bytes());
    std::memcpy(before2, in2, in2Bytes);
    SameOnAllPaths("ArmAZpadPlusChwQ7", dst, expected, p.Bytes(), [&] {
        std::memcpy(in1, before, p.Bytes());
        std::memcpy(in2, before2, in2Bytes);
        ArmAZpadPlusChwQ7(in1, in2, dst, in1Shift, in2Shift, outShift,
                          static_cast<uint16_t>(p.height), static_cast<uint16_t>(p.width),
                          static_cast<uint16_t>(p.channels), static_cast<uint16_t>(shortcut),
                          nullptr);
    });
}

void Normalise(Input& input) {
    const int32_t count = static_cast<int32_t>(Extent(input)) - 1;
    const size_t values = static_cast<size_t>(std::max(count, 0));
    const int8_t* const src = TakeFilled(input, values);
    auto* const dst = arena.Take<float>(values);
    SameOnAllPaths("ArmAL2Norm", dst, expected, values * sizeof(float),
                   [&] { ArmAL2Norm(src, count, dst); });
}

void Rescale(Input& input) {
    const int32_t count = static_cast<int32_t>(Extent(input)) - 1;
    const auto shift = static_cast<int8_t>(input.Byte());
    const int32_t anyShift = input.Byte() > 240 ? input.Number<int32_t>() : shift;
    const size_t bytes = static_cast<size_t>(std::max(count, 0));
    int8_t* const data = TakeFilled(input, bytes);
    std::memcpy(before, data, bytes);
    SameOnAllPaths("ArmARescaleQ7", data, expected, bytes, [&] {
        std::memcpy(data, before, bytes);
        ArmARescaleQ7(data, count, anyShift);
    });
}

void Distance(Input& input) {
    const int32_t n = static_cast<int32_t>(Extent(input)) - 1;
    const size_t values = static_cast<size_t>(std::max(n, 0));
    const float* const a = TakeFilled<float>(input, values);
    const float* const b = TakeFilled<float>(input, values);
    auto* const result = arena.Take<float>(1);
    SameOnAllPaths("ArmACalcDistanceFloat", result, expected, sizeof(float),
                   [&] { *result = ArmACalcDistanceFloat(a, b, n); });
}

// Four that weave weights; no path has anything to do with them.
void Weave(Input& input) {
    const uint8_t which = input.Byte();
    const int32_t inputs = static_cast<int32_t>(input.Between(0, 40)) - 1;
    const int32_t outputs = static_cast<int32_t>(input.Between(0, 20)) - 1;
    const int32_t side = which % 4 < 2 ? 1 : static_cast<int32_t>(input.Between(0, 4));
    const auto length = static_cast<size_t>(std::max(inputs * side, 0));
    const auto rows = static_cast<size_t>(std::max(outputs, 0));
    const size_t slot = which % 4 < 2 ? 16 * (length / 4 + length % 4) : 4 * length;
    const int8_t* const weights = TakeFilled(input, length * rows);
    auto* const output = arena.Take<int8_t>(slot * (rows / 4 + rows % 4));
    switch (which % 4) {
        case 0:
            conv1x1s1_sgemm_transform_kernel_int8_neon_32(weights, inputs, outputs, output);
            break;
        case 1:
            conv1x1s1_sgemm_transform_kernel_int8_neon_64(weights, inputs, outputs, output);
            break;
        case 2:
            conv_im2col_sgemm_transform_kernel_int8_neon_32(weights, inputs, outputs, side, output);
            break;
        default:
            conv_im2col_sgemm_transform_kernel_int8_neon_64(weights, inputs, outputs, side, output);
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
    static constexpr void (*kKinds[])(Input&) = {
        Dot,       Global, FullyConnected, Average, PoolStride2, PoolStride1, Sample, Rectify,
        FlipSigns, Add,    Normalise,      Rescale, Distance,    Weave};
    Input input(data, size);
    kKinds[input.Byte() % std::size(kKinds)](input);
    arena.Reset();
    return 0;
}
