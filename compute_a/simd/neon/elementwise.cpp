// SPDX-License-Identifier: MIT
//
// Rectifier and addition with NEON.
#include "compute_a/simd/neon/lanes.h"
#include "compute_a/simd/neon/routines.h"
#include "compute_a/simd/plain/routines.h"

namespace orvo {
namespace {

// Sums of 8: shifted left by multiplication, right with rounding, which is what adding half of the
// divisor first comes to. Input shifts up to 6 make factors up to 64 and sums up to 16384.
struct Addition {
    int8x8_t factor1, factor2;
    int16x8_t shiftCount;

    explicit Addition(const AddShifts& s)
        : factor1(vdup_n_s8(static_cast<int8_t>(1 << s.in1))),
          factor2(vdup_n_s8(static_cast<int8_t>(1 << s.in2))),
          shiftCount(vdupq_n_s16(static_cast<int16_t>(-static_cast<int32_t>(s.out)))) {}

    int16x8_t Shifted(int8x8_t a) const { return vrshlq_s16(vmull_s8(a, factor1), shiftCount); }
    int16x8_t Shifted(int8x8_t a, int8x8_t b) const {
        return vrshlq_s16(vmlal_s8(vmull_s8(a, factor1), b, factor2), shiftCount);
    }
    int8x16_t Sum(int8x16_t a) const {
        return NarrowPair(Shifted(vget_low_s8(a)), Shifted(vget_high_s8(a)));
    }
    int8x16_t Sum(int8x16_t a, int8x16_t b) const {
        return NarrowPair(Shifted(vget_low_s8(a), vget_low_s8(b)),
                          Shifted(vget_high_s8(a), vget_high_s8(b)));
    }
};

} // namespace

void neon::Rectify(const int8_t* src, int8_t* dst, size_t count) {
    for (; count >= 32; count -= 32) {
        Store32(Max(Load32(src), 0), dst);
    }
    plain::Rectify(src, dst, count);
}

void neon::Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count,
               const AddShifts& s) {
    const Addition addition(s);
    if (in2 == nullptr) {
        for (; count >= 16; count -= 16, in1 += 16, dst += 16) {
            vst1q_s8(dst, addition.Sum(vld1q_s8(in1)));
        }
        plain::Add(in1, nullptr, dst, count, s);
        return;
    }
    for (; count >= 16; count -= 16, in1 += 16, in2 += 16, dst += 16) {
        vst1q_s8(dst, addition.Sum(vld1q_s8(in1), vld1q_s8(in2)));
    }
    plain::Add(in1, in2, dst, count, s);
}

} // namespace orvo
