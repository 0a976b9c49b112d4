// SPDX-License-Identifier: MIT
//
// Products of small matrices in bfloat16 with sums in single precision, on the processor's matrix
// unit if it has one. A tile is 16 rows of 64 bytes: 16 x 32 values on the left, 16 pairs of rows x
// 16 columns on the right, 16 x 16 sums.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include "vectors.h"

namespace engine {

constexpr int kTileValues = 512;

// Value pairs (first in the low half) of two vectors.
inline __m512i Interleave(V first, V second) {
    static const __m512i order =
        _mm512_set_epi16(31, 15, 30, 14, 29, 13, 28, 12, 27, 11, 26, 10, 25, 9, 24, 8, 23, 7, 22, 6,
                         21, 5, 20, 4, 19, 3, 18, 2, 17, 1, 16, 0);
    return _mm512_permutexvar_epi16(order,
                                    reinterpret_cast<__m512i>(_mm512_cvtne2ps_pbh(second, first)));
}

// Transposes 16 x 16 values of 32 bits.
inline void Transpose(const __m512i* from, __m512i* to) {
    __m512i t[16], u[16];
    for (int i = 0; i < 8; ++i) {
        t[2 * i] = _mm512_unpacklo_epi32(from[2 * i], from[2 * i + 1]);
        t[2 * i + 1] = _mm512_unpackhi_epi32(from[2 * i], from[2 * i + 1]);
    }
    for (int i = 0; i < 4; ++i) {
        u[4 * i] = _mm512_unpacklo_epi64(t[4 * i], t[4 * i + 2]);
        u[4 * i + 1] = _mm512_unpackhi_epi64(t[4 * i], t[4 * i + 2]);
        u[4 * i + 2] = _mm512_unpacklo_epi64(t[4 * i + 1], t[4 * i + 3]);
        u[4 * i + 3] = _mm512_unpackhi_epi64(t[4 * i + 1], t[4 * i + 3]);
    }
    for (int i = 0; i < 4; ++i) {
        t[i] = _mm512_shuffle_i32x4(u[i], u[4 + i], 0x88);
        t[4 + i] = _mm512_shuffle_i32x4(u[i], u[4 + i], 0xdd);
        t[8 + i] = _mm512_shuffle_i32x4(u[8 + i], u[12 + i], 0x88);
        t[12 + i] = _mm512_shuffle_i32x4(u[8 + i], u[12 + i], 0xdd);
    }
    for (int i = 0; i < 4; ++i) {
        to[i] = _mm512_shuffle_i32x4(t[i], t[8 + i], 0x88);
        to[8 + i] = _mm512_shuffle_i32x4(t[i], t[8 + i], 0xdd);
        to[4 + i] = _mm512_shuffle_i32x4(t[4 + i], t[12 + i], 0x88);
        to[12 + i] = _mm512_shuffle_i32x4(t[4 + i], t[12 + i], 0xdd);
    }
}

#ifdef __AMX_BF16__

// The system lends the matrix unit on request.
inline bool RequestTiles() {
    constexpr long kRequestPermission = 0x1023, kTileData = 18;
    return syscall(SYS_arch_prctl, kRequestPermission, kTileData) == 0;
}

inline void ConfigureTiles() {
    alignas(64) uint8_t config[64] = {1};
    for (int tile = 0; tile < 8; ++tile) {
        reinterpret_cast<uint16_t*>(config + 16)[tile] = 64;
        config[48 + tile] = 16;
    }
    _tile_loadconfig(config);
}

inline void ReleaseTiles() { _tile_release(); }

// sums (32 x 32) = left (32 rows of `stride` values, 32 * steps used) x two columns of tiles.
inline void Multiply(const uint16_t* left, int stride, const uint16_t* right0,
                     const uint16_t* right1, int steps, float* sums) {
    _tile_zero(0);
    _tile_zero(1);
    _tile_zero(2);
    _tile_zero(3);
    for (int step = 0; step < steps; ++step) {
        _tile_loadd(4, left + 32 * step, 2 * stride);
        _tile_loadd(5, left + 16 * stride + 32 * step, 2 * stride);
        _tile_loadd(6, right0 + kTileValues * step, 64);
        _tile_loadd(7, right1 + kTileValues * step, 64);
        _tile_dpbf16ps(0, 4, 6);
        _tile_dpbf16ps(1, 4, 7);
        _tile_dpbf16ps(2, 5, 6);
        _tile_dpbf16ps(3, 5, 7);
    }
    _tile_stored(0, sums, 128);
    _tile_stored(1, sums + 16, 128);
    _tile_stored(2, sums + 16 * 32, 128);
    _tile_stored(3, sums + 16 * 32 + 16, 128);
}

// Adds two columns of left tiles times two columns of right tiles to four tiles of sums.
inline void MultiplyAdd(const uint16_t* left0, const uint16_t* left1, const uint16_t* right0,
                        const uint16_t* right1, int steps, float* sums00, float* sums01,
                        float* sums10, float* sums11) {
    _tile_loadd(0, sums00, 64);
    _tile_loadd(1, sums01, 64);
    _tile_loadd(2, sums10, 64);
    _tile_loadd(3, sums11, 64);
    for (int step = 0; step < steps; ++step) {
        _tile_loadd(4, left0 + kTileValues * step, 64);
        _tile_loadd(5, left1 + kTileValues * step, 64);
        _tile_loadd(6, right0 + kTileValues * step, 64);
        _tile_loadd(7, right1 + kTileValues * step, 64);
        _tile_dpbf16ps(0, 4, 6);
        _tile_dpbf16ps(1, 4, 7);
        _tile_dpbf16ps(2, 5, 6);
        _tile_dpbf16ps(3, 5, 7);
    }
    _tile_stored(0, sums00, 64);
    _tile_stored(1, sums01, 64);
    _tile_stored(2, sums10, 64);
    _tile_stored(3, sums11, 64);
}

#else

inline bool RequestTiles() { return true; }
inline void ConfigureTiles() {}
inline void ReleaseTiles() {}

// sums (16 x 16, rows `pitch` apart) += left tile (rows `stride` values apart) x right tile.
inline void MultiplyTile(const uint16_t* left, int stride, const uint16_t* right, float* sums,
                         int pitch) {
    V row[16];
    for (int i = 0; i < 16; ++i) {
        row[i] = Load(sums + pitch * i);
    }
    for (int k = 0; k < 16; ++k) {
        const auto pairs = reinterpret_cast<__m512bh>(_mm512_loadu_si512(right + 32 * k));
        for (int i = 0; i < 16; ++i) {
            int32_t pair;
            __builtin_memcpy(&pair, left + stride * i + 2 * k, sizeof pair);
            row[i] = _mm512_dpbf16_ps(row[i], reinterpret_cast<__m512bh>(_mm512_set1_epi32(pair)),
                                      pairs);
        }
    }
    for (int i = 0; i < 16; ++i) {
        Store(sums + pitch * i, row[i]);
    }
}

inline void Multiply(const uint16_t* left, int stride, const uint16_t* right0,
                     const uint16_t* right1, int steps, float* sums) {
    std::fill(sums, sums + 32 * 32, 0.0f);
    for (int step = 0; step < steps; ++step) {
        for (int half = 0; half < 2; ++half) {
            const uint16_t* rows = left + half * 16 * stride + 32 * step;
            MultiplyTile(rows, stride, right0 + kTileValues * step, sums + half * 16 * 32, 32);
            MultiplyTile(rows, stride, right1 + kTileValues * step, sums + half * 16 * 32 + 16, 32);
        }
    }
}

inline void MultiplyAdd(const uint16_t* left0, const uint16_t* left1, const uint16_t* right0,
                        const uint16_t* right1, int steps, float* sums00, float* sums01,
                        float* sums10, float* sums11) {
    for (int at = 0; at < kTileValues * steps; at += kTileValues) {
        MultiplyTile(left0 + at, 32, right0 + at, sums00, 16);
        MultiplyTile(left0 + at, 32, right1 + at, sums01, 16);
        MultiplyTile(left1 + at, 32, right0 + at, sums10, 16);
        MultiplyTile(left1 + at, 32, right1 + at, sums11, 16);
    }
}

#endif

} // namespace engine
