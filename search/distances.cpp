// SPDX-License-Identifier: MIT
//
// A distance is four sums in the lanes of one vector, and each of its 32 additions waits for the
// one before. Those of eight features do not wait for one another, so eight are on their way at a
// time. The order of the operations within a distance stays that of the contract, and with it the
// bits. Vectors of eight or sixteen numbers were not quicker.
#include "search/distances.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "orvo/orvo_fr.h"

namespace orvo {
namespace {

constexpr size_t kLength = ORVO_FR_FEATURE_LENGTH;
constexpr size_t kLanes = 4;
constexpr size_t kAtOnce = 8;

using Lanes = float __attribute__((vector_size(kLanes * sizeof(float))));

// The contract counts subnormal numbers as zero, and processors differ in the bits of what is not a
// number. Neither comes up where all numbers are 0 or lie between these bounds.
constexpr uint32_t kMagnitude = 0x7fffffffu;
// 2^-50: rounded products are at least 2^-100 and so, like all their sums, multiples of 2^-123. None
// but 0 is subnormal.
constexpr uint32_t kLeast = (127u - 50u) << 23;
// 2^50: sums of products stay far below the largest number.
constexpr uint32_t kTooLarge = (127u + 50u) << 23;

// A magnitude less 1 is the largest of all where it was 0, if it is taken without a sign, and the
// smallest of all if it is taken with one: a minimum and a maximum pass over zeros.
inline __attribute__((always_inline)) bool AreOrdinaryHere(const float* values, size_t count) {
    uint32_t smallest = ~0u;
    int32_t largest = -1;
    for (size_t i = 0; i < count; ++i) {
        uint32_t bits;
        std::memcpy(&bits, values + i, sizeof bits);
        const uint32_t lessOne = (bits & kMagnitude) - 1u;
        smallest = std::min(smallest, lessOne);
        largest = std::max(largest, static_cast<int32_t>(lessOne));
    }
    return smallest >= kLeast - 1u && largest < static_cast<int32_t>(kTooLarge - 1u);
}

#if defined(__x86_64__)
// The same: the base line has no minimum of such integers.
__attribute__((target("avx2"))) bool AreOrdinaryByAvx2(const float* values, size_t count) {
    return AreOrdinaryHere(values, count);
}

bool AreOrdinary(const float* values, size_t count) {
    return __builtin_cpu_supports("avx2") ? AreOrdinaryByAvx2(values, count)
                                          : AreOrdinaryHere(values, count);
}
#else
bool AreOrdinary(const float* values, size_t count) { return AreOrdinaryHere(values, count); }
#endif

Lanes LoadLanes(const float* from) {
    Lanes lanes;
    std::memcpy(&lanes, from, sizeof lanes);
    return lanes;
}

void EightDistances(const float* feature, const float* others, float* distances) {
    Lanes sums[kAtOnce] = {};
    for (size_t at = 0; at < kLength; at += kLanes) {
        const Lanes block = LoadLanes(feature + at);
        for (size_t i = 0; i < kAtOnce; ++i) {
            sums[i] += block * LoadLanes(others + i * kLength + at);
        }
    }
    for (size_t i = 0; i < kAtOnce; ++i) {
        distances[i] = (sums[i][0] + sums[i][1]) + (sums[i][2] + sums[i][3]);
    }
}

} // namespace

Features LookThrough(const float* values, size_t count) {
    return {values, count, AreOrdinary(values, count * kLength)};
}

void Distances(const float* feature, const Features& others, float* distances) {
    size_t done = 0;
    if (others.areOrdinary && AreOrdinary(feature, kLength)) {
        for (; done + kAtOnce <= others.count; done += kAtOnce) {
            EightDistances(feature, others.values + done * kLength, distances + done);
        }
    }
    for (; done < others.count; ++done) {
        distances[done] = OrvoFrGetDistance(feature, ORVO_FR_FEATURE_BYTES,
                                            others.values + done * kLength, ORVO_FR_FEATURE_BYTES);
    }
}

} // namespace orvo
