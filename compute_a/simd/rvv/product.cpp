// SPDX-License-Identifier: MIT
//
// Matrix product and dot product with RISC-V's vectors.
//
// A product of a vector and a scalar is added to sums twice as wide by one instruction, so nothing
// is packed: rows are loaded as they are, widened to words and meet the weights of three channels,
// each from where it is stored. Register plan: 3 groups of eight for the sums, one of four for the
// words, one of two for the bytes.
#include "compute_a/simd/rvv/lanes.h"
#include "compute_a/simd/rvv/routines.h"

namespace orvo {
namespace {

constexpr size_t kGroup = 4; // channels whose weights stand side by side
constexpr size_t kTileChannels = 3;

// Pixels of the product and where their outputs go.
struct Pixels {
    const int8_t* rows;
    int8_t* dst;
    size_t count; // that fit the vectors
};

inline const int8_t* WeightsOfGrouped(const MatrixProduct& p, size_t channel) {
    return p.weights + channel / kGroup * p.groupBytes + channel % kGroup;
}

inline vint16m4_t LoadWords(const int8_t* from, size_t count) {
    return __riscv_vsext_vf2_i16m4(__riscv_vle8_v_i8m2(from, count), count);
}

inline void Store(const MatrixProduct& p, vint32m8_t sums, size_t channel, const Pixels& at) {
    const vint8m2_t bytes = Requantise(sums, ShiftCount(p.shift), at.count);
    __riscv_vse8_v_i8m2(at.dst + channel * p.planePitch, bytes, at.count);
}

// Vectors cannot be in arrays, so that each number of channels is written out.
void MultiplyThree(const MatrixProduct& p, size_t channel, const Pixels& at) {
    const size_t n = at.count;
    const int8_t* w0 = WeightsOfGrouped(p, channel);
    const int8_t* w1 = WeightsOfGrouped(p, channel + 1);
    const int8_t* w2 = WeightsOfGrouped(p, channel + 2);
    vint32m8_t sums0 = __riscv_vmv_v_x_i32m8(p.bias[channel], n);
    vint32m8_t sums1 = __riscv_vmv_v_x_i32m8(p.bias[channel + 1], n);
    vint32m8_t sums2 = __riscv_vmv_v_x_i32m8(p.bias[channel + 2], n);
    const int8_t* row = at.rows;
#pragma GCC unroll 4
    for (size_t k = 0; k < p.inner; ++k, row += p.rowPitch) {
        const vint16m4_t words = LoadWords(row, n);
        sums0 = __riscv_vwmacc_vx_i32m8(sums0, w0[kGroup * k], words, n);
        sums1 = __riscv_vwmacc_vx_i32m8(sums1, w1[kGroup * k], words, n);
        sums2 = __riscv_vwmacc_vx_i32m8(sums2, w2[kGroup * k], words, n);
    }
    Store(p, sums0, channel, at);
    Store(p, sums1, channel + 1, at);
    Store(p, sums2, channel + 2, at);
}

void MultiplyTwo(const MatrixProduct& p, size_t channel, const Pixels& at) {
    const size_t n = at.count;
    const int8_t* w0 = WeightsOfGrouped(p, channel);
    const int8_t* w1 = WeightsOfGrouped(p, channel + 1);
    vint32m8_t sums0 = __riscv_vmv_v_x_i32m8(p.bias[channel], n);
    vint32m8_t sums1 = __riscv_vmv_v_x_i32m8(p.bias[channel + 1], n);
    const int8_t* row = at.rows;
#pragma GCC unroll 4
    for (size_t k = 0; k < p.inner; ++k, row += p.rowPitch) {
        const vint16m4_t words = LoadWords(row, n);
        sums0 = __riscv_vwmacc_vx_i32m8(sums0, w0[kGroup * k], words, n);
        sums1 = __riscv_vwmacc_vx_i32m8(sums1, w1[kGroup * k], words, n);
    }
    Store(p, sums0, channel, at);
    Store(p, sums1, channel + 1, at);
}

// A channel whose weights stand `step` bytes apart.
void MultiplyOne(const MatrixProduct& p, size_t channel, const int8_t* weights, size_t step,
                 const Pixels& at) {
    const size_t n = at.count;
    vint32m8_t sums = __riscv_vmv_v_x_i32m8(p.bias[channel], n);
    const int8_t* row = at.rows;
    for (size_t k = 0; k < p.inner; ++k, row += p.rowPitch, weights += step) {
        sums = __riscv_vwmacc_vx_i32m8(sums, *weights, LoadWords(row, n), n);
    }
    Store(p, sums, channel, at);
}

void MultiplyPixels(const MatrixProduct& p, const Pixels& at) {
    const size_t grouped = p.channels / kGroup * kGroup;
    size_t channel = 0;
    for (; channel + kTileChannels <= grouped; channel += kTileChannels) {
        MultiplyThree(p, channel, at);
    }
    if (channel + 2 == grouped) {
        MultiplyTwo(p, channel, at);
        channel += 2;
    } else if (channel + 1 == grouped) {
        MultiplyOne(p, channel, WeightsOfGrouped(p, channel), kGroup, at);
        ++channel;
    }
    // A leftover channel has a group's space to itself.
    for (; channel < p.channels; ++channel) {
        MultiplyOne(p, channel, p.weights + (grouped / kGroup + channel - grouped) * p.groupBytes,
                    1, at);
    }
}

} // namespace

void rvv::Multiply(const MatrixProduct& p) {
    for (size_t pixel = 0; pixel < p.pixels;) {
        const size_t count = __riscv_vsetvl_e8m2(p.pixels - pixel);
        MultiplyPixels(p, {p.rows + pixel, p.dst + pixel, count});
        pixel += count;
    }
}

int32_t rvv::Dot(const int8_t* a, const int8_t* b, size_t count) {
    vint32m1_t sum = __riscv_vmv_v_x_i32m1(0, 1);
    for (size_t n; count > 0; count -= n, a += n, b += n) {
        n = __riscv_vsetvl_e8m4(count);
        const vint16m8_t products =
            __riscv_vwmul_vv_i16m8(__riscv_vle8_v_i8m4(a, n), __riscv_vle8_v_i8m4(b, n), n);
        sum = __riscv_vwredsum_vs_i16m8_i32m1(products, sum, n);
    }
    return __riscv_vmv_x_s_i32m1_i32(sum);
}

} // namespace orvo
