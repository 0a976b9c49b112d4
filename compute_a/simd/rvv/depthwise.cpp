// SPDX-License-Identifier: MIT
//
// Depthwise convolution with RISC-V's vectors. A strip, as many columns as the vectors have room
// for, goes down the plane: each row is loaded once, with its neighbours to the left and to the right,
// and is the bottom row of one output, the middle row of the next and the top row of the one after
// that. A filter's weights stay in the scalar registers.
#include <cstdlib>

#include "compute_a/simd/rvv/lanes.h"
#include "compute_a/simd/rvv/routines.h"

namespace orvo {
namespace {

// One channel's parameters.
struct Filter {
    const int8_t* weights;
    int32_t bias;
    uint32_t shift;
    int8_t lowest;
};

// One plane from a strip's first column on, in the first row.
struct Strip {
    const int8_t* src;
    int8_t* dst;
    size_t width, height; // of the plane
    size_t columns;
    bool hasLeft, hasRight; // neighbours
};

// ---- Sums of 16 bits
//
// Filters whose sum is made of two of 16 bits, one of the outer rows and one of the middle row, the
// bias's lowest bit in the former. Half their sum, rounded down, is one instruction; half the rest
// of the bias is added to it, and a shift by one less than asked for is all that is left to do.
// Where the last addition saturates, so does the output, since no more than eight further bits are
// shifted out.

constexpr int kMostWeight = 255; // |w| in total: products come to 32640 at most

bool FitsHalvedSums(const Filter& f) {
    int outer = 0;
    int middle = 0;
    for (size_t i = 0; i < 9; ++i) {
        (i / 3 == 1 ? middle : outer) += std::abs(f.weights[i]);
    }
    return outer <= kMostWeight && middle <= kMostWeight && f.shift >= 1 && f.shift <= 9 &&
           f.bias >= 2 * INT16_MIN && f.bias <= 2 * INT16_MAX + 1;
}

inline vint16m4_t AddProducts(vint16m4_t sums, vint8m2_t left, vint8m2_t centre, vint8m2_t right,
                              const int8_t* weights, size_t n) {
    sums = __riscv_vwmacc_vx_i16m4(sums, weights[0], left, n);
    sums = __riscv_vwmacc_vx_i16m4(sums, weights[1], centre, n);
    return __riscv_vwmacc_vx_i16m4(sums, weights[2], right, n);
}

inline void StoreHalved(vint16m4_t outer, vint16m4_t middle, const Filter& f, int8_t* dst,
                        size_t n) {
    vint16m4_t half = __riscv_vaadd_vv_i16m4(outer, middle, __RISCV_VXRM_RDN, n);
    half = __riscv_vsadd_vx_i16m4(half, static_cast<int16_t>(f.bias >> 1), n);
    const vint8m2_t bytes = __riscv_vnclip_wx_i8m2(half, f.shift - 1, __RISCV_VXRM_RDN, n);
    __riscv_vse8_v_i8m2(dst, __riscv_vmax_vx_i8m2(bytes, f.lowest, n), n);
}

// Register plan: 3 groups of two for a row, 3 of four for the sums and one for what is made of them.
void ConvolveHalved(const Strip& s, const Filter& f) {
    const size_t n = s.columns;
    const int8_t w[9] = {f.weights[0], f.weights[1], f.weights[2], f.weights[3], f.weights[4],
                         f.weights[5], f.weights[6], f.weights[7], f.weights[8]};
    const auto lowestBit = static_cast<int16_t>(f.bias & 1);
    vint16m4_t outer = __riscv_vmv_v_x_i16m4(lowestBit, n); // of the output above this row
    vint16m4_t middle = outer;
    vint16m4_t nextOuter = outer; // of the output in this row
    const int8_t* src = s.src;
    int8_t* dst = s.dst;
    for (size_t y = 0; y < s.height; ++y, src += s.width) {
        const vint8m2_t centre = __riscv_vle8_v_i8m2(src, n);
        const vint8m2_t left =
            s.hasLeft ? __riscv_vle8_v_i8m2(src - 1, n) : __riscv_vslide1up_vx_i8m2(centre, 0, n);
        const vint8m2_t right = s.hasRight ? __riscv_vle8_v_i8m2(src + 1, n)
                                           : __riscv_vslide1down_vx_i8m2(centre, 0, n);
        if (y > 0) {
            StoreHalved(AddProducts(outer, left, centre, right, w + 6, n), middle, f, dst, n);
            dst += s.width;
        }
        middle = __riscv_vwmul_vx_i16m4(left, w[3], n);
        middle = __riscv_vwmacc_vx_i16m4(middle, w[4], centre, n);
        middle = __riscv_vwmacc_vx_i16m4(middle, w[5], right, n);
        outer = nextOuter;
        nextOuter = AddProducts(__riscv_vmv_v_x_i16m4(lowestBit, n), left, centre, right, w, n);
    }
    StoreHalved(outer, middle, f, dst, n);
}

// ---- Sums of 32 bits, for any other filter: half as many columns, widened to words.

inline vint32m4_t AddProducts(vint32m4_t sums, vint16m2_t left, vint16m2_t centre, vint16m2_t right,
                              const int8_t* weights, size_t n) {
    sums = __riscv_vwmacc_vx_i32m4(sums, weights[0], left, n);
    sums = __riscv_vwmacc_vx_i32m4(sums, weights[1], centre, n);
    return __riscv_vwmacc_vx_i32m4(sums, weights[2], right, n);
}

inline void StoreWide(vint32m4_t sums, const Filter& f, int8_t* dst, size_t n) {
    const vint16m2_t words =
        __riscv_vnclip_wx_i16m2(sums, ShiftCount(f.shift), __RISCV_VXRM_RDN, n);
    const vint8m1_t bytes = __riscv_vnclip_wx_i8m1(words, 0, __RISCV_VXRM_RDN, n);
    __riscv_vse8_v_i8m1(dst, __riscv_vmax_vx_i8m1(bytes, f.lowest, n), n);
}

// Register plan: 3 of bytes and 3 groups of two for a row, 3 of four for the sums.
void ConvolveWide(const Strip& s, const Filter& f) {
    const size_t n = s.columns;
    const int8_t w[9] = {f.weights[0], f.weights[1], f.weights[2], f.weights[3], f.weights[4],
                         f.weights[5], f.weights[6], f.weights[7], f.weights[8]};
    vint32m4_t above = __riscv_vmv_v_x_i32m4(f.bias, n); // sums of the output above this row
    vint32m4_t here = above;
    const int8_t* src = s.src;
    int8_t* dst = s.dst;
    for (size_t y = 0; y < s.height; ++y, src += s.width) {
        const vint16m2_t centre = __riscv_vsext_vf2_i16m2(__riscv_vle8_v_i8m1(src, n), n);
        const vint16m2_t left = __riscv_vslide1up_vx_i16m2(centre, s.hasLeft ? src[-1] : 0, n);
        const vint16m2_t right = __riscv_vslide1down_vx_i16m2(centre, s.hasRight ? src[n] : 0, n);
        if (y > 0) {
            StoreWide(AddProducts(above, left, centre, right, w + 6, n), f, dst, n);
            dst += s.width;
        }
        above = AddProducts(here, left, centre, right, w + 3, n);
        here = AddProducts(__riscv_vmv_v_x_i32m4(f.bias, n), left, centre, right, w, n);
    }
    StoreWide(above, f, dst, n);
}

void ConvolveChannel(const DepthwisePlanes& p, const Filter& f, const int8_t* src, int8_t* dst) {
    const bool isHalved = FitsHalvedSums(f);
    for (size_t x = 0; x < p.width;) {
        const size_t left = p.width - x;
        const size_t columns = isHalved ? __riscv_vsetvl_e8m2(left) : __riscv_vsetvl_e8m1(left);
        const Strip strip{src + x, dst + x, p.width, p.height, columns, x > 0, columns < left};
        isHalved ? ConvolveHalved(strip, f) : ConvolveWide(strip, f);
        x += columns;
    }
}

} // namespace

void rvv::Depthwise(const DepthwisePlanes& p) {
    const size_t plane = p.width * p.height;
    for (size_t c = 0; c < p.channels && plane > 0; ++c) {
        ConvolveChannel(p, {p.weights + 9 * c, p.bias[c], p.shift, p.lowest}, p.src + c * plane,
                        p.dst + c * plane);
    }
}

} // namespace orvo
