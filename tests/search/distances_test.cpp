// SPDX-License-Identifier: MIT
// Distances to many features: the bits of OrvoFrGetDistance() and of the reference for each.
#include "search/distances.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

#include "compute_a/guarded_copy.h"
#include "orvo/orvo_fr.h"
#include "reference/reference_small.h"

namespace {

using orvo_test::GuardedBuffer;
using orvo_test::GuardedCopy;
using orvo_test::GuardedInput;
using orvo_test::kBothPlaces;
using orvo_test::Random;

using Floats = std::vector<float>;

constexpr size_t kLength = ORVO_FR_FEATURE_LENGTH;

float AnyFloat(Random& random, int least, int largest) {
    return std::ldexp(static_cast<float>(random.Between(-0xFFFFFF, 0xFFFFFF)),
                      random.Between(least, largest) - 24);
}

// Values of several magnitudes, so that every rounding shows in the last bits.
Floats Features(Random& random, size_t count, int least = -8, int largest = 0) {
    Floats values(count * kLength);
    for (float& value : values) {
        value = AnyFloat(random, least, largest);
    }
    return values;
}

uint32_t Bits(float value) { return std::bit_cast<uint32_t>(value); }

float OneDistance(const Floats& feature, const Floats& entries, size_t entry) {
    return OrvoFrGetDistance(feature.data(), ORVO_FR_FEATURE_BYTES,
                             entries.data() + entry * kLength, ORVO_FR_FEATURE_BYTES);
}

void ExpectThoseOfOneByOne(const Floats& feature, const Floats& entries) {
    Floats distances(entries.size() / kLength);
    orvo::Distances(feature.data(), orvo::LookThrough(entries.data(), distances.size()),
                    distances.data());
    for (size_t i = 0; i < distances.size(); ++i) {
        ASSERT_EQ(Bits(distances[i]), Bits(OneDistance(feature, entries, i))) << i;
    }
}

TEST(Distances, HaveTheBitsOfTheReferenceForEveryCountAndWriteNothingElse) {
    Random random(1);
    for (size_t count = 0; count <= 40; ++count) {
        const Floats feature = Features(random, 1);
        const Floats entries = Features(random, count);
        for (const GuardedBuffer::Place place : kBothPlaces) {
            GuardedInput<float> guardedFeature(feature, place);
            GuardedInput<float> guardedEntries(entries, place);
            GuardedCopy<float> distances(Floats(count, -7.0f), place);
            const orvo::Features others = orvo::LookThrough(guardedEntries.data(), count);
            EXPECT_TRUE(others.areOrdinary);
            orvo::Distances(guardedFeature.data(), others, distances.data());
            for (size_t i = 0; i < count; ++i) {
                const float expected = orvo_reference::InnerProduct(
                    feature.data(), entries.data() + i * kLength, kLength);
                ASSERT_EQ(Bits(distances.data()[i]), Bits(expected)) << count << ' ' << i;
            }
        }
    }
}

TEST(Distances, HaveTheBitsOfOneByOneWhereSubnormalNumbersComeUp) {
    Random random(2);
    for (int round = 0; round < 400; ++round) {
        // Among the rounds are those whose inputs, products or sums only just are subnormal.
        const int exponent = random.Between(-160, 20);
        const Floats feature = Features(random, 1, exponent - 3, exponent);
        Floats entries = Features(random, 24, -129 - exponent, -123 - exponent);
        for (size_t i = 0; i < entries.size(); i += 3) {
            entries[i] = random.Between(0, 1) == 0 ? 0.0f : -0.0f;
        }
        ExpectThoseOfOneByOne(feature, entries);
    }
}

TEST(Distances, HaveTheBitsOfOneByOneForEveryOddNumberAnywhere) {
    const float odd[] = {0.0f,
                         -0.0f,
                         std::numeric_limits<float>::infinity(),
                         -std::numeric_limits<float>::infinity(),
                         std::numeric_limits<float>::max(),
                         std::numeric_limits<float>::denorm_min(),
                         -std::numeric_limits<float>::denorm_min(),
                         std::numeric_limits<float>::min(),
                         std::bit_cast<float>(0x7fc12345u), // numbers that are none
                         std::bit_cast<float>(0xffc54321u),
                         std::bit_cast<float>(0x7f800001u),
                         0x1p-50f,
                         std::nextafter(0x1p-50f, 0.0f),
                         0x1p50f,
                         std::nextafter(0x1p50f, 0.0f)};
    Random random(3);
    const Floats feature = Features(random, 1);
    const Floats entries = Features(random, 16);
    const auto anywhere = [&random] {
        return static_cast<size_t>(random.Between(0, static_cast<int>(kLength) - 1));
    };
    for (const float first : odd) {
        for (const float second : odd) {
            for (size_t entry = 0; entry < 16; ++entry) {
                Floats oddEntries = entries;
                oddEntries[entry * kLength + anywhere()] = first;
                oddEntries[entry * kLength + anywhere()] = second;
                ExpectThoseOfOneByOne(feature, oddEntries);
            }
            Floats oddFeature = feature;
            oddFeature[anywhere()] = first;
            oddFeature[anywhere()] = second;
            ExpectThoseOfOneByOne(oddFeature, entries);
        }
    }
}

// All bit patterns, most of which are of no feature.
TEST(Distances, HaveTheBitsOfOneByOneForAnyBits) {
    Random random(4);
    for (int round = 0; round < 300; ++round) {
        Floats both(17 * kLength);
        random.Fill(reinterpret_cast<int8_t*>(both.data()), both.size() * sizeof(float));
        ExpectThoseOfOneByOne(Floats(both.begin(), both.begin() + kLength),
                              Floats(both.begin() + kLength, both.end()));
    }
}

#if defined(__SSE__)
TEST(Distances, DoNotDependOnWhatTheProcessorMakesOfSubnormalNumbers) {
    constexpr unsigned kFlushToZero = 0x8000;
    constexpr unsigned kSubnormalsAreZero = 0x0040;
    Random random(5);
    const Floats feature = Features(random, 1, -70, -60);
    const Floats entries = Features(random, 16, -70, -60);
    Floats asUsual(16);
    Floats flushed(16);
    const orvo::Features others = orvo::LookThrough(entries.data(), 16);
    EXPECT_FALSE(others.areOrdinary);
    orvo::Distances(feature.data(), others, asUsual.data());
    const unsigned before = _mm_getcsr();
    _mm_setcsr(before | kFlushToZero | kSubnormalsAreZero);
    orvo::Distances(feature.data(), orvo::LookThrough(entries.data(), 16), flushed.data());
    _mm_setcsr(before);
    for (size_t i = 0; i < asUsual.size(); ++i) {
        EXPECT_EQ(Bits(asUsual[i]), Bits(flushed[i])) << i;
    }
}
#endif

} // namespace
