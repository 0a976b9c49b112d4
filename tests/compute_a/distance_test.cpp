// SPDX-License-Identifier: MIT
// The inner product and the distance of two features.
#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "compute_a/guarded_copy.h"
#include "orvo/orvo_fr.h"
#include "orvo/q7_kernels.h"
#include "reference/reference_small.h"
#include "support/error_line.h"
#include "support/stderr_capture.h"

namespace {

using orvo_test::GuardedBuffer;
using orvo_test::GuardedInput;
using orvo_test::kBothPlaces;
using orvo_test::Random;

using Floats = std::vector<float>;

// Values of several magnitudes, so that every rounding shows in the last bits.
Floats RandomFloats(Random& random, size_t count) {
    Floats values(count);
    for (float& value : values) {
        value = std::ldexp(static_cast<float>(random.Between(-0xFFFFFF, 0xFFFFFF)),
                           random.Between(-28, -20));
    }
    return values;
}

Floats UnitFeature(uint64_t seed) {
    Random random(seed);
    Floats values = RandomFloats(random, 128);
    double squares = 0;
    for (const float value : values) {
        squares += static_cast<double>(value) * static_cast<double>(value);
    }
    for (float& value : values) {
        value = static_cast<float>(value / std::sqrt(squares));
    }
    return values;
}

uint32_t Bits(float value) { return std::bit_cast<uint32_t>(value); }

TEST(InnerProduct, MatchesReferenceBitForBitAtEveryLength) {
    for (int32_t n = 1; n <= 130; ++n) {
        for (uint64_t round = 0; round < 20; ++round) {
            Random random(static_cast<uint64_t>(n) * 100 + round);
            const Floats a = RandomFloats(random, static_cast<size_t>(n));
            const Floats b = RandomFloats(random, static_cast<size_t>(n));
            const float expected = orvo_reference::InnerProduct(a.data(), b.data(), n);
            for (const auto place : kBothPlaces) {
                GuardedInput<float> guardedA(a, place);
                GuardedInput<float> guardedB(b, place);
                ASSERT_EQ(Bits(ArmACalcDistanceFloat(guardedA.data(), guardedB.data(), n)),
                          Bits(expected))
                    << n << ' ' << round;
            }
        }
    }
}

// With x = 1 + 2^-12, x * x = 1 + 2^-11 + 2^-24 rounds to 1 + 2^-11; only a fused step keeps the
// last term.
constexpr float kX = 1.0f + 0x1p-12f;
constexpr float kRounded = 1.0f + 0x1p-11f;

TEST(InnerProduct, TailOfOneIsFused) {
    EXPECT_EQ(ArmACalcDistanceFloat(Floats{kRounded, 0, 0, 0, kX}.data(),
                                    Floats{-1, 0, 0, 0, kX}.data(), 5),
              0x1p-24f);
}

TEST(InnerProduct, TailOfTwoIsFusedTwice) {
    // s = -2 * kRounded is exact; the first step leaves -kRounded + 2^-24, the second one 2^-23,
    // had both products been rounded the sum would be 0.
    const float fused = std::fma(kX, kX, std::fma(kX, kX, -2.0f * kRounded));
    EXPECT_NE(fused, 0.0f);
    EXPECT_EQ(ArmACalcDistanceFloat(Floats{kRounded, 0, 0, 0, kX, kX}.data(),
                                    Floats{-2, 0, 0, 0, kX, kX}.data(), 6),
              fused);
}

TEST(InnerProduct, TailOfThreeIsARoundedPairAndAFusedStep) {
    // The pair's two rounded products cancel the block, the third keeps its last term.
    EXPECT_EQ(ArmACalcDistanceFloat(Floats{kRounded, 0, 0, 0, kX, kX, 0}.data(),
                                    Floats{-2, 0, 0, 0, kX, kX, 0}.data(), 7),
              0.0f);
    EXPECT_EQ(ArmACalcDistanceFloat(Floats{kRounded, 0, 0, 0, kX, kX, kX}.data(),
                                    Floats{-3, 0, 0, 0, kX, kX, kX}.data(), 7),
              std::fma(kX, kX, -3.0f * kRounded + 2.0f * kRounded));
}

TEST(InnerProduct, ProductsInFullBlocksAreRounded) {
    EXPECT_EQ(ArmACalcDistanceFloat(Floats{kRounded, 0, 0, 0, kX, 0, 0, 0}.data(),
                                    Floats{-1, 0, 0, 0, kX, 0, 0, 0}.data(), 8),
              0.0f);
}

// Four lanes of which the first holds a * b.
float InLanes(float a, float b) {
    return ArmACalcDistanceFloat(Floats{a, 0, 0, 0}.data(), Floats{b, 0, 0, 0}.data(), 4);
}

constexpr float kSmallest = 0x1p-126f; // the smallest normal number

TEST(InnerProduct, SubnormalInputsOfLanesCountAsZero) {
    EXPECT_EQ(Bits(InLanes(1e-40f, 1e30f)), 0u);
    EXPECT_EQ(Bits(InLanes(1e30f, 1e-40f)), 0u);
    EXPECT_EQ(InLanes(kSmallest, 1e30f), kSmallest * 1e30f);
}

TEST(InnerProduct, SubnormalProductsOfLanesCountAsZero) {
    EXPECT_EQ(Bits(InLanes(1e-20f, 1e-20f)), 0u);
    EXPECT_EQ(InLanes(0x1p-63f, 0x1p-63f), kSmallest);
    // Would round up to the smallest normal number, but lies below it.
    EXPECT_EQ(Bits(InLanes(kSmallest, 1.0f - 0x1p-24f)), 0u);
    EXPECT_EQ(Bits(InLanes(0x1.fffffep-64f, 0x1.000001p-63f)), Bits(0.0f));
}

TEST(InnerProduct, SubnormalSumsOfLanesCountAsZero) {
    // 1.5 - 1.25 times the smallest normal number, within a lane and between lanes.
    EXPECT_EQ(Bits(ArmACalcDistanceFloat(Floats{1.5f, 0, 0, 0, -1.25f, 0, 0, 0}.data(),
                                         Floats{kSmallest, 0, 0, 0, kSmallest, 0, 0, 0}.data(), 8)),
              0u);
    EXPECT_EQ(Bits(ArmACalcDistanceFloat(Floats{1.5f, -1.25f, 0, 0}.data(),
                                         Floats{kSmallest, kSmallest, 0, 0}.data(), 4)),
              0u);
    EXPECT_EQ(Bits(ArmACalcDistanceFloat(Floats{1.5f, 0, -1.25f, 0}.data(),
                                         Floats{kSmallest, 0, kSmallest, 0}.data(), 4)),
              0u);
}

TEST(InnerProduct, ZerosThatWereSubnormalKeepTheirSign) {
    const Floats a = {-1e-40f, -1e-40f, -1e-40f, -1e-40f, 0.0f};
    const Floats b = {1.0f, 1.0f, 1.0f, 1.0f, -1.0f};
    // Lanes start at +0, which a -0 leaves as it is.
    EXPECT_EQ(Bits(ArmACalcDistanceFloat(a.data(), b.data(), 4)), 0u);
    // A lane that sums to a negative subnormal number becomes -0, and -0 - 0 stays so.
    const Floats c = {-1.5f, -1.5f, -1.5f, -1.5f, 1.25f, 1.25f, 1.25f, 1.25f};
    const Floats d(8, kSmallest);
    EXPECT_EQ(Bits(ArmACalcDistanceFloat(c.data(), d.data(), 8)), Bits(-0.0f));
}

TEST(InnerProduct, TailKeepsSubnormalNumbers) {
    EXPECT_EQ(ArmACalcDistanceFloat(Floats{0, 0, 0, 0, 1e-20f}.data(),
                                    Floats{0, 0, 0, 0, 1e-20f}.data(), 5),
              1e-20f * 1e-20f);
    EXPECT_GT(1e-20f * 1e-20f, 0.0f);
}

// Random numbers around the limits, where some blocks hold subnormal numbers and others do not.
TEST(InnerProduct, MatchesReferenceAroundTheSmallestNormalNumber) {
    Random random(31);
    for (int round = 0; round < 20000; ++round) {
        const int32_t n = random.Between(1, 40);
        const int exponent = random.Between(-170, 20);
        const auto draw = [&](int from) {
            Floats values(static_cast<size_t>(n));
            for (float& value : values) {
                value = random.Between(0, 4) == 0
                            ? 0.0f
                            : std::ldexp(static_cast<float>(random.Between(-0xFFFFFF, 0xFFFFFF)),
                                         from + random.Between(-4, 4));
            }
            return values;
        };
        const Floats a = draw(exponent);
        const Floats b = draw(-150 - exponent);
        ASSERT_EQ(Bits(ArmACalcDistanceFloat(a.data(), b.data(), n)),
                  Bits(orvo_reference::InnerProduct(a.data(), b.data(), n)))
            << round;
    }
}

TEST(InnerProduct, LanesArePairedZeroWithOneAndTwoWithThree) {
    const float big = 0x1p30f;
    const Floats ones(4, 1.0f);
    EXPECT_EQ(ArmACalcDistanceFloat(Floats{big, -big, 1, 1}.data(), ones.data(), 4), 2.0f);
    EXPECT_EQ(ArmACalcDistanceFloat(Floats{big, 1, -big, 1}.data(), ones.data(), 4), 0.0f);
    EXPECT_EQ(ArmACalcDistanceFloat(Floats{big, 1, 1, -big}.data(), ones.data(), 4), 0.0f);
}

TEST(InnerProduct, NoElementsGiveZeroWithoutReading) {
    GuardedBuffer nothing(0);
    for (const int32_t n : {0, -1, -2, -3, -4, -5, -128, INT32_MIN}) {
        EXPECT_EQ(Bits(ArmACalcDistanceFloat(nothing.as<float>(), nothing.as<float>(), n)), 0u)
            << n;
        EXPECT_EQ(Bits(ArmACalcDistanceFloat(nullptr, nullptr, n)), 0u) << n;
    }
}

TEST(Compare, IsTheInnerProductOf128) {
    const Floats a = UnitFeature(1);
    const Floats b = UnitFeature(2);
    GuardedInput<float> guardedA(a, GuardedBuffer::kAtEnd);
    GuardedInput<float> guardedB(b, GuardedBuffer::kAtEnd);
    EXPECT_EQ(Bits(FrCompare(guardedA.data(), guardedB.data())),
              Bits(orvo_reference::InnerProduct(a.data(), b.data(), 128)));
}

TEST(Distance, IdenticalFeaturesGiveOne) {
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        const Floats a = UnitFeature(seed);
        EXPECT_NEAR(OrvoFrGetDistance(a.data(), 512, a.data(), 512), 1.0f, 1e-6f);
    }
}

