// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "compute_a/guarded_copy.h"
#include "orvo/q7_kernels.h"
#include "reference/reference_image.h"
#include "support/guarded_buffer.h"
#include "support/random.h"

namespace {

using orvo_test::GuardedBuffer;
using orvo_test::GuardedInput;
using orvo_test::kBothPlaces;
using orvo_test::Random;
using orvo_test::RandomQ7;

using Q7s = std::vector<int8_t>;

using Relayout = void (*)(const int8_t* weights, int32_t rowLength, int32_t outch, int8_t* output);
using Reference = decltype(&orvo_reference::InterleaveElements);

// Row lengths of an im2col routine are a product; both factors take their turn.
template <auto kTransform, int32_t kKernelSize>
void Im2col(const int8_t* weights, int32_t rowLength, int32_t outch, int8_t* output) {
    kTransform(weights, rowLength / kKernelSize, outch, kKernelSize, output);
}

constexpr auto kIm2col32 = conv_im2col_sgemm_transform_kernel_int8_neon_32;
constexpr auto kIm2col64 = conv_im2col_sgemm_transform_kernel_int8_neon_64;

struct Routine {
    const char* name;
    Relayout run;
    Reference reference;
    bool pointwise;
    int32_t rowStep; // row lengths are its multiples

    uint64_t SlotSize(int32_t rowLength) const {
        return pointwise ? orvo_reference::PointwiseSlotSize(rowLength)
                         : orvo_reference::Im2colSlotSize(rowLength);
    }
};

const Routine kRoutines[] = {
    {"1x1 32", conv1x1s1_sgemm_transform_kernel_int8_neon_32, orvo_reference::InterleaveElements,
     true, 1},
    {"1x1 64", conv1x1s1_sgemm_transform_kernel_int8_neon_64, orvo_reference::InterleavePairs, true,
     1},
    {"im2col 32", Im2col<kIm2col32, 1>, orvo_reference::InterleaveElements, false, 1},
    {"im2col 64", Im2col<kIm2col64, 1>, orvo_reference::InterleavePairs, false, 1},
    {"im2col 32, 9 taps", Im2col<kIm2col32, 9>, orvo_reference::InterleaveElements, false, 9},
    {"im2col 64, 9 taps", Im2col<kIm2col64, 9>, orvo_reference::InterleavePairs, false, 9},
};

// Weights and slots of exactly their sizes; what a slot holds beyond its weights must stay.
void ExpectMatch(const Routine& routine, Random& random, int32_t rowLength, int32_t outch,
                 GuardedBuffer::Place place) {
    const size_t weightCount = static_cast<size_t>(rowLength) * static_cast<size_t>(outch);
    GuardedInput<int8_t> weights(RandomQ7(random, weightCount), place);
    const size_t size =
        static_cast<size_t>(orvo_reference::SlotCount(outch) * routine.SlotSize(rowLength));
    GuardedBuffer output(size, place);
    Q7s expected = RandomQ7(random, size);
    std::memcpy(output.bytes(), expected.data(), size);
    routine.run(weights.data(), rowLength, outch, output.q7());
    routine.reference(weights.data(), rowLength, outch, routine.SlotSize(rowLength),
                      expected.data());
    ASSERT_EQ(Q7s(output.q7(), output.q7() + size), expected)
        << routine.name << ", rows of " << rowLength << ", " << outch << " filters";
}

TEST(SgemmRelayout, EveryRowLengthAndFilterCountMatchesReference) {
    Random random(1);
    for (const Routine& routine : kRoutines) {
        for (int32_t k = routine.rowStep; k <= 40 * routine.rowStep; k += routine.rowStep) {
            for (int32_t outch = 1; outch <= 13; ++outch) {
                for (const auto place : kBothPlaces) {
                    ExpectMatch(routine, random, k, outch, place);
                }
            }
        }
    }
}

TEST(SgemmRelayout, LayersOfTheUsualSizesMatchReference) {
    Random random(2);
    for (const Routine& routine : kRoutines) {
        for (const int32_t k : {63, 64, 72, 117, 576, 1152}) {
            for (const int32_t outch : {16, 31, 64, 130}) {
                const int32_t rowLength = k / routine.rowStep * routine.rowStep;
                ExpectMatch(routine, random, rowLength, outch, GuardedBuffer::kAtEnd);
            }
        }
    }
}

TEST(SgemmRelayout, FourFiltersOfOneWeightLeaveTheRestOfTheirSlot) {
    const int8_t weights[4] = {11, -12, 13, -14};
    Q7s output(20, 77);
    conv1x1s1_sgemm_transform_kernel_int8_neon_32(weights, 1, 4, output.data());
    Q7s expected(20, 77); // the slot has 16 bytes
    std::copy(weights, weights + 4, expected.begin());
    EXPECT_EQ(output, expected);
}

TEST(SgemmRelayout, ThreeFiltersAreCopiedToASlotEach) {
    const Q7s weights = {1, 2, 3, 4, 5, 6};
    for (const auto pointwise : {conv1x1s1_sgemm_transform_kernel_int8_neon_32,
                                 conv1x1s1_sgemm_transform_kernel_int8_neon_64}) {
        Q7s output(96, 77); // slots of 16 * (2 / 4 + 2 mod 4) = 32 bytes
        pointwise(weights.data(), 2, 3, output.data());
        Q7s expected(96, 77);
        for (size_t p = 0; p < 3; ++p) {
            expected[32 * p] = weights[2 * p];
            expected[32 * p + 1] = weights[2 * p + 1];
        }
        EXPECT_EQ(output, expected);
    }
    for (const auto im2col : {kIm2col32, kIm2col64}) {
        Q7s output(24, 77);
        im2col(weights.data(), 1, 3, 2, output.data());
        Q7s expected(24, 77);
        for (size_t p = 0; p < 3; ++p) {
            expected[8 * p] = weights[2 * p];
            expected[8 * p + 1] = weights[2 * p + 1];
        }
        EXPECT_EQ(output, expected);
    }
}

TEST(SgemmRelayout, PairsOfFiveWeightsEndWithSingleBytes) {
    Q7s weights(20);
    for (size_t i = 0; i < 20; ++i) {
        weights[i] = static_cast<int8_t>(10 * (i / 5) + i % 5); // filter in the tens
    }
    const Q7s woven = {0, 1, 10, 11, 20, 21, 30, 31, 2, 3, 12, 13, 22, 23, 32, 33, 4, 14, 24, 34};
    Q7s output(20, 77);
    kIm2col64(weights.data(), 5, 4, 1, output.data());
    EXPECT_EQ(output, woven);

    Q7s wide(32, 77); // slots of 16 * (1 + 1) bytes
    conv1x1s1_sgemm_transform_kernel_int8_neon_64(weights.data(), 5, 4, wide.data());
    Q7s expected(32, 77);
    std::copy(woven.begin(), woven.end(), expected.begin());
    EXPECT_EQ(wide, expected);
}

TEST(SgemmRelayout, SixFiltersFillThreeSlots) {
    const Q7s weights = {1, 2, 3, 4, 5, 6};
    Q7s output(12, 77);
    kIm2col32(weights.data(), 1, 6, 1, output.data());
    EXPECT_EQ(output, (Q7s{1, 2, 3, 4, 5, 77, 77, 77, 6, 77, 77, 77}));
}

TEST(SgemmRelayout, SevenInputChannelsHaveSlotsOfSixtyFourBytes) {
    Random random(3);
    const Q7s weights = RandomQ7(random, 7 * 5);
    for (const auto pointwise : {conv1x1s1_sgemm_transform_kernel_int8_neon_32,
                                 conv1x1s1_sgemm_transform_kernel_int8_neon_64}) {
        Q7s output(128, 77);
        pointwise(weights.data(), 7, 5, output.data());
        EXPECT_EQ(Q7s(output.begin() + 28, output.begin() + 64), Q7s(36, 77));
        EXPECT_EQ(Q7s(output.begin() + 64, output.begin() + 71),
                  Q7s(weights.begin() + 28, weights.end()));
        EXPECT_EQ(Q7s(output.begin() + 71, output.end()), Q7s(57, 77));
    }
}

TEST(SgemmRelayout, CountsBelowOneWriteNothing) {
    const Q7s weights(64, 5);
    for (const int32_t bad : {0, -1, -4, -5, INT32_MIN}) {
        for (const auto pointwise : {conv1x1s1_sgemm_transform_kernel_int8_neon_32,
                                     conv1x1s1_sgemm_transform_kernel_int8_neon_64}) {
            Q7s output(64, 77);
            pointwise(weights.data(), bad, 4, output.data());
            pointwise(weights.data(), 4, bad, output.data());
            pointwise(weights.data(), bad, bad, output.data());
            EXPECT_EQ(output, Q7s(64, 77)) << bad;
        }
        for (const auto im2col : {kIm2col32, kIm2col64}) {
            Q7s output(64, 77);
            im2col(weights.data(), bad, 4, 1, output.data());
            im2col(weights.data(), 1, 4, bad, output.data());
            im2col(weights.data(), 4, bad, 1, output.data());
            im2col(nullptr, 4, bad, 1, nullptr);
            im2col(nullptr, bad, 4, 1, nullptr);
            im2col(nullptr, 1, 4, bad, nullptr);
            EXPECT_EQ(output, Q7s(64, 77)) << bad;
        }
    }
}

TEST(SgemmRelayout, PointwiseFormsRefuseNullAddresses) {
    const Q7s weights(16, 5);
    for (const auto pointwise : {conv1x1s1_sgemm_transform_kernel_int8_neon_32,
                                 conv1x1s1_sgemm_transform_kernel_int8_neon_64}) {
        Q7s output(16, 77);
        pointwise(nullptr, 1, 4, output.data());
        EXPECT_EQ(output, Q7s(16, 77));
        pointwise(weights.data(), 1, 4, nullptr);
        pointwise(nullptr, 1, 4, nullptr);
        pointwise(nullptr, 0, -1, nullptr);
    }
}

// Only the product of the two counts decides.
TEST(SgemmRelayout, Im2colTakesTwoNegativeFactorsAsTheirProduct) {
    Random random(4);
    const Q7s weights = RandomQ7(random, 6 * 5);
    for (const auto im2col : {kIm2col32, kIm2col64}) {
        Q7s output(48, 77);
        im2col(weights.data(), -2, 5, -3, output.data());
        Q7s expected(48, 77);
        im2col(weights.data(), 2, 5, 3, expected.data());
        EXPECT_EQ(output, expected);
        EXPECT_NE(output, Q7s(48, 77));
    }
}

} // namespace
