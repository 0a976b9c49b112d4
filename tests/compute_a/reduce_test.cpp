// SPDX-License-Identifier: MIT
// From a tensor to a vector: the global convolution and the fully connected layer.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "compute_a/guarded_copy.h"
#include "orvo/q7_kernels.h"
#include "reference/reference_small.h"

namespace {

using orvo_test::GuardedBuffer;
using orvo_test::GuardedCopy;
using orvo_test::GuardedInput;
using orvo_test::kBothPlaces;
using orvo_test::Random;
using orvo_test::RandomQ7;

using Q7 = std::vector<int8_t>;
using Biases = std::vector<int32_t>;

Biases RandomBiases(Random& random, size_t count, int32_t magnitude) {
    Biases biases(count);
    for (int32_t& bias : biases) {
        bias = random.Between(-magnitude, magnitude);
    }
    return biases;
}

// ---- Global convolution

struct Global {
    uint32_t width;
    uint32_t height;
    uint32_t channels;
    uint16_t outShift;
    Q7 src;
    Q7 weights;
    Biases bias;
};

Global RandomGlobal(uint64_t seed, uint32_t width, uint32_t height, uint32_t channels,
                    uint16_t outShift) {
    Random random(seed);
    const size_t count = size_t{width} * height * channels;
    return {width,
            height,
            channels,
            outShift,
            RandomQ7(random, count),
            RandomQ7(random, count),
            RandomBiases(random, channels, 128 << outShift)};
}

Q7 Computed(const Global& g, GuardedBuffer::Place place) {
    GuardedInput<int8_t> src(g.src, place);
    GuardedInput<int8_t> weights(g.weights, place);
    GuardedInput<int32_t> bias(g.bias, place);
    GuardedCopy<int8_t> dst(Q7(g.channels, 77), place);
    ArmAConvolveGlobalChwQ7(src.data(), g.width, g.height, g.channels, weights.data(), bias.data(),
                            g.outShift, dst.data(), nullptr);
    return dst.values();
}

Q7 Expected(const Global& g) {
    Q7 dst(g.channels);
    orvo_reference::GlobalConvolution(g.src.data(), g.width, g.height, g.channels, g.weights.data(),
                                      g.bias.data(), g.outShift, dst.data());
    return dst;
}

void ExpectMatch(const Global& g) {
    SCOPED_TRACE(testing::Message()
                 << g.width << " x " << g.height << " x " << g.channels << " >> " << g.outShift);
    const Q7 expected = Expected(g);
    for (const auto place : kBothPlaces) {
        ASSERT_EQ(Computed(g, place), expected);
    }
}

// Weights of 0: the biased sum is the bias.
int8_t GlobalOfBias(int32_t bias, uint16_t outShift) {
    return Computed({1, 1, 1, outShift, {0}, {0}, {bias}}, GuardedBuffer::kAtEnd)[0];
}

TEST(GlobalConvolution, MatchesReferenceOnTheNetworksShape) {
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        ExpectMatch(RandomGlobal(seed, 6, 6, 256, 6));
    }
}

TEST(GlobalConvolution, MatchesReferenceForEveryTail) {
    uint64_t seed = 100;
    for (uint32_t plane = 1; plane <= 40; ++plane) {
        for (uint32_t channels = 1; channels <= 17; ++channels) {
            ExpectMatch(RandomGlobal(++seed, plane, 1, channels, 7));
        }
    }
    for (uint32_t width = 1; width <= 17; ++width) {
        ExpectMatch(RandomGlobal(++seed, width, 5, 5, 9));
        ExpectMatch(RandomGlobal(++seed, 3, width, 6, 9));
    }
}

TEST(GlobalConvolution, LeftoverChannelOfFiveIsLikeAnyOther) {
    ExpectMatch(RandomGlobal(7, 6, 6, 5, 6));
}

TEST(GlobalConvolution, PlaneOfSevenValuesIsComplete) {
    ExpectMatch(RandomGlobal(8, 7, 1, 5, 4));
    // The last of the seven products alone decides.
    Global g{7, 1, 5, 0, Q7(35, 0), Q7(35, 0), Biases(5, 0)};
    for (size_t c = 0; c < 5; ++c) {
        g.src[c * 7 + 6] = static_cast<int8_t>(c + 2);
        g.weights[c * 7 + 6] = 3;
    }
    EXPECT_EQ(Computed(g, GuardedBuffer::kAtEnd), (Q7{6, 9, 12, 15, 18}));
}

