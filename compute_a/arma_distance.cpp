// SPDX-License-Identifier: MIT
//
// The inner product of two float vectors. The order of the operations decides the last bits and is
// part of the contract; only the steps written as std::fma are fused.
//
// Blocks of four go through four lanes that know no subnormal numbers, as the vector unit of the
// 32-bit ARM chip: inputs, products and sums below the smallest normal number count as zero, with
// their sign. Other processors, whatever their floating point is set to, give the same bits: where
// such a number could come up at all the lanes are computed step by step. Features hold nothing of
// the kind, and finding that out takes little time beside the chain of dependent additions.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/float_steps.h"
#include "orvo/q7_kernels.h"

namespace {

constexpr size_t kLanes = 4;

constexpr uint32_t kMagnitude = 0x7fffffffu;
// 2^-50. Products of such numbers are at least 2^-100 and, like all their sums, multiples of
// 2^-123: none but 0 is subnormal.
constexpr uint32_t kSafe = (127u - 50u) << 23;

// Not std::bit_cast, which the standard library of the WebAssembly compiler does not have.
inline uint32_t BitsOf(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}
inline float FloatOf(uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// A float's magnitude less 1: zeros wrap to the largest numbers, so that one minimum finds the
// small ones among the others.
inline uint32_t LessOne(float value) { return (BitsOf(value) & kMagnitude) - 1u; }

// Whether all are zero or far from the subnormal numbers.
inline bool AreSafe(const float* a, const float* b, size_t count) {
    uint32_t smallest = ~0u;
    for (size_t i = 0; i < count; ++i) {
        smallest = std::min(smallest, std::min(LessOne(a[i]), LessOne(b[i])));
    }
    return smallest >= kSafe - 1u;
}

#if defined(__x86_64__)
// The same: the base line has no minimum of such integers.
__attribute__((target("avx2"))) bool AreSafeByAvx2(const float* a, const float* b, size_t count) {
    return AreSafe(a, b, count);
}

bool IsSafe(const float* a, const float* b, size_t count) {
    return __builtin_cpu_supports("avx2") ? AreSafeByAvx2(a, b, count) : AreSafe(a, b, count);
}
#else
bool IsSafe(const float* a, const float* b, size_t count) { return AreSafe(a, b, count); }
#endif

// The bits decide, not a comparison, which the processor's own settings could change.
float Flush(float value) {
    const uint32_t bits = BitsOf(value);
    return (bits & kMagnitude) < BitsOf(FLT_MIN) ? FloatOf(bits & ~kMagnitude) : value;
}

// What lies below the smallest normal number before it is rounded counts as zero, too; a product of
// two floats is exact in double precision.
float FlushedProduct(float a, float b) {
    const double exact = static_cast<double>(Flush(a)) * static_cast<double>(Flush(b));
    return std::fabs(exact) < static_cast<double>(FLT_MIN)
               ? std::copysign(0.0f, static_cast<float>(exact))
               : static_cast<float>(exact);
}

float SumOfLanes(const float* a, const float* b, size_t blocks) {
    float lanes[kLanes] = {};
    for (size_t i = 0; i < blocks; ++i, a += kLanes, b += kLanes) {
        for (size_t lane = 0; lane < kLanes; ++lane) {
            lanes[lane] += a[lane] * b[lane];
        }
    }
    return (lanes[0] + lanes[1]) + (lanes[2] + lanes[3]);
}

float FlushedSumOfLanes(const float* a, const float* b, size_t blocks) {
    float lanes[kLanes] = {};
    for (size_t i = 0; i < blocks; ++i, a += kLanes, b += kLanes) {
        for (size_t lane = 0; lane < kLanes; ++lane) {
            lanes[lane] = Flush(lanes[lane] + FlushedProduct(a[lane], b[lane]));
        }
    }
    return Flush(Flush(lanes[0] + lanes[1]) + Flush(lanes[2] + lanes[3]));
}

// What is left behind the last block.
float AddTail(float sum, const float* a, const float* b, int32_t count) {
    if (count == 3) {
        sum += a[0] * b[0] + a[1] * b[1];
        return std::fma(a[2], b[2], sum);
    }
    for (int32_t i = 0; i < count; ++i) {
        sum = std::fma(a[i], b[i], sum);
    }
    return sum;
}

} // namespace

float ArmACalcDistanceFloat(const float* a, const float* b, int32_t n) {
    if (n <= 0) {
        return 0.0f;
    }
    const size_t blocks = static_cast<size_t>(n) / kLanes;
    const size_t inLanes = blocks * kLanes;
    // The question comes second: it is answered while the additions wait for one another.
    float sum = SumOfLanes(a, b, blocks);
    if (!IsSafe(a, b, inLanes)) {
        sum = FlushedSumOfLanes(a, b, blocks);
    }
    return AddTail(sum, a + inLanes, b + inLanes, n % static_cast<int32_t>(kLanes));
}
