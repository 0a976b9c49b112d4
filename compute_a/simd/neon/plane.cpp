// SPDX-License-Identifier: MIT
//
// Convolution of one plane with filters of 16 bits, two neighbouring outputs of a row by four
// products for each row of the filter in place of six. With g0, g1, g2 a row of the filter and d0
// to d3 the columns that the two outputs meet,
//
//     2 y0 = A + B + 2 g0 (d0 - d2)      A = (g0 + g1 + g2) (d1 + d2)
//     2 y1 = A - B - 2 g2 (d1 - d3)      B = (g0 - g1 + g2) (d2 - d1)
//
// which holds exactly in integers, and so do the sums over the rows; one more bit is shifted out in
// the end. What stands in brackets is made of each column once for all filters: eight columns of a
// row become 32 bytes in the scratch,
//
//     d1 + d2 | d2 - d1 | d0 - d2 | d1 - d3        four numbers of 16 bits each
//
// with a row of zeros above the plane and one below it. Since columns come in whole tiles of eight,
// three pointers that are a row apart go over all tiles of some rows without knowing where a row
// ends. The networks' stems take 0.38 of the instructions of the matrix product on three planes of
// bytes, 0.34 on 64 bits, and 0.71 of what that takes with the dot product.
#include <algorithm>
#include <cstring>

#include "compute_a/simd/neon/lanes.h"
#include "compute_a/simd/neon/routines.h"

