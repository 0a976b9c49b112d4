// SPDX-License-Identifier: MIT
//
// Pooling and sampling with RISC-V's vectors.
#include "compute_a/simd/planes_of_rows.h"
#include "compute_a/simd/rvv/lanes.h"
#include "compute_a/simd/rvv/routines.h"

namespace orvo {
namespace {

inline vint8m2_t MaxOfNeighbours(const int8_t* at, size_t n) {
    return __riscv_vmax_vv_i8m2(__riscv_vle8_v_i8m2(at, n), __riscv_vle8_v_i8m2(at + 1, n), n);
}

// `n` columns from the top of the plane to its bottom.
void MaxPoolColumns(int8_t* src, size_t width, size_t height, size_t n, int8_t* dst) {
    vint8m2_t here = MaxOfNeighbours(src, n);
    __riscv_vse8_v_i8m2(src, here, n);
    for (size_t y = 1; y < height; ++y, dst += width - 1) {
        src += width;
        const vint8m2_t next = MaxOfNeighbours(src, n);
        __riscv_vse8_v_i8m2(src, next, n);
        __riscv_vse8_v_i8m2(dst, __riscv_vmax_vv_i8m2(here, next, n), n);
        here = next;
    }
}

// Columns need the values right of them as they were, so they go from left to right.
void MaxPoolPlane(int8_t* src, size_t width, size_t height, int8_t* dst) {
    for (size_t x = 0; x + 1 < width;) {
        const size_t n = __riscv_vsetvl_e8m2(width - 1 - x);
        MaxPoolColumns(src + x, width, height, n, dst + x);
        x += n;
    }
}

// The bytes with even numbers, of `n` pairs, and those with odd ones.
inline vint8m2_t EvenBytes(vint8m4_t bytes, size_t n) {
    const vuint16m4_t pairs =
        __riscv_vreinterpret_v_u8m4_u16m4(__riscv_vreinterpret_v_i8m4_u8m4(bytes));
    return __riscv_vreinterpret_v_u8m2_i8m2(__riscv_vnsrl_wx_u8m2(pairs, 0, n));
}
inline vint8m2_t OddBytes(vint8m4_t bytes, size_t n) {
    const vuint16m4_t pairs =
        __riscv_vreinterpret_v_u8m4_u16m4(__riscv_vreinterpret_v_i8m4_u8m4(bytes));
    return __riscv_vreinterpret_v_u8m2_i8m2(__riscv_vnsrl_wx_u8m2(pairs, 8, n));
}

void MaxPoolRows(const int8_t* upper, const int8_t* lower, size_t dstWidth, int8_t* dst) {
    for (size_t n; dstWidth > 0; dstWidth -= n, upper += 2 * n, lower += 2 * n, dst += n) {
        n = __riscv_vsetvl_e8m2(dstWidth);
        const vint8m4_t rows = __riscv_vmax_vv_i8m4(__riscv_vle8_v_i8m4(upper, 2 * n),
                                                    __riscv_vle8_v_i8m4(lower, 2 * n), 2 * n);
        __riscv_vse8_v_i8m2(dst, __riscv_vmax_vv_i8m2(EvenBytes(rows, n), OddBytes(rows, n), n), n);
    }
}

// A row of odd length ends with a value that is sampled, so the last one's neighbour is not loaded.
void SampleRow(const int8_t* src, size_t dstWidth, int8_t* dst) {
    for (size_t n; dstWidth > 0; dstWidth -= n, src += 2 * n, dst += n) {
        n = __riscv_vsetvl_e8m2(dstWidth);
        __riscv_vse8_v_i8m2(dst, EvenBytes(__riscv_vle8_v_i8m4(src, 2 * n - 1), n), n);
    }
}

} // namespace

void rvv::MaxPoolStride1(int8_t* src, const Planes& planes, int8_t* dst) {
    MaxPoolStride1ByPlanes<MaxPoolPlane>(src, planes, dst);
}

void rvv::MaxPoolStride2(const int8_t* src, const Planes& planes, int8_t* dst) {
    MaxPoolStride2ByRows<MaxPoolRows>(src, planes, dst);
}

void rvv::Sample(const int8_t* src, const Planes& planes, int8_t* dst) {
    SampleByRows<SampleRow>(src, planes, dst);
}

} // namespace orvo
