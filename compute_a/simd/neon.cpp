// SPDX-License-Identifier: MIT
//
// NEON, the same source for 32-bit ARM and for 64-bit ARM without the dot-product instruction.
//
// vmull.s8 and vmlal.s8 multiply eight bytes by eight into 16-bit sums, which is where the work is
// cheap: how many products such a sum may take before it is widened is decided from the weights,
// which are known. With a total of |w| up to 255 a sum of products with any int8 values is at most
// 255 * 128 = 32640, so nothing is lost. Two products of -128 by -128 are beyond that.
//
// Millions of instructions a face, counted under emulation, plain and here:
//
//                         32-bit           64-bit
//     convolution       10.0   2.6        6.4   2.7
//     pointwise         48.5   9.4       32.4  10.7
//     depthwise         49.1   4.7       36.0   4.0
//     max pooling        2.53  0.49       2.41  0.41
//     addition           0.74  0.19       0.72  0.24
//     rectifier          0.22  0.19       0.26  0.17
//     sampling           0.42  0.26       0.42  0.24
//     in all           111.6  17.9       78.7  18.5
//
// The dot product and the flipping of signs are not here: what compilers make of the plain ones is
// as good.
#include "compute_a/simd/neon.h"
#include "compute_a/simd/planes_of_rows.h"

#include <cstdlib>
#include <cstring>

#include "compute_a/simd/neon_lanes.h"
#include "compute_a/simd/neon_strips.h"
#include "compute_a/simd/plain.h"
#if !defined(__aarch64__)
#include "compute_a/simd/neon_tiles_32.h"
#endif