namespace orvo {
namespace {

constexpr size_t kTileColumns = 8;
constexpr size_t kTileValues = 2 * kTileColumns;
constexpr size_t kMostPlanes = 85;     // whose filters' sums of three weights fit 16 bits
constexpr int32_t kMostBias = 1 << 29; // which leaves room for twice the sum
constexpr size_t kMostColumns = 512;
constexpr size_t kBandBytes = 8 * 1024; // of the scratch, to stay in the first cache

// Of four channels or fewer, see Tiles.
#if defined(__aarch64__)
constexpr size_t kGroup = 4;
#else
constexpr size_t kGroup = 2;
#endif

// A channel's weights: for each row what A, B, d0 - d2 and d1 - d3 are multiplied with.
struct GroupWeights {
    alignas(16) int16_t rows[kGroup][4][3];
    int32_t twiceBias[kGroup];
};

// Tiles one after the other.
struct Tiles {
    const int16_t* values; // of the row above
    size_t pitch;          // from row to row
    size_t count;          // at least one
    uint32_t shift;
    int8_t* dst;
    size_t planePitch;
};

inline int16x4_t LowBytes(int8x8_t pairs) {
    return vshr_n_s16(vshl_n_s16(vreinterpret_s16_s8(pairs), 8), 8);
}
inline int16x4_t HighBytes(int8x8_t pairs) { return vshr_n_s16(vreinterpret_s16_s8(pairs), 8); }

// A row with its columns' combinations. `padded` has a zero before the row and some behind it.
void PrepareRow(const int8_t* padded, size_t width, int16_t* to) {
    for (size_t x = 0; x < width; x += kTileColumns, to += kTileValues) {
        const int16x4_t d0 = LowBytes(vld1_s8(padded + x));
        const int8x8_t middle = vld1_s8(padded + x + 1);
        const int16x4_t d1 = LowBytes(middle);
        const int16x4_t d2 = HighBytes(middle);
        const int16x4_t d3 = LowBytes(vld1_s8(padded + x + 3));
        vst1_s16(to, vadd_s16(d1, d2));
        vst1_s16(to + 4, vsub_s16(d2, d1));
        vst1_s16(to + 8, vsub_s16(d0, d2));
        vst1_s16(to + 12, vsub_s16(d1, d3));
    }
}

void PreparePlane(const PlaneConvolution& p, int16_t* values) {
    const size_t pitch = 2 * p.width;
    std::memset(values, 0, pitch * sizeof(int16_t));
    values += pitch;
    int8_t padded[1 + kMostColumns + kTileColumns] = {};
    for (size_t y = 0; y < p.height; ++y, values += pitch) {
        std::memcpy(padded + 1, p.src + y * p.width, p.width);
        PrepareRow(padded, p.width, values);
    }
    std::memset(values, 0, pitch * sizeof(int16_t));
}

void LoadGroup(const PlaneConvolution& p, size_t first, GroupWeights& group) {
    for (size_t c = 0; c < kGroup; ++c) {
        for (size_t row = 0; row < 3; ++row) {
            const int16_t* g = p.filters[first + c][row];
            group.rows[c][0][row] = static_cast<int16_t>(g[0] + g[2] + g[1]);
            group.rows[c][1][row] = static_cast<int16_t>(g[0] + g[2] - g[1]);
            group.rows[c][2][row] = static_cast<int16_t>(2 * g[0]);
            group.rows[c][3][row] = static_cast<int16_t>(-2 * g[2]);
        }
        group.twiceBias[c] = 2 * p.bias[first + c];
    }
}

#if defined(__aarch64__)

// A row's values of a tile: d1 + d2 and d2 - d1, d0 - d2 and d1 - d3.
struct TileRow {
    int16x8_t middle, outer;
};

// The addresses move past what is loaded and stored. GCC would count all from one of them.
inline TileRow LoadRow(const int16_t*& from) {
    TileRow row;
    __asm__("ldp %q0, %q1, [%2], #32"
            : "=w"(row.middle), "=w"(row.outer), "+r"(from)
            : "m"(*reinterpret_cast<const int16_t(*)[kTileValues]>(from)));
    return row;
}
inline void StoreLow(int8x16_t bytes, int8_t*& to) {
    __asm__("str %d2, [%1], #8"
            : "=m"(*reinterpret_cast<int8_t(*)[kTileColumns]>(to)), "+r"(to)
            : "w"(bytes));
}
inline void StoreHigh(int8x16_t bytes, int8_t*& to) {
    __asm__("st1 {%2.d}[1], [%1], #8"
            : "=m"(*reinterpret_cast<int8_t(*)[kTileColumns]>(to)), "+r"(to)
            : "w"(bytes));
}

// Products with the values that stand first in a vector, and second.
template <int kWeight>
inline int32x4_t AddFirst(int32x4_t sum, int16x8_t values, const int16x8_t weights[2]) {
    return vmlal_laneq_s16(sum, vget_low_s16(values), weights[kWeight / 8], kWeight % 8);
}
template <int kWeight>
inline int32x4_t AddSecond(int32x4_t sum, int16x8_t values, const int16x8_t weights[2]) {
    return vmlal_high_laneq_s16(sum, values, weights[kWeight / 8], kWeight % 8);
}

// Four channels. Register plan: 6 of weights, 4 of biases, 6 of a tile's values, 1 of the shift, 2
// of a channel's sums, 4 of the channels' 16-bit outputs. A tile takes 85 instructions, of which 48
// multiply.
void MultiplyTiles(const GroupWeights& group, Tiles t) {
    int16x8_t weights[kGroup][2];
    int32x4_t biases[kGroup];
    const int32x4_t shiftCount = TopByteShift(t.shift);
#pragma GCC unroll 4
    for (size_t c = 0; c < kGroup; ++c) {
        weights[c][0] = vld1q_s16(group.rows[c][0]);
        weights[c][1] = vcombine_s16(vld1_s16(group.rows[c][0] + 8), vdup_n_s16(0));
        biases[c] = vdupq_n_s32(group.twiceBias[c]);
    }
    const int16_t* rows[3] = {t.values, t.values + t.pitch, t.values + 2 * t.pitch};
    int8_t* planes[kGroup];
#pragma GCC unroll 4
    for (size_t c = 0; c < kGroup; ++c) {
        planes[c] = t.dst + c * t.planePitch;
    }
    for (; t.count > 0; --t.count) {
        const TileRow above = LoadRow(rows[0]);
        const TileRow at = LoadRow(rows[1]);
        const TileRow below = LoadRow(rows[2]);
        int16x8_t outputs[kGroup];
#pragma GCC unroll 4
        for (size_t c = 0; c < kGroup; ++c) {
            const int16x8_t* w = weights[c];
            int32x4_t a = AddFirst<0>(biases[c], above.middle, w);
            int32x4_t b = vmull_high_laneq_s16(above.middle, w[0], 3);
            a = AddFirst<1>(a, at.middle, w);
            b = AddSecond<4>(b, at.middle, w);
            a = AddFirst<2>(a, below.middle, w);
            b = AddSecond<5>(b, below.middle, w);
            int32x4_t even = vaddq_s32(a, b);
            int32x4_t odd = vsubq_s32(a, b);
            even = AddFirst<6>(even, above.outer, w);
            odd = AddSecond<9>(odd, above.outer, w);
            even = AddFirst<7>(even, at.outer, w);
            odd = AddSecond<10>(odd, at.outer, w);
            even = AddFirst<8>(even, below.outer, w);
            odd = AddSecond<11>(odd, below.outer, w);
            outputs[c] = vtrn2q_s16(vreinterpretq_s16_s32(vqshlq_s32(even, shiftCount)),
                                    vreinterpretq_s16_s32(vqshlq_s32(odd, shiftCount)));
        }
#pragma GCC unroll 2
        for (size_t c = 0; c < kGroup; c += 2) {
            const int8x16_t bytes =
                vuzp2q_s8(vreinterpretq_s8_s16(outputs[c]), vreinterpretq_s8_s16(outputs[c + 1]));
            StoreLow(bytes, planes[c]);
            StoreHigh(bytes, planes[c + 1]);
        }
    }
}

#else

// Two channels, for which 16 registers are just enough: q0-q2 weights, q3 the shift, q4-q9 a tile's
// values, q10-q13 sums, q14-q15 biases. A tile takes 44 instructions, of which 24 multiply.
void MultiplyTiles(const GroupWeights& group, const Tiles& t) {
    const int16_t* above = t.values;
    const int16_t* at = above + t.pitch;
    const int16_t* below = at + t.pitch;
    int8_t* dst0 = t.dst;
    int8_t* dst1 = t.dst + t.planePitch;
    size_t count = t.count;
    const int16_t* weights = group.rows[0][0];
    // clang-format off
    __asm__ volatile(
        "vld1.16 {d0-d3}, [%[weights]]!\n\t"
        "vld1.16 {d4-d5}, [%[weights]]\n\t"
        "vdup.32 q3, %[shiftCount]\n\t"
        "vdup.32 q14, %[bias0]\n\t"
        "vdup.32 q15, %[bias1]\n\t"
        "1:\n\t"
        "vld1.16 {d8-d11}, [%[above]]!\n\t"
        "vld1.16 {d12-d15}, [%[at]]!\n\t"
        "vld1.16 {d16-d19}, [%[below]]!\n\t"
        "vmov q10, q14\n\t"
        "vmov q12, q15\n\t"
        "vmull.s16 q11, d9, d0[3]\n\t"
        "vmull.s16 q13, d9, d3[3]\n\t"
        "vmlal.s16 q10, d8, d0[0]\n\t"
        "vmlal.s16 q12, d8, d3[0]\n\t"
        "vmlal.s16 q11, d13, d1[0]\n\t"
        "vmlal.s16 q13, d13, d4[0]\n\t"
        "vmlal.s16 q10, d12, d0[1]\n\t"
        "vmlal.s16 q12, d12, d3[1]\n\t"
        "vmlal.s16 q11, d17, d1[1]\n\t"
        "vmlal.s16 q13, d17, d4[1]\n\t"
        "vmlal.s16 q10, d16, d0[2]\n\t"
        "vmlal.s16 q12, d16, d3[2]\n\t"
        "vadd.i32 q4, q10, q11\n\t"
        "vsub.i32 q10, q10, q11\n\t"
        "vadd.i32 q6, q12, q13\n\t"
        "vsub.i32 q12, q12, q13\n\t"
        "vmlal.s16 q4, d10, d1[2]\n\t"
        "vmlal.s16 q6, d10, d4[2]\n\t"
        "vmlal.s16 q10, d11, d2[1]\n\t"
        "vmlal.s16 q12, d11, d5[1]\n\t"
        "vmlal.s16 q4, d14, d1[3]\n\t"
        "vmlal.s16 q6, d14, d4[3]\n\t"
        "vmlal.s16 q10, d15, d2[2]\n\t"
        "vmlal.s16 q12, d15, d5[2]\n\t"
        "vmlal.s16 q4, d18, d2[0]\n\t"
        "vmlal.s16 q6, d18, d5[0]\n\t"
        "vmlal.s16 q10, d19, d2[3]\n\t"
        "vmlal.s16 q12, d19, d5[3]\n\t"
        "vqshl.s32 q4, q4, q3\n\t"
        "vqshl.s32 q6, q6, q3\n\t"
        "vqshl.s32 q10, q10, q3\n\t"
        "vqshl.s32 q12, q12, q3\n\t"
        "subs %[count], %[count], #1\n\t"
        "vtrn.16 q4, q10\n\t"
        "vtrn.16 q6, q12\n\t"
        "vuzp.8 q10, q12\n\t"
        "vst1.8 {d24}, [%[dst0]]!\n\t"
        "vst1.8 {d25}, [%[dst1]]!\n\t"
        "bne 1b\n\t"
        : [above] "+r"(above), [at] "+r"(at), [below] "+r"(below), [dst0] "+r"(dst0),
          [dst1] "+r"(dst1), [count] "+r"(count), [weights] "+r"(weights)
        : [bias0] "r"(group.twiceBias[0]), [bias1] "r"(group.twiceBias[1]),
          [shiftCount] "r"(24 - static_cast<int32_t>(std::min<uint32_t>(t.shift, 31)))
        : "q0", "q1", "q2", "q3", "q4", "q5", "q6", "q7", "q8", "q9", "q10", "q11", "q12", "q13",
          "q14", "q15", "cc", "memory");
    // clang-format on
}

#endif

// The tiles of `rows` rows, for all channels.
void ConvolveBand(const PlaneConvolution& p, const int16_t* values, size_t rows, int8_t* dst) {
    const size_t plane = p.width * p.height;
    for (size_t c = 0; c < p.channels; c += kGroup) {
        GroupWeights group;
        LoadGroup(p, c, group);
        MultiplyTiles(group, {values, 2 * p.width, rows * (p.width / kTileColumns), p.shift + 1,
                              dst + c * plane, plane});
    }
}

int16_t* AlignedScratch(const PlaneConvolution& p) {
    const uintptr_t at = reinterpret_cast<uintptr_t>(p.scratch);
    return reinterpret_cast<int16_t*>(p.scratch + at % alignof(int16_t));
}

bool Fits(const PlaneConvolution& p) {
    if (p.width % kTileColumns != 0 || p.width == 0 || p.width > kMostColumns ||
        p.channels % kGroup != 0 || p.planes > kMostPlanes ||
        p.scratchBytes < 2 * p.width * (p.height + 2) * sizeof(int16_t) + alignof(int16_t)) {
        return false;
    }
    return std::all_of(p.bias, p.bias + p.channels,
                       [](int32_t bias) { return bias > -kMostBias && bias < kMostBias; });
}

} // namespace

bool neon::ConvolvePlane(const PlaneConvolution& p) {
    if (!Fits(p)) {
        return false;
    }
    int16_t* values = AlignedScratch(p);
    PreparePlane(p, values);
    const size_t pitch = 2 * p.width;
    const size_t most = std::max<size_t>(1, kBandBytes / (pitch * sizeof(int16_t)));
    for (size_t y = 0; y < p.height; y += most) {
        ConvolveBand(p, values + y * pitch, std::min(most, p.height - y), p.dst + y * p.width);
    }
    return true;
}

} // namespace orvo