TEST(GlobalConvolution, ShiftZeroOnlySaturates) {
    Global g{4, 1, 2, 0, {75, 75, 75, 75, 75, 75, 75, 75}, {1, 1, 1, 1, -1, -1, -1, -1}, {0, 0}};
    EXPECT_EQ(Computed(g, GuardedBuffer::kAtEnd), (Q7{127, -128}));
}

TEST(GlobalConvolution, ShiftTruncatesTowardsMinusInfinity) {
    EXPECT_EQ(GlobalOfBias(-1, 2), -1);
    EXPECT_EQ(GlobalOfBias(-4, 2), -1);
    EXPECT_EQ(GlobalOfBias(-5, 2), -2);
    EXPECT_EQ(GlobalOfBias(5, 2), 1);
    EXPECT_EQ(GlobalOfBias(7, 2), 1);
    EXPECT_EQ(GlobalOfBias(8, 2), 2);
}

TEST(GlobalConvolution, BiasAloneIsRequantised) {
    Global g = RandomGlobal(9, 6, 6, 13, 5);
    g.weights.assign(g.weights.size(), 0);
    const Q7 got = Computed(g, GuardedBuffer::kAtEnd);
    for (size_t c = 0; c < 13; ++c) {
        EXPECT_EQ(got[c], orvo_reference::SaturateToQ7(g.bias[c] >> 5));
    }
}

TEST(GlobalConvolution, OnlyTheLowEightBitsOfTheShiftCount) {
    EXPECT_EQ(GlobalOfBias(40, 0x100), 40);
    EXPECT_EQ(GlobalOfBias(40, 0x102), 10);
    EXPECT_EQ(GlobalOfBias(-40, 0xFF02), -10);
}

TEST(GlobalConvolution, ShiftOf32AndMoreLeavesTheSign) {
    for (const uint16_t shift : {31, 32, 33, 64, 128, 200, 255}) {
        EXPECT_EQ(GlobalOfBias(INT32_MAX, shift), 0) << shift;
        EXPECT_EQ(GlobalOfBias(INT32_MIN, shift), -1) << shift;
        EXPECT_EQ(GlobalOfBias(-1, shift), -1) << shift;
        EXPECT_EQ(GlobalOfBias(0, shift), 0) << shift;
    }
}

TEST(GlobalConvolution, SumsWrapAt32Bits) {
    Global g{6, 6, 2, 16, Q7(72, 127), Q7(72, 127), {INT32_MAX, INT32_MIN}};
    g.weights.resize(36);
    g.weights.resize(72, -127);
    EXPECT_EQ(Expected(g), (Q7{-128, 127}));
    ExpectMatch(g);
}

TEST(GlobalConvolution, ExtremesAreExact) {
    for (const int8_t a : {-128, 127}) {
        for (const int8_t b : {-128, 127}) {
            for (uint16_t shift = 0; shift <= 32; ++shift) {
                ExpectMatch({6, 6, 7, shift, Q7(252, a), Q7(252, b),
                             Biases{0, 1, -1, INT32_MAX, INT32_MIN, 1 << 20, -(1 << 20)}});
            }
        }
    }
}

TEST(GlobalConvolution, NeedsNoAlignment) {
    const Global g = RandomGlobal(10, 6, 6, 9, 6);
    const Q7 expected = Expected(g);
    for (size_t offset = 1; offset < 4; ++offset) {
        Q7 src(g.src.size() + offset);
        Q7 weights(g.weights.size() + offset);
        Q7 dst(g.channels + offset);
        std::copy(g.src.begin(), g.src.end(), src.begin() + static_cast<ptrdiff_t>(offset));
        std::copy(g.weights.begin(), g.weights.end(),
                  weights.begin() + static_cast<ptrdiff_t>(offset));
        ArmAConvolveGlobalChwQ7(&src[offset], 6, 6, 9, &weights[offset], g.bias.data(), 6,
                                &dst[offset], nullptr);
        EXPECT_EQ(Q7(dst.begin() + static_cast<ptrdiff_t>(offset), dst.end()), expected);
    }
}