namespace orvo {
namespace {

constexpr uint32_t kMostWeight = 255; // the largest total of |w| that a 16-bit sum may take

// ---- Matrix product ----------------------------------------------------------------------------
//
// A tile is 8 pixels of 4 planes. Four rows make a step: the pixels' values are interleaved row by
// row in pairs, so that the 16-bit sum of a lane holds one row of each pair, and vpadal adds the
// two while it widens. A step's 32 bytes are
//     pixels 0 to 3: rows 0 and 1, rows 2 and 3; pixels 4 to 7: rows 0 and 1, rows 2 and 3
// on 64-bit ARM, and on 32-bit ARM all pixels' rows 0 and 1 before their rows 2 and 3. They meet 16
// bytes of weights of one channel: rows 0 and 1 four times, rows 2 and 3 four times.

constexpr size_t kTilePixels = 8;
constexpr size_t kStepRows = 4;
constexpr size_t kStepBytes = kStepRows * kTilePixels;
constexpr size_t kGroup = 4;
constexpr size_t kMaxSteps = 64; // of which the weights, four times as large, fit the stack
constexpr size_t kBlockBytes = 20 * 1024; // pixels packed at a time: they stay in the first cache

// One group as the tiles read it: what its sums start from, and the weights, two steps of a channel
// side by side. 32-bit ARM reads on behind them: the shift and once more the biases.
struct GroupWeights {
    static constexpr size_t kBiases = 8;
    alignas(16) int32_t biases[kGroup][kBiases];
    alignas(16) int8_t bytes[kMaxSteps * kGroup * 16 + (kGroup * kBiases + 4) * sizeof(int32_t)];
    Widen widen;
};

inline bool AllWithin(uint16x8_t weightTotals) {
    const uint8x8_t above = vshrn_n_u16(weightTotals, 8);
    return vget_lane_u64(vreinterpret_u64_u8(above), 0) == 0;
}

constexpr size_t kPairRows = 2 * kStepRows;

// The weights of two steps, interleaved by channel as groups are stored; zeros after the last row.
// A leftover channel stands first in an otherwise empty group.
template <size_t Channels>
const int8_t* PairWeights(const int8_t* weights, size_t rows, int8_t copy[32]) {
    if (Channels == kGroup && rows >= kPairRows) {
        return weights;
    }
    std::memset(copy, 0, 32);
    for (size_t k = 0; k < std::min(rows, kPairRows); ++k) {
        for (size_t c = 0; c < Channels; ++c) {
            copy[kGroup * k + c] = weights[Channels * k + c];
        }
    }
    return copy;
}

// Totals of |w| in the 16-bit sums that a step adds to: rows 0 and 2 of each channel, rows 1 and 3
// of each channel. The magnitude of -128 is right as an unsigned byte.
inline uint16x8_t StepTotals(int8x16_t weights) {
    const uint8x16_t magnitudes = vreinterpretq_u8_s8(vabsq_s8(weights));
    return vaddl_u8(vget_low_u8(magnitudes), vget_high_u8(magnitudes));
}

template <size_t Channels>
void PutBiases(const int32_t* bias, int32_t* to) {
#pragma GCC unroll 4
    for (size_t c = 0; c < Channels; ++c) {
        const int32x4_t sum = vdupq_n_s32(bias[c]);
        vst1q_s32(to + GroupWeights::kBiases * c, sum);
        vst1q_s32(to + GroupWeights::kBiases * c + 4, sum);
    }
}

template <size_t Channels>
void LoadGroup(const int8_t* weights, size_t inner, const int32_t* bias,
               [[maybe_unused]] uint32_t shift, GroupWeights& group) {
    uint16x8_t stepMost = vdupq_n_u16(0);
    uint16x8_t pairMost = stepMost;
    uint16x8_t total = stepMost;
    int8_t* to = group.bytes;
    for (size_t k = 0; k < inner; k += kPairRows) {
        int8_t copy[32];
        const int8_t* pair = PairWeights<Channels>(weights + Channels * k, inner - k, copy);
        const int8x8x4_t rows = vld4_s8(pair);
#pragma GCC unroll 4
        for (size_t c = 0; c < Channels; ++c) {
            StoreRepeated(rows.val[c], to);
        }
        const uint16x8_t one = StepTotals(vld1q_s8(pair));
        const uint16x8_t two = StepTotals(vld1q_s8(pair + 16));
        const uint16x8_t both = vaddq_u16(one, two);
        stepMost = vmaxq_u16(stepMost, vmaxq_u16(one, two));
        pairMost = vmaxq_u16(pairMost, both);
        total = vaddq_u16(total, both);
    }
    static_assert(kMostWeight == 255);
    group.widen = AllWithin(total)      ? Widen::kEnd
                  : AllWithin(pairMost) ? Widen::kPair
                  : AllWithin(stepMost) ? Widen::kStep
                                        : Widen::kNever;
    PutBiases<Channels>(bias, group.biases[0]);
#if !defined(__aarch64__)
    int32_t* behind = reinterpret_cast<int32_t*>(to);
    vst1q_s32(behind, TopByteShift(shift));
    PutBiases<Channels>(bias, behind + 4);
#endif
}

// The sums of a tile, bias included. Register plan of 64-bit ARM for 4 channels: 8 of 32-bit sums
// (and for kEnd as many of 16-bit ones), 4 of the values of two steps, 2 of a channel's weights, 2
// of 16-bit sums. Beside the loads, two steps, 256 products, take 48 instructions with kStep, 40
// with kPair and 32 with kEnd, which 39, 31 and 30 % of the networks' products do. On 32-bit ARM
// groups go through neon_tiles_32.h, and what comes here are leftover channels.
template <size_t Channels, Widen kWiden>
inline void SumTile(const int8_t* values, const GroupWeights& group, size_t steps,
                    int32x4_t sums[Channels][2]) {
    const int8_t* weights = group.bytes;
    int16x8_t parts[Channels][2];
#pragma GCC unroll 4
    for (size_t c = 0; c < Channels; ++c) {
        sums[c][0] = vld1q_s32(group.biases[c]);
        sums[c][1] = vld1q_s32(group.biases[c] + 4);
        parts[c][0] = parts[c][1] = vdupq_n_s16(0);
    }
    for (; steps >= 2; steps -= 2) {
        const Bytes32 one = Load32(values);
        const Bytes32 two = Load32(values);
#pragma GCC unroll 4
        for (size_t c = 0; c < Channels; ++c) {
            const Bytes32 w = Load32(weights);
            if constexpr (kWiden == Widen::kEnd) {
                parts[c][0] = MultiplyAdd<0, 0>(parts[c][0], one, w);
                parts[c][1] = MultiplyAdd<1, 0>(parts[c][1], one, w);
                parts[c][0] = MultiplyAdd<0, 1>(parts[c][0], two, w);
                parts[c][1] = MultiplyAdd<1, 1>(parts[c][1], two, w);
            } else if constexpr (kWiden == Widen::kPair) {
                const int16x8_t low = Multiply<0, 0>(one, w);
                const int16x8_t high = Multiply<1, 0>(one, w);
                sums[c][0] = vpadalq_s16(sums[c][0], MultiplyAdd<0, 1>(low, two, w));
                sums[c][1] = vpadalq_s16(sums[c][1], MultiplyAdd<1, 1>(high, two, w));
            } else {
                sums[c][0] = vpadalq_s16(sums[c][0], Multiply<0, 0>(one, w));
                sums[c][1] = vpadalq_s16(sums[c][1], Multiply<1, 0>(one, w));
                sums[c][0] = vpadalq_s16(sums[c][0], Multiply<0, 1>(two, w));
                sums[c][1] = vpadalq_s16(sums[c][1], Multiply<1, 1>(two, w));
            }
        }
    }
    if (steps != 0) {
        const Bytes32 one = Load32(values);
#pragma GCC unroll 4
        for (size_t c = 0; c < Channels; ++c) {
            const Bytes32 w = Load32(weights); // of which the first half is this step's
            if constexpr (kWiden == Widen::kEnd) {
                parts[c][0] = MultiplyAdd<0, 0>(parts[c][0], one, w);
                parts[c][1] = MultiplyAdd<1, 0>(parts[c][1], one, w);
            } else {
                sums[c][0] = vpadalq_s16(sums[c][0], Multiply<0, 0>(one, w));
                sums[c][1] = vpadalq_s16(sums[c][1], Multiply<1, 0>(one, w));
            }
        }
    }
    if constexpr (kWiden == Widen::kEnd) {
#pragma GCC unroll 4
        for (size_t c = 0; c < Channels; ++c) {
            sums[c][0] = vpadalq_s16(sums[c][0], parts[c][0]);
            sums[c][1] = vpadalq_s16(sums[c][1], parts[c][1]);
        }
    }
}

// Tiles one after the other, their values and outputs.
struct Tiles {
    const int8_t* values;
    size_t steps;
    size_t count; // at least one
    int8_t* dst;
    size_t pitch; // from plane to plane
};

template <size_t Channels, Widen kWiden>
void RunTiles(const GroupWeights& group, Tiles t, uint32_t shift) {
#if !defined(__aarch64__)
    if (Channels == kGroup && t.steps >= 2) {
        const void* const from =
            kWiden == Widen::kEnd ? static_cast<const void*>(group.bytes) : group.biases;
        return MultiplyTiles32<kWiden>({t.values, from, t.steps, t.count, t.dst, t.pitch});
    }
#endif
    const int32x4_t shiftCount = TopByteShift(shift);
    for (; t.count > 0; --t.count, t.dst += kTilePixels) {
        int32x4_t sums[Channels][2];
        SumTile<Channels, kWiden>(t.values, group, t.steps, sums);
        t.values += t.steps * kStepBytes;
#pragma GCC unroll 4
        for (size_t c = 0; c < Channels; ++c) {
            vst1_s8(t.dst + c * t.pitch, Requantise(sums[c][0], sums[c][1], shiftCount));
        }
    }
}

// Packed pixels: a tile after the other, the last one perhaps not full.
struct Block {
    const int8_t* values;
    size_t steps;
    size_t pixels;
};

// The tiles of some planes: whole ones to the planes themselves, a last one that is not full by way
// of a tile's own room.
template <size_t Channels, Widen kWiden>
void MultiplyTiles(const MatrixProduct& p, const Block& block, const GroupWeights& group,
                   int8_t* dst) {
    const size_t whole = block.pixels / kTilePixels;
    if (whole > 0) {
        RunTiles<Channels, kWiden>(group, {block.values, block.steps, whole, dst, p.planePitch},
                                   p.shift);
    }
    const size_t left = block.pixels % kTilePixels;
    if (left > 0) {
        const int8_t* values = block.values + whole * block.steps * kStepBytes;
        int8_t last[Channels][kTilePixels];
        RunTiles<Channels, kWiden>(group, {values, block.steps, 1, last[0], kTilePixels}, p.shift);
        for (size_t c = 0; c < Channels; ++c) {
            std::memcpy(dst + whole * kTilePixels + c * p.planePitch, last[c], left);
        }
    }
}

// `Channels` planes, from `channel` on, of the block that starts at `pixel`.
template <size_t Channels>
void MultiplyGroup(const MatrixProduct& p, const Block& block, size_t pixel, size_t channel,
                   const int8_t* weights) {
    GroupWeights group;
    const int32_t* bias = p.bias + channel;
    LoadGroup<Channels>(weights, p.inner, bias, p.shift, group);
    int8_t* dst = p.dst + channel * p.planePitch + pixel;
    switch (group.widen) {
        case Widen::kEnd:
            return MultiplyTiles<Channels, Widen::kEnd>(p, block, group, dst);
        case Widen::kPair:
            return MultiplyTiles<Channels, Widen::kPair>(p, block, group, dst);
        case Widen::kStep:
            return MultiplyTiles<Channels, Widen::kStep>(p, block, group, dst);
        case Widen::kNever:
            break;
    }
    MatrixProduct rare = p;
    rare.rows += pixel;
    rare.pixels = block.pixels;
    rare.weights = weights;
    rare.channels = Channels;
    rare.bias = bias;
    rare.dst = dst;
    plain::Multiply(rare);
}

inline void PackStep(const int8x8_t row[kStepRows], int8_t* to) {
    const int8x8x2_t rows01 = vzip_s8(row[0], row[1]);
    const int8x8x2_t rows23 = vzip_s8(row[2], row[3]);
    StoreStep(vcombine_s8(rows01.val[0], rows01.val[1]), vcombine_s8(rows23.val[0], rows23.val[1]),
              to);
}

// The first `count` pixels of four rows, of which the first `rows` exist; zeros for the others.
inline void LoadRest(const int8_t* at, size_t pitch, size_t rows, size_t count,
                     int8x8_t row[kStepRows]) {
    for (size_t i = 0; i < kStepRows; ++i) {
        int8_t pixels[kTilePixels] = {};
        if (i < rows) {
            std::memcpy(pixels, at + i * pitch, count);
        }
        row[i] = vld1_s8(pixels);
    }
}

// The steps of one tile of `count` pixels, perhaps fewer than a tile has.
void PackTile(const MatrixProduct& p, size_t pixel, size_t count, int8_t* to) {
    const int8_t* at = p.rows + pixel;
    for (size_t k = 0; k < p.inner; k += kStepRows, to += kStepBytes) {
        int8x8_t row[kStepRows];
        if (count == kTilePixels && k + kStepRows <= p.inner) {
#pragma GCC unroll 4
            for (size_t i = 0; i < kStepRows; ++i, at += p.rowPitch) {
                row[i] = vld1_s8(at);
            }
        } else {
            LoadRest(at, p.rowPitch, p.inner - k, count, row);
            at += kStepRows * p.rowPitch;
        }
        PackStep(row, to);
    }
}

// The same for two full tiles, except for a last step of fewer than four rows.
void PackTwoTiles(const MatrixProduct& p, size_t pixel, size_t steps, int8_t* to) {
    const int8_t* at = p.rows + pixel;
    int8_t* second = to + steps * kStepBytes;
#if !defined(__aarch64__)
    if (p.inner >= kStepRows) {
        PackTiles32(at, p.rowPitch, p.inner / kStepRows, to, second);
    }
#else
    for (size_t k = 0; k + kStepRows <= p.inner; k += kStepRows) {
        int8x16_t row[kStepRows];
#pragma GCC unroll 4
        for (size_t i = 0; i < kStepRows; ++i, at += p.rowPitch) {
            row[i] = vld1q_s8(at);
        }
        const int8x16x2_t rows01 = vzipq_s8(row[0], row[1]);
        const int8x16x2_t rows23 = vzipq_s8(row[2], row[3]);
        StoreStep(rows01.val[0], rows23.val[0], to);
        StoreStep(rows01.val[1], rows23.val[1], second);
    }
#endif
    const size_t rest = p.inner % kStepRows;
    for (size_t tile = 0; tile < 2 && rest != 0; ++tile) {
        int8x8_t row[kStepRows];
        LoadRest(at + tile * kTilePixels, p.rowPitch, rest, kTilePixels, row);
        PackStep(row, tile == 0 ? to : second);
    }
}

void PackBlock(const MatrixProduct& p, size_t pixel, const Block& block, int8_t* to) {
    const size_t tileBytes = block.steps * kStepBytes;
    size_t done = 0;
    for (; done + 2 * kTilePixels <= block.pixels; done += 2 * kTilePixels, to += 2 * tileBytes) {
        PackTwoTiles(p, pixel + done, block.steps, to);
    }
    for (; done < block.pixels; done += kTilePixels, to += tileBytes) {
        PackTile(p, pixel + done, std::min(kTilePixels, block.pixels - done), to);
    }
}

void MultiplyBlock(const MatrixProduct& p, const Block& block, size_t pixel) {
    const int8_t* weights = p.weights;
    size_t channel = 0;
    for (; channel + kGroup <= p.channels; channel += kGroup, weights += p.groupBytes) {
        MultiplyGroup<kGroup>(p, block, pixel, channel, weights);
    }
    for (; channel < p.channels; ++channel, weights += p.groupBytes) {
        MultiplyGroup<1>(p, block, pixel, channel, weights);
    }
}

// ---- Depthwise ---------------------------------------------------------------------------------
//
// Strips as neon_strips.h walks them, with sums of 16 bits: of three rows' products where the
// weights allow it, of one row's otherwise.

#if defined(__aarch64__)
using Weight = int8x16_t; // one weight in all lanes
inline Weight LoadWeight(const int8_t* weight) { return vld1q_dup_s8(weight); }
inline int8x8_t LowHalf(Weight weight) { return vget_low_s8(weight); }
#else
using Weight = int8x8_t;
inline Weight LoadWeight(const int8_t* weight) { return vld1_dup_s8(weight); }
inline int8x8_t LowHalf(Weight weight) { return weight; }
#endif

constexpr uint8_t kColumnNumbers[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

// The columns of a strip, and their neighbours.
template <class Columns>
struct InputRow {
    typename Columns::Vector left, centre, right;
};

// Strips of eight columns.
struct Columns8 {
    using Vector = int8x8_t;
    static constexpr size_t kCount = 8;
    static constexpr size_t kHalves = 1; // vectors of 16-bit sums
    static Vector Load(const int8_t* from) { return vld1_s8(from); }
    static void Store(int8_t* to, Vector v) { vst1_s8(to, v); }
    static Vector Repeat(int8_t value) { return vdup_n_s8(value); }
    static Vector And(Vector a, Vector b) { return vand_s8(a, b); }
    // All bits set in the first `count` columns.
    static Vector Before(size_t count) {
        const uint8x8_t end = vdup_n_u8(static_cast<uint8_t>(std::min(count, kCount)));
        return vreinterpret_s8_u8(vclt_u8(vld1_u8(kColumnNumbers), end));
    }
    static Vector Max(Vector a, Vector b) { return vmax_s8(a, b); }
    static Vector Narrow(const int16x8_t sums[kHalves]) { return vqmovn_s16(sums[0]); }
    // The columns to the left and to the right, zeros outside.
    static Vector Left(Vector v) {
        return vreinterpret_s8_u64(vshl_n_u64(vreinterpret_u64_s8(v), 8));
    }
    static Vector Right(Vector v) {
        return vreinterpret_s8_u64(vshr_n_u64(vreinterpret_u64_s8(v), 8));
    }
    // A row inside a plane, from 7 columns before the strip to the one after it.
    static constexpr size_t kLoadedBefore = 7;
    static InputRow<Columns8> LoadInside(const int8_t* from) {
        const int8x16_t columns = vld1q_s8(from);
        const int8x8_t low = vget_low_s8(columns);
        const int8x8_t high = vget_high_s8(columns);
        return {vext_s8(low, high, 6), vext_s8(low, high, 7), high};
    }

    template <size_t Half>
    static int16x8_t Multiply(Vector v, Weight w) {
        return vmull_s8(v, LowHalf(w));
    }
    template <size_t Half>
    static int16x8_t MultiplyAdd(int16x8_t sum, Vector v, Weight w) {
        return vmlal_s8(sum, v, LowHalf(w));
    }
};

#if defined(__aarch64__)

// Strips of sixteen, for which 32-bit ARM has too few registers.
struct Columns16 {
    using Vector = int8x16_t;
    static constexpr size_t kCount = 16;
    static constexpr size_t kHalves = 2;
    static Vector Load(const int8_t* from) { return vld1q_s8(from); }
    static void Store(int8_t* to, Vector v) { vst1q_s8(to, v); }
    static Vector Repeat(int8_t value) { return vdupq_n_s8(value); }
    static Vector And(Vector a, Vector b) { return vandq_s8(a, b); }
    static Vector Before(size_t count) {
        const uint8x16_t end = vdupq_n_u8(static_cast<uint8_t>(std::min(count, kCount)));
        return vreinterpretq_s8_u8(vcltq_u8(vld1q_u8(kColumnNumbers), end));
    }
    static Vector Max(Vector a, Vector b) { return vmaxq_s8(a, b); }
    static Vector Narrow(const int16x8_t sums[kHalves]) { return NarrowPair(sums[0], sums[1]); }
    static Vector Left(Vector v) { return vextq_s8(vdupq_n_s8(0), v, 15); }
    static Vector Right(Vector v) { return vextq_s8(v, vdupq_n_s8(0), 1); }
    static constexpr size_t kLoadedBefore = 1;
    static InputRow<Columns16> LoadInside(const int8_t* from) {
        return {vld1q_s8(from), vld1q_s8(from + 1), vld1q_s8(from + 2)};
    }

    template <size_t Half>
    static int16x8_t Multiply(Vector v, Weight w) {
        return Half == 0 ? vmull_s8(vget_low_s8(v), vget_low_s8(w)) : vmull_high_s8(v, w);
    }
    template <size_t Half>
    static int16x8_t MultiplyAdd(int16x8_t sum, Vector v, Weight w) {
        return Half == 0 ? vmlal_s8(sum, vget_low_s8(v), vget_low_s8(w)) : vmlal_high_s8(sum, v, w);
    }
};

using WideColumns = Columns16;

#else

using WideColumns = Columns8;

#endif

template <class Columns, size_t Half>
inline int16x8_t MultiplyRow(const InputRow<Columns>& row, const Weight weights[3]) {
    int16x8_t sum = Columns::template Multiply<Half>(row.left, weights[0]);
    sum = Columns::template MultiplyAdd<Half>(sum, row.centre, weights[1]);
    return Columns::template MultiplyAdd<Half>(sum, row.right, weights[2]);
}
template <class Columns, size_t Half>
inline int16x8_t MultiplyAddRow(int16x8_t sum, const InputRow<Columns>& row,
                                const Weight weights[3]) {
    sum = Columns::template MultiplyAdd<Half>(sum, row.left, weights[0]);
    sum = Columns::template MultiplyAdd<Half>(sum, row.centre, weights[1]);
    return Columns::template MultiplyAdd<Half>(sum, row.right, weights[2]);
}

// One channel's parameters.
struct Filter {
    const int8_t* weights;
    int32_t bias;
    uint32_t shift;
    int8_t lowest;
};

// Totals of |w|: the outer rows' and the middle row's.
struct FilterTotals {
    uint64_t outer, middle;
};
inline FilterTotals TotalsOf(const int8_t* weights) {
    const uint8x8_t first8 = vreinterpret_u8_s8(vabs_s8(vld1_s8(weights)));
    const uint8x8_t middle = vcreate_u8(0x0000FFFFFF000000u);
    const uint8x16_t parts = vcombine_u8(vbic_u8(first8, middle), vand_u8(first8, middle));
    const uint64x2_t totals = vpaddlq_u32(vpaddlq_u16(vpaddlq_u8(parts)));
    return {vgetq_lane_u64(totals, 0) + static_cast<uint64_t>(std::abs(weights[8])),
            vgetq_lane_u64(totals, 1)};
}

// Filters whose sum is made of two of 16 bits, one of the outer rows and one of the middle row, the
// bias's lowest bit in the former. Half their sum, rounded down, is one instruction; half the rest
// of the bias is added to it, and a shift by one less than asked for is all that is left to do.
// Where the last addition saturates, so does the output, since no more than eight further bits are
// shifted out. Register plan of 32-bit ARM: 9 half vectors of weights, 3 of a row, 5 vectors of
// sums, 4 of constants. Six rows of 8 columns take 140 to 146 instructions there, widened 209 to
// 217.
struct HalvedSums {
    static bool Take(const Filter& f) {
        const FilterTotals totals = TotalsOf(f.weights);
        return totals.outer <= kMostWeight && totals.middle <= kMostWeight && f.shift >= 1 &&
               f.shift <= 9 && f.bias >= 2 * INT16_MIN && f.bias <= 2 * INT16_MAX + 1;
    }

    struct Constants {
        int16x8_t lowestBit, halfBias, shiftCount;

        explicit Constants(const Filter& f)
            : lowestBit(vdupq_n_s16(static_cast<int16_t>(f.bias & 1))),
              halfBias(vdupq_n_s16(static_cast<int16_t>(f.bias >> 1))),
              shiftCount(vdupq_n_s16(static_cast<int16_t>(1 - static_cast<int32_t>(f.shift)))) {}
    };

    int16x8_t outer, middle;

    template <class Columns, size_t Half>
    void AddTop(const InputRow<Columns>& row, const Weight weights[3], const Constants& constants) {
        outer = MultiplyAddRow<Columns, Half>(constants.lowestBit, row, weights);
    }
    template <class Columns, size_t Half>
    void AddMiddle(const InputRow<Columns>& row, const Weight weights[3]) {
        middle = MultiplyRow<Columns, Half>(row, weights);
    }
    template <class Columns, size_t Half>
    void AddBottom(const InputRow<Columns>& row, const Weight weights[3]) {
        outer = MultiplyAddRow<Columns, Half>(outer, row, weights);
    }
    int16x8_t Shifted(const Constants& constants) const {
        const int16x8_t half = vqaddq_s16(vhaddq_s16(outer, middle), constants.halfBias);
        return vshlq_s16(half, constants.shiftCount);
    }
};

// Any other filter, bias and shift: each row's sums are widened. The outer two products of a row
// share a 16-bit sum, which only two weights of -128 could overflow.
struct WidenedSums {
    static bool Take(const Filter& f) {
        const int8_t* w = f.weights;
        return w[0] + w[2] != -256 && w[3] + w[5] != -256 && w[6] + w[8] != -256;
    }

    struct Constants {
        int32x4_t bias, shiftCount;

        explicit Constants(const Filter& f)
            : bias(vdupq_n_s32(f.bias)), shiftCount(RightShiftCount(f.shift)) {}
    };

    int32x4_t low, high;

    void Add(int16x8_t products) {
        low = vaddw_s16(low, vget_low_s16(products));
        high = vaddw_s16(high, vget_high_s16(products));
    }
    template <class Columns, size_t Half>
    void AddTop(const InputRow<Columns>& row, const Weight weights[3], const Constants& constants) {
        low = high = constants.bias;
        AddMiddle<Columns, Half>(row, weights);
    }
    template <class Columns, size_t Half>
    void AddMiddle(const InputRow<Columns>& row, const Weight weights[3]) {
        const int16x8_t left = Columns::template Multiply<Half>(row.left, weights[0]);
        Add(Columns::template MultiplyAdd<Half>(left, row.right, weights[2]));
        Add(Columns::template Multiply<Half>(row.centre, weights[1]));
    }
    template <class Columns, size_t Half>
    void AddBottom(const InputRow<Columns>& row, const Weight weights[3]) {
        AddMiddle<Columns, Half>(row, weights);
    }
    int16x8_t Shifted(const Constants& constants) const {
        return NarrowPair(vshlq_s32(low, constants.shiftCount),
                          vshlq_s32(high, constants.shiftCount));
    }
};

// One channel's strips: the filter, and bytes that are set where a strip wider than the plane has
// the plane's columns.
template <class Columns, class ColumnSums>
class FilterStrip {
  public:
    using Vector = typename Columns::Vector;
    using Row = InputRow<Columns>;
    struct Sums {
        ColumnSums half[Columns::kHalves];
    };
    static constexpr size_t kColumns = Columns::kCount;

    FilterStrip(const Filter& f, size_t width)
        : constants_(f), lowest_(Columns::Repeat(f.lowest)), inside_(Columns::Before(width)) {
#pragma GCC unroll 9
        for (size_t i = 0; i < 9; ++i) {
            weights_[i] = LoadWeight(f.weights + i);
        }
    }

    template <Sides kSides>
    static constexpr size_t LoadedBefore() {
        return kSides == Sides::kNone ? Columns::kLoadedBefore : kSides == Sides::kRight ? 1 : 0;
    }

    template <Sides kSides>
    Row Load(const int8_t* from) const {
        if constexpr (kSides == Sides::kNone) {
            return Columns::LoadInside(from);
        } else if constexpr (kSides == Sides::kLeft) {
            const auto centre = Columns::Load(from);
            return {Columns::Left(centre), centre, Columns::Load(from + 1)};
        } else if constexpr (kSides == Sides::kRight) {
            const auto centre = Columns::Load(from + 1);
            return {Columns::Load(from), centre, Columns::Right(centre)};
        } else {
            const auto centre = Columns::And(Columns::Load(from), inside_);
            return {Columns::Left(centre), centre, Columns::Right(centre)};
        }
    }

    void AddTop(const Row& row, Sums& sums) const {
        sums.half[0].template AddTop<Columns, 0>(row, weights_, constants_);
        if constexpr (Columns::kHalves == 2) {
            sums.half[1].template AddTop<Columns, 1>(row, weights_, constants_);
        }
    }
    void AddMiddle(const Row& row, Sums& sums) const {
        sums.half[0].template AddMiddle<Columns, 0>(row, weights_ + 3);
        if constexpr (Columns::kHalves == 2) {
            sums.half[1].template AddMiddle<Columns, 1>(row, weights_ + 3);
        }
    }
    void AddBottom(const Row& row, Sums& sums) const {
        sums.half[0].template AddBottom<Columns, 0>(row, weights_ + 6);
        if constexpr (Columns::kHalves == 2) {
            sums.half[1].template AddBottom<Columns, 1>(row, weights_ + 6);
        }
    }

    Vector Output(const Sums& sums) const {
        int16x8_t shifted[Columns::kHalves];
#pragma GCC unroll 2
        for (size_t half = 0; half < Columns::kHalves; ++half) {
            shifted[half] = sums.half[half].Shifted(constants_);
        }
        return Columns::Max(Columns::Narrow(shifted), lowest_);
    }
    static void Store(int8_t* to, Vector output) { Columns::Store(to, output); }

  private:
    Weight weights_[9];
    typename ColumnSums::Constants constants_;
    Vector lowest_, inside_;
};

// ---- Planes and rows ---------------------------------------------------------------------------
//
// What is left over at the end of a row is covered by a last vector that overlaps the one before
// it.

struct Bytes8 {
    using Vector = int8x8_t;
    static constexpr size_t kCount = 8;
    static Vector Load(const int8_t* from) { return vld1_s8(from); }
    static void Store(int8_t* to, Vector v) { vst1_s8(to, v); }
    static Vector Max(Vector a, Vector b) { return vmax_s8(a, b); }
};
struct Bytes16 {
    using Vector = int8x16_t;
    static constexpr size_t kCount = 16;
    static Vector Load(const int8_t* from) { return vld1q_s8(from); }
    static void Store(int8_t* to, Vector v) { vst1q_s8(to, v); }
    static Vector Max(Vector a, Vector b) { return vmaxq_s8(a, b); }
};

// `Vectors` vectors of columns of a row.
template <class Bytes, size_t Vectors>
struct RowOfMaxima {
    typename Bytes::Vector of[Vectors];
};

// Replaces columns by the larger of themselves and their right neighbours: those at `at` and, with
// two vectors, those `apart` columns to the right of it, which may overlap the first: both are
// loaded before either is replaced.
template <class Bytes, size_t Vectors>
inline RowOfMaxima<Bytes, Vectors> MaxOfNeighbours(int8_t* at, size_t apart) {
    RowOfMaxima<Bytes, Vectors> maxima;
#pragma GCC unroll 2
    for (size_t v = 0; v < Vectors; ++v) {
        const int8_t* from = at + v * apart;
        maxima.of[v] = Bytes::Max(Bytes::Load(from), Bytes::Load(from + 1));
    }
#pragma GCC unroll 2
    for (size_t v = 0; v < Vectors; ++v) {
        Bytes::Store(at + v * apart, maxima.of[v]);
    }
    return maxima;
}

template <class Bytes, size_t Vectors>
inline void StoreMaxOfRows(const RowOfMaxima<Bytes, Vectors>& a,
                           const RowOfMaxima<Bytes, Vectors>& b, int8_t* dst, size_t apart) {
#pragma GCC unroll 2
    for (size_t v = 0; v < Vectors; ++v) {
        Bytes::Store(dst + v * apart, Bytes::Max(a.of[v], b.of[v]));
    }
}

// Down the columns of a plane, two rows at a time, so that no row's maxima are copied: a fifth
// fewer instructions than one row at a time.
template <class Bytes, size_t Vectors>
void MaxPoolColumns(int8_t* src, size_t apart, size_t width, size_t height, int8_t* dst) {
    auto above = MaxOfNeighbours<Bytes, Vectors>(src, apart);
    size_t left = height - 1;
    for (; left >= 2; left -= 2) {
        src += width;
        const auto below = MaxOfNeighbours<Bytes, Vectors>(src, apart);
        StoreMaxOfRows(above, below, dst, apart);
        dst += width - 1;
        src += width;
        above = MaxOfNeighbours<Bytes, Vectors>(src, apart);
        StoreMaxOfRows(below, above, dst, apart);
        dst += width - 1;
    }
    if (left > 0) {
        const auto below = MaxOfNeighbours<Bytes, Vectors>(src + width, apart);
        StoreMaxOfRows(above, below, dst, apart);
    }
}

template <class Bytes>
void MaxPoolPlane(int8_t* src, size_t width, size_t height, int8_t* dst) {
    const size_t columns = width - 1;
    size_t x = 0;
    for (; x + 2 * Bytes::kCount < columns; x += Bytes::kCount) {
        MaxPoolColumns<Bytes, 1>(src + x, 0, width, height, dst + x);
    }
    MaxPoolColumns<Bytes, 2>(src + x, columns - Bytes::kCount - x, width, height, dst + x);
}

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

namespace neon {

void Multiply(const MatrixProduct& p) {
    const size_t steps = (p.inner + kStepRows - 1) / kStepRows;
    if (steps == 0 || steps > kMaxSteps || p.scratchBytes < steps * kStepBytes) {
        plain::Multiply(p);
        return;
    }
    // As few blocks as there is room for, of much the same size.
    const size_t mostTiles = std::min(p.scratchBytes, kBlockBytes) / (steps * kStepBytes);
    const size_t tiles = (p.pixels + kTilePixels - 1) / kTilePixels;
    const size_t blocks = (tiles + mostTiles - 1) / mostTiles;
    const size_t blockPixels = blocks == 0 ? 0 : (tiles + blocks - 1) / blocks * kTilePixels;
    for (size_t pixel = 0; pixel < p.pixels; pixel += blockPixels) {
        const Block block{p.scratch, steps, std::min(blockPixels, p.pixels - pixel)};
        PackBlock(p, pixel, block, p.scratch);
        MultiplyBlock(p, block, pixel);
    }
}

void Depthwise(const DepthwisePlanes& p) {
    if (p.width < kMinStripPlaneWidth || p.height < kStripRows) {
        plain::Depthwise(p);
        return;
    }
    const size_t plane = p.width * p.height;
    StripPlane at{p.src, nullptr, p.dst, p.width, p.height};
    for (size_t c = 0; c < p.channels; ++c, at.src += plane, at.dst += plane) {
        const Filter filter{p.weights + 9 * c, p.bias[c], p.shift, p.lowest};
        if (HalvedSums::Take(filter)) {
            ConvolvePlane<FilterStrip<WideColumns, HalvedSums>, FilterStrip<Columns8, HalvedSums>>(
                at, filter);
        } else if (WidenedSums::Take(filter)) {
            ConvolvePlane<FilterStrip<WideColumns, WidenedSums>,
                          FilterStrip<Columns8, WidenedSums>>(at, filter);
        } else {
            plain::Depthwise({at.src, p.width, p.height, 1, filter.weights, &filter.bias, p.shift,
                              p.lowest, at.dst});
        }
    }
}

void MaxPoolStride1(int8_t* src, size_t width, size_t height, int8_t* dst) {
    if (height == 0) {
        return;
    }
    if (width > Bytes16::kCount) {
        MaxPoolPlane<Bytes16>(src, width, height, dst);
    } else if (width > Bytes8::kCount) {
        MaxPoolPlane<Bytes8>(src, width, height, dst);
    } else {
        plain::MaxPoolStride1(src, width, height, dst);
    }
}

void MaxPoolRows(const int8_t* upper, const int8_t* lower, size_t dstWidth, int8_t* dst) {
    if (dstWidth < 8) {
        plain::MaxPoolRows(upper, lower, dstWidth, dst);
        return;
    }
    const auto pool = [upper, lower, dst](size_t x) {
        const int8x16_t maxima = vmaxq_s8(vld1q_s8(upper + 2 * x), vld1q_s8(lower + 2 * x));
        vst1_s8(dst + x, vpmax_s8(vget_low_s8(maxima), vget_high_s8(maxima)));
    };
    const size_t last = dstWidth - 8;
    for (size_t x = 0; x < last; x += 8) {
        pool(x);
    }
    pool(last);
}

// The last value sampled may be the last of the source, so the last vector starts one value before
// its own and takes every other.
void SampleRow(const int8_t* src, size_t dstWidth, int8_t* dst) {
    size_t x = 0;
    if (dstWidth > 16) {
        for (; x + 16 < dstWidth; x += 16) {
            vst1q_s8(dst + x, vld2q_s8(src + 2 * x).val[0]);
        }
        x = dstWidth - 16;
        vst1q_s8(dst + x, vld2q_s8(src + 2 * x - 1).val[1]);
    } else if (dstWidth > 8) {
        vst1_s8(dst, vld2_s8(src).val[0]);
        x = dstWidth - 8;
        vst1_s8(dst + x, vld2_s8(src + 2 * x - 1).val[1]);
    } else {
        plain::SampleRow(src, dstWidth, dst);
    }
}

void Rectify(const int8_t* src, int8_t* dst, size_t count) {
    for (; count >= 32; count -= 32) {
        Store32(Max(Load32(src), 0), dst);
    }
    plain::Rectify(src, dst, count);
}

void Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count, const AddShifts& s) {
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

} // namespace neon

const Routines kNeonRoutines{"neon",
                             neon::Multiply,
                             neon::Depthwise,
                             plain::Dot,
                             MaxPoolStride1ByPlanes<neon::MaxPoolStride1>,
                             MaxPoolStride2ByRows<neon::MaxPoolRows>,
                             SampleByRows<neon::SampleRow>,
                             neon::Rectify,
                             plain::FlipSign,
                             neon::Add};

} // namespace orvo
