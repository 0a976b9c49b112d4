// SPDX-License-Identifier: MIT
//
// Rectifier and addition with WebAssembly's vectors. Compilers make vectors of the plain loops, too,
// but not where source and destination are the same.
#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/wasm/lanes.h"
#include "compute_a/simd/wasm/routines.h"

namespace orvo {
namespace {

// Sums of 8 in words: shifted left by multiplication. Input shifts up to 6 make factors up to 64 and
// sums, with half of the output's divisor, up to 24576.
struct Addition {
    Vector factor1, factor2, half;
    uint32_t shift;

    explicit Addition(const AddShifts& s)
        : factor1(wasm_i8x16_splat(static_cast<int8_t>(1 << s.in1))),
          factor2(wasm_i8x16_splat(static_cast<int8_t>(1 << s.in2))),
          half(wasm_i16x8_splat(static_cast<int16_t>(s.out == 0 ? 0 : 1 << (s.out - 1)))),
          shift(s.out) {}

    Vector Finish(Vector low, Vector high) const {
        return wasm_i8x16_narrow_i16x8(ShiftRight16(wasm_i16x8_add(low, half), shift),
                                       ShiftRight16(wasm_i16x8_add(high, half), shift));
    }
    Vector Sum(Vector a) const {
        return Finish(wasm_i16x8_extmul_low_i8x16(a, factor1),
                      wasm_i16x8_extmul_high_i8x16(a, factor1));
    }
    Vector Sum(Vector a, Vector b) const {
        return Finish(wasm_i16x8_add(wasm_i16x8_extmul_low_i8x16(a, factor1),
                                     wasm_i16x8_extmul_low_i8x16(b, factor2)),
                      wasm_i16x8_add(wasm_i16x8_extmul_high_i8x16(a, factor1),
                                     wasm_i16x8_extmul_high_i8x16(b, factor2)));
    }
};

} // namespace

void wasm::Rectify(const int8_t* src, int8_t* dst, size_t count) {
    const Vector zero = wasm_i64x2_splat(0);
    for (; count >= 32; count -= 32, src += 32, dst += 32) {
        const Vector first = wasm_i8x16_max(wasm_v128_load(src), zero);
        const Vector second = wasm_i8x16_max(wasm_v128_load(src + 16), zero);
        wasm_v128_store(dst, first);
        wasm_v128_store(dst + 16, second);
    }
    plain::Rectify(src, dst, count);
}

void wasm::Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count,
               const AddShifts& s) {
    const Addition addition(s);
    if (in2 == nullptr) {
        for (; count >= 16; count -= 16, in1 += 16, dst += 16) {
            wasm_v128_store(dst, addition.Sum(wasm_v128_load(in1)));
        }
        plain::Add(in1, nullptr, dst, count, s);
        return;
    }
    for (; count >= 16; count -= 16, in1 += 16, in2 += 16, dst += 16) {
        wasm_v128_store(dst, addition.Sum(wasm_v128_load(in1), wasm_v128_load(in2)));
    }
    plain::Add(in1, in2, dst, count, s);
}

} // namespace orvo