TEST(GlobalConvolution, IgnoresTheScratch) {
    const Global g = RandomGlobal(11, 6, 6, 4, 6);
    Q7 dst(4);
    int8_t scratch[4] = {1, 2, 3, 4};
    ArmAConvolveGlobalChwQ7(g.src.data(), 6, 6, 4, g.weights.data(), g.bias.data(), 6, dst.data(),
                            scratch);
    EXPECT_EQ(dst, Expected(g));
    EXPECT_EQ(Q7(scratch, scratch + 4), (Q7{1, 2, 3, 4}));
}

TEST(GlobalConvolution, NoChannelsWriteNothing) {
    int8_t dst = 77;
    const int8_t src = 1;
    const int32_t bias = 5;
    ArmAConvolveGlobalChwQ7(&src, 1, 1, 0, &src, &bias, 0, &dst, nullptr);
    EXPECT_EQ(dst, 77);
}

// ---- Fully connected layer

struct Layer {
    uint32_t inCount;
    uint32_t outCount;
    uint16_t outShift;
    Q7 src;
    Q7 weights;
    Biases bias;
};

Layer RandomLayer(uint64_t seed, uint32_t inCount, uint32_t outCount, uint16_t outShift) {
    Random random(seed);
    return {inCount,
            outCount,
            outShift,
            RandomQ7(random, inCount),
            RandomQ7(random, size_t{inCount} * outCount),
            RandomBiases(random, outCount, 128 << outShift)};
}

Q7 Computed(const Layer& l, GuardedBuffer::Place place) {
    GuardedInput<int8_t> src(l.src, place);
    GuardedInput<int8_t> weights(l.weights, place);
    GuardedInput<int32_t> bias(l.bias, place);
    GuardedCopy<int8_t> dst(Q7(l.outCount, 77), place);
    ArmAFcQ7(src.data(), weights.data(), l.inCount, l.outCount, l.outShift, bias.data(), dst.data(),
             nullptr);
    return dst.values();
}

Q7 Expected(const Layer& l) {
    Q7 dst(l.outCount);
    orvo_reference::FullyConnected(l.src.data(), l.weights.data(), l.inCount, l.outCount,
                                   l.outShift, l.bias.data(), dst.data());
    return dst;
}

void ExpectMatch(const Layer& l) {
    SCOPED_TRACE(testing::Message() << l.inCount << " -> " << l.outCount << " >> " << l.outShift);
    const Q7 expected = Expected(l);
    for (const auto place : kBothPlaces) {
        ASSERT_EQ(Computed(l, place), expected);
    }
}

int8_t LayerOfBias(int32_t bias, uint16_t outShift) {
    return Computed(Layer{1, 1, outShift, {0}, {0}, {bias}}, GuardedBuffer::kAtEnd)[0];
}

TEST(FullyConnected, MatchesReferenceOnTheNetworksShapes) {
    for (uint64_t seed = 1; seed <= 10; ++seed) {
        ExpectMatch(RandomLayer(seed, 68, 4, 8));
        ExpectMatch(RandomLayer(seed, 256, 128, 7));
    }
}

TEST(FullyConnected, MatchesReferenceForEveryTail) {
    uint64_t seed = 100;
    for (uint32_t inCount = 0; inCount <= 70; ++inCount) {
        for (uint32_t outCount = 1; outCount <= 17; ++outCount) {
            ExpectMatch(RandomLayer(++seed, inCount, outCount, 8));
        }
    }
}

TEST(FullyConnected, ShiftZeroOnlySaturates) {
    EXPECT_EQ(Computed(Layer{3, 2, 0, {100, 100, 100}, {1, 1, 1, -1, -1, -1}, {0, 0}},
                       GuardedBuffer::kAtEnd),
              (Q7{127, -128}));
}

TEST(FullyConnected, ShiftTruncatesTowardsMinusInfinity) {
    EXPECT_EQ(LayerOfBias(-1, 2), -1);
    EXPECT_EQ(LayerOfBias(-4, 2), -1);
    EXPECT_EQ(LayerOfBias(-5, 2), -2);
    EXPECT_EQ(LayerOfBias(5, 2), 1);
    EXPECT_EQ(LayerOfBias(7, 2), 1);
    EXPECT_EQ(LayerOfBias(8, 2), 2);
}