TEST(Distance, AFeatureAndItsNegationGiveMinusOne) {
    const Floats a = UnitFeature(1);
    Floats b = a;
    for (float& value : b) {
        value = -value;
    }
    EXPECT_NEAR(OrvoFrGetDistance(a.data(), 512, b.data(), 512), -1.0f, 1e-6f);
}

TEST(Distance, MatchesReferenceBitForBit) {
    const Floats a = UnitFeature(3);
    const Floats b = UnitFeature(4);
    EXPECT_EQ(Bits(OrvoFrGetDistance(a.data(), 512, b.data(), 512)),
              Bits(orvo_reference::InnerProduct(a.data(), b.data(), 128)));
}

TEST(Distance, SizesDoNotChooseTheLength) {
    const Floats a = UnitFeature(5);
    const Floats b = UnitFeature(6);
    const float distance = OrvoFrGetDistance(a.data(), 512, b.data(), 512);
    for (const uint32_t size : {1u, 4u, 508u, 516u, 0x80000000u, 0xFFFFFFFFu}) {
        orvo_test::StderrCapture capture;
        EXPECT_EQ(Bits(OrvoFrGetDistance(a.data(), size, b.data(), size)), Bits(distance));
        EXPECT_EQ(capture.text(), "");
    }
}

std::string RefusalOf(const float* a, uint32_t aSize, const float* b, uint32_t bSize) {
    orvo_test::StderrCapture capture;
    EXPECT_EQ(Bits(OrvoFrGetDistance(a, aSize, b, bSize)), 0u);
    return capture.text();
}

