// SPDX-License-Identifier: MIT
//
// Convolution of one plane with RISC-V's vectors: a tile of a row, of which each of the nine taps is
// loaded once for three channels. Register plan as in product.cpp.
#include <cstring>

#include "compute_a/simd/rvv/lanes.h"
#include "compute_a/simd/rvv/routines.h"

namespace orvo {
namespace {

using Filter = PlaneConvolution::Filter;

// The plane with a zero on each side and a row of zeros above and below.
struct PaddedPlane {
    const int8_t* values;
    size_t pitch;

    static size_t Bytes(size_t width, size_t height) { return (width + 2) * (height + 2); }
};

PaddedPlane PadPlane(const PlaneConvolution& p) {
    const size_t pitch = p.width + 2;
    int8_t* to = p.scratch;
    std::memset(to, 0, pitch + 1);
    to += pitch + 1;
    for (size_t y = 0; y < p.height; ++y, to += pitch) {
        std::memcpy(to, p.src + y * p.width, p.width);
        to[p.width] = to[p.width + 1] = 0;
    }
    std::memset(to, 0, pitch - 1);
    return {p.scratch, pitch};
}

// Outputs of one row.
struct Tile {
    const int8_t* values; // what the first tap of the first output meets
    size_t pitch;
    size_t first; // in the output planes
    size_t count; // that fit the vectors
};

inline vint16m4_t LoadTap(const Tile& tile, size_t tap) {
    const int8_t* from = tile.values + tap / 3 * tile.pitch + tap % 3;
    return __riscv_vsext_vf2_i16m4(__riscv_vle8_v_i8m2(from, tile.count), tile.count);
}

inline void Store(const PlaneConvolution& p, vint32m8_t sums, size_t channel, const Tile& tile) {
    __riscv_vse8_v_i8m2(p.dst + channel * p.width * p.height + tile.first,
                        Requantise(sums, ShiftCount(p.shift), tile.count), tile.count);
}

void ConvolveThree(const PlaneConvolution& p, size_t channel, const Tile& tile) {
    const size_t n = tile.count;
    const Filter* filters = p.filters + channel;
    vint32m8_t sums0 = __riscv_vmv_v_x_i32m8(p.bias[channel], n);
    vint32m8_t sums1 = __riscv_vmv_v_x_i32m8(p.bias[channel + 1], n);
    vint32m8_t sums2 = __riscv_vmv_v_x_i32m8(p.bias[channel + 2], n);
#pragma GCC unroll 9
    for (size_t tap = 0; tap < 9; ++tap) {
        const vint16m4_t words = LoadTap(tile, tap);
        sums0 = __riscv_vwmacc_vx_i32m8(sums0, filters[0][tap / 3][tap % 3], words, n);
        sums1 = __riscv_vwmacc_vx_i32m8(sums1, filters[1][tap / 3][tap % 3], words, n);
        sums2 = __riscv_vwmacc_vx_i32m8(sums2, filters[2][tap / 3][tap % 3], words, n);
    }
    Store(p, sums0, channel, tile);
    Store(p, sums1, channel + 1, tile);
    Store(p, sums2, channel + 2, tile);
}

void ConvolveOne(const PlaneConvolution& p, size_t channel, const Tile& tile) {
    const size_t n = tile.count;
    const Filter& filter = p.filters[channel];
    vint32m8_t sums = __riscv_vmv_v_x_i32m8(p.bias[channel], n);
    for (size_t tap = 0; tap < 9; ++tap) {
        sums = __riscv_vwmacc_vx_i32m8(sums, filter[tap / 3][tap % 3], LoadTap(tile, tap), n);
    }
    Store(p, sums, channel, tile);
}

void ConvolveTile(const PlaneConvolution& p, const Tile& tile) {
    size_t channel = 0;
    for (; channel + 3 <= p.channels; channel += 3) {
        ConvolveThree(p, channel, tile);
    }
    for (; channel < p.channels; ++channel) {
        ConvolveOne(p, channel, tile);
    }
}

} // namespace

bool rvv::ConvolvePlane(const PlaneConvolution& p) {
    if (PaddedPlane::Bytes(p.width, p.height) > p.scratchBytes) {
        return false;
    }
    const PaddedPlane padded = PadPlane(p);
    for (size_t y = 0; y < p.height; ++y) {
        for (size_t x = 0; x < p.width;) {
            const size_t count = __riscv_vsetvl_e8m2(p.width - x);
            ConvolveTile(
                p, {padded.values + y * padded.pitch + x, padded.pitch, y * p.width + x, count});
            x += count;
        }
    }
    return true;
}

} // namespace orvo