TEST(FullyConnected, NoOutputsWriteNothing) {
    int8_t dst = 77;
    const int8_t src = 1;
    ArmAFcQ7(&src, nullptr, 1, 0, 0, nullptr, &dst, nullptr);
    EXPECT_EQ(dst, 77);
}

TEST(FullyConnected, BiasAloneIsRequantised) {
    Layer l = RandomLayer(9, 68, 13, 5);
    l.weights.assign(l.weights.size(), 0);
    const Q7 got = Computed(l, GuardedBuffer::kAtEnd);
    for (size_t j = 0; j < 13; ++j) {
        EXPECT_EQ(got[j], orvo_reference::SaturateToQ7(l.bias[j] >> 5));
    }
}

TEST(FullyConnected, OnlyTheLowEightBitsOfTheShiftCount) {
    EXPECT_EQ(LayerOfBias(40, 0x100), 40);
    EXPECT_EQ(LayerOfBias(40, 0x102), 10);
    EXPECT_EQ(LayerOfBias(-40, 0xFF02), -10);
}

TEST(FullyConnected, ShiftOf32AndMoreLeavesTheSign) {
    for (const uint16_t shift : {31, 32, 33, 64, 128, 200, 255}) {
        EXPECT_EQ(LayerOfBias(INT32_MAX, shift), 0) << shift;
        EXPECT_EQ(LayerOfBias(INT32_MIN, shift), -1) << shift;
        EXPECT_EQ(LayerOfBias(-1, shift), -1) << shift;
        EXPECT_EQ(LayerOfBias(0, shift), 0) << shift;
    }
}

TEST(FullyConnected, SumsWrapAt32Bits) {
    Layer l{256, 2, 16, Q7(256, 127), Q7(512, 127), {INT32_MAX, INT32_MIN}};
    l.weights.resize(256);
    l.weights.resize(512, -127);
    EXPECT_EQ(Expected(l), (Q7{-128, 127}));
    ExpectMatch(l);
}

// 2^17 + 3 products of 2^14 exceed 31 bits without any bias.
TEST(FullyConnected, TheDotProductItselfWraps) {
    const uint32_t inCount = (1u << 17) + 3;
    const Layer l{inCount, 1, 24, Q7(inCount, -128), Q7(inCount, -128), {0}};
    EXPECT_EQ(Expected(l), Q7{-128});
    ExpectMatch(l);
}

TEST(FullyConnected, ExtremesAreExact) {
    for (const int8_t a : {-128, 127}) {
        for (const int8_t b : {-128, 127}) {
            for (uint16_t shift = 0; shift <= 32; ++shift) {
                ExpectMatch(Layer{256, 7, shift, Q7(256, a), Q7(256 * 7, b),
                                  Biases{0, 1, -1, INT32_MAX, INT32_MIN, 1 << 20, -(1 << 20)}});
            }
        }
    }
}

TEST(FullyConnected, NeedsNoAlignment) {
    const Layer l = RandomLayer(10, 67, 9, 7);
    const Q7 expected = Expected(l);
    for (size_t offset = 1; offset < 4; ++offset) {
        Q7 src(l.src.size() + offset);
        Q7 weights(l.weights.size() + offset);
        Q7 dst(l.outCount + offset);
        std::copy(l.src.begin(), l.src.end(), src.begin() + static_cast<ptrdiff_t>(offset));
        std::copy(l.weights.begin(), l.weights.end(),
                  weights.begin() + static_cast<ptrdiff_t>(offset));
        ArmAFcQ7(&src[offset], &weights[offset], 67, 9, 7, l.bias.data(), &dst[offset], nullptr);
        EXPECT_EQ(Q7(dst.begin() + static_cast<ptrdiff_t>(offset), dst.end()), expected);
    }
}

TEST(FullyConnected, IgnoresTheScratch) {
    const Layer l = RandomLayer(11, 68, 4, 8);
    Q7 dst(4);
    int8_t scratch[4] = {1, 2, 3, 4};
    ArmAFcQ7(l.src.data(), l.weights.data(), 68, 4, 8, l.bias.data(), dst.data(), scratch);
    EXPECT_EQ(dst, Expected(l));
    EXPECT_EQ(Q7(scratch, scratch + 4), (Q7{1, 2, 3, 4}));
}

} // namespace