void ExpectLine(const std::string& text, const std::string& message) {
    EXPECT_TRUE(orvo_test::IsErrorLine(text, "../fr_demo/fr_api", message + "\n\n")) << text;
}

TEST(Distance, SizesThatDifferOrAreZeroAreRefusedWithBothSizes) {
    const Floats a = UnitFeature(1);
    const struct {
        uint32_t aSize;
        uint32_t bSize;
    } cases[] = {{512, 256}, {256, 512}, {0, 0}, {0, 512}, {512, 0}, {4294967295u, 1}};
    for (const auto& sizes : cases) {
        ExpectLine(
            RefusalOf(a.data(), sizes.aSize, a.data(), sizes.bSize),
            "Get distance failed, the size is invalid, aSize: " + std::to_string(sizes.aSize) +
                ", bSize: " + std::to_string(sizes.bSize) + "!");
    }
}

TEST(Distance, NullInputsAreRefusedBeforeTheSizes) {
    const Floats a = UnitFeature(1);
    const std::string message = "Get distance failed, the input a is null or the input b is null!";
    ExpectLine(RefusalOf(nullptr, 512, a.data(), 512), message);
    ExpectLine(RefusalOf(a.data(), 512, nullptr, 512), message);
    ExpectLine(RefusalOf(nullptr, 512, nullptr, 512), message);
    ExpectLine(RefusalOf(nullptr, 0, a.data(), 512), message);
    ExpectLine(RefusalOf(a.data(), 512, nullptr, 7), message);
}

} // namespace
