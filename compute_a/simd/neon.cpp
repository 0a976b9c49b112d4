// SPDX-License-Identifier: MIT
//
// NEON, the same source for 32-bit ARM and for 64-bit ARM without the dot-product instruction.
//
// vmull.s8 and vmlal.s8 multiply eight bytes by eight into 16-bit sums, which is where the work is
// cheap: how many products such a sum may take before it is widened is decided from the weights,
// which are known. With a total of |w| up to 255 a sum of products with any int8 values is at most
// 255 * 128 = 32640, so nothing is lost. Two products of -128 by -128 are beyond that.
#include "compute_a/simd/neon.h"

#include <cstring>

#include "compute_a/simd/neon_lanes.h"
#include "compute_a/simd/plain.h"

namespace orvo {
namespace {

constexpr uint32_t kMostWeight = 255; // the largest total of |w| that a 16-bit sum may take

// ---- Matrix product ----------------------------------------------------------------------------
//
// A tile is 8 pixels of 4 planes. Four rows make a step: the pixels' values are interleaved row by row
// in pairs, so that the 16-bit sum of a lane holds one row of each pair, and vpadal adds the two while
// it widens. A step's 32 bytes are
//     pixels 0 to 3: rows 0 and 1, rows 2 and 3; pixels 4 to 7: rows 0 and 1, rows 2 and 3
// and meet 16 bytes of weights of one channel: rows 0 and 1 four times, rows 2 and 3 four times.

constexpr size_t kTilePixels = 8;
constexpr size_t kStepRows = 4;
constexpr size_t kStepBytes = kStepRows * kTilePixels;
constexpr size_t kGroup = 4;
constexpr size_t kMaxSteps = 64;          // of which the weights, four times as large, fit the stack
constexpr size_t kBlockBytes = 16 * 1024; // pixels packed at a time: they stay in the first cache

// When the 16-bit sums of a group are widened.
enum class Widen {
    kStep,  // after each step of four rows
    kPair,  // after two steps
    kEnd,   // after the last: they take all rows
    kNever, // they cannot take even one step
};

// One group's weights as the tiles read them: two steps of a channel side by side.
struct GroupWeights {
    alignas(16) int8_t bytes[kMaxSteps * kGroup * 16];
    Widen widen;
};

inline bool AllWithin(uint16x8_t weightTotals) {
    const uint8x8_t above = vshrn_n_u16(weightTotals, 8);
    return vget_lane_u64(vreinterpret_u64_u8(above), 0) == 0;
}

constexpr size_t kPairRows = 2 * kStepRows;

// The weights of two steps, interleaved by channel as groups are stored; zeros after the last row. A
// leftover channel stands first in an otherwise empty group.
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

// Eight rows of a channel, each pair of rows four times.
inline void StorePairs(int8x8_t rows, int8_t* to) {
    const int16x4_t pairs = vreinterpret_s16_s8(rows);
    const int16x4x4_t repeated{{vdup_lane_s16(pairs, 0), vdup_lane_s16(pairs, 1),
                                vdup_lane_s16(pairs, 2), vdup_lane_s16(pairs, 3)}};
    Store32(repeated, to);
}

// Totals of |w| in the 16-bit sums that a step adds to: rows 0 and 2 of each channel, rows 1 and 3 of
// each channel. The magnitude of -128 is right as an unsigned byte.
inline uint16x8_t StepTotals(int8x16_t weights) {
    const uint8x16_t magnitudes = vreinterpretq_u8_s8(vabsq_s8(weights));
    return vaddl_u8(vget_low_u8(magnitudes), vget_high_u8(magnitudes));
}

template <size_t Channels>
void LoadGroup(const int8_t* weights, size_t inner, GroupWeights& group) {
    uint16x8_t stepMost = vdupq_n_u16(0);
    uint16x8_t pairMost = stepMost;
    uint16x8_t total = stepMost;
    int8_t* to = group.bytes;
    for (size_t k = 0; k < inner; k += kPairRows, to += 32 * Channels) {
        int8_t copy[32];
        const int8_t* pair = PairWeights<Channels>(weights + Channels * k, inner - k, copy);
        const int8x8x4_t rows = vld4_s8(pair);
#pragma GCC unroll 4
        for (size_t c = 0; c < Channels; ++c) {
            StorePairs(rows.val[c], to + 32 * c);
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
}

// The sums of a tile, bias included. Register plan of 32-bit ARM for 4 channels: 8 of 32-bit sums (or,
// for kEnd, of 16-bit ones), 4 of the values of two steps, 2 of a channel's weights, 2 of 16-bit sums.
template <size_t Channels, Widen kWiden>
inline void SumTile(const int8_t* values, const int8_t* weights, size_t steps, const int32_t* bias,
                    int32x4_t sums[Channels][2]) {
    int16x8_t parts[Channels][2];
#pragma GCC unroll 4
    for (size_t c = 0; c < Channels; ++c) {
        sums[c][0] = sums[c][1] = vdupq_n_s32(bias[c]);
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

// Packed pixels: a tile after the other, the last one perhaps not full.
struct Block {
    const int8_t* values;
    size_t steps;
    size_t pixels;
};

template <size_t Channels, Widen kWiden>
void MultiplyTiles(const MatrixProduct& p, const Block& block, const GroupWeights& group,
                   const int32_t* bias, int8_t* dst) {
    const int32x4_t shiftCount = RightShiftCount(p.shift);
    const size_t pitch = p.planePitch;
    const size_t steps = block.steps;
    const int8_t* values = block.values;
    size_t left = block.pixels;
    for (; left >= kTilePixels; left -= kTilePixels, dst += kTilePixels) {
        int32x4_t sums[Channels][2];
        SumTile<Channels, kWiden>(values, group.bytes, steps, bias, sums);
#pragma GCC unroll 4
        for (size_t c = 0; c < Channels; ++c) {
            vst1_s8(dst + c * pitch, Requantise(sums[c][0], sums[c][1], shiftCount));
        }
        values += steps * kStepBytes;
    }
    if (left > 0) {
        int32x4_t sums[Channels][2];
        SumTile<Channels, kWiden>(values, group.bytes, steps, bias, sums);
        for (size_t c = 0; c < Channels; ++c) {
            int8_t tile[kTilePixels];
            vst1_s8(tile, Requantise(sums[c][0], sums[c][1], shiftCount));
            std::memcpy(dst + c * pitch, tile, left);
        }
    }
}

// `Channels` planes, from `channel` on, of the block that starts at `pixel`.
template <size_t Channels>
void MultiplyGroup(const MatrixProduct& p, const Block& block, size_t pixel, size_t channel,
                   const int8_t* weights) {
    GroupWeights group;
    LoadGroup<Channels>(weights, p.inner, group);
    const int32_t* bias = p.bias + channel;
    int8_t* dst = p.dst + channel * p.planePitch + pixel;
    switch (group.widen) {
        case Widen::kEnd:
            return MultiplyTiles<Channels, Widen::kEnd>(p, block, group, bias, dst);
        case Widen::kPair:
            return MultiplyTiles<Channels, Widen::kPair>(p, block, group, bias, dst);
        case Widen::kStep:
            return MultiplyTiles<Channels, Widen::kStep>(p, block, group, bias, dst);
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
    vst1_s8(to, rows01.val[0]);
    vst1_s8(to + 8, rows23.val[0]);
    vst1_s8(to + 16, rows01.val[1]);
    vst1_s8(to + 24, rows23.val[1]);
}

// The steps of one tile. Rows after the last count as zeros, and so do pixels after `count`.
void PackTile(const MatrixProduct& p, size_t pixel, size_t count, int8_t* to) {
    const int8_t* at = p.rows + pixel;
    size_t k = 0;
    if (count == kTilePixels) {
        for (; k + kStepRows <= p.inner; k += kStepRows, to += kStepBytes) {
            int8x8_t row[kStepRows];
#pragma GCC unroll 4
            for (size_t i = 0; i < kStepRows; ++i, at += p.rowPitch) {
                row[i] = vld1_s8(at);
            }
            PackStep(row, to);
        }
    }
    for (; k < p.inner; k += kStepRows, to += kStepBytes) {
        int8x8_t row[kStepRows];
        for (size_t i = 0; i < kStepRows; ++i) {
            int8_t pixels[kTilePixels] = {};
            if (k + i < p.inner) {
                std::memcpy(pixels, at, count);
                at += p.rowPitch;
            }
            row[i] = vld1_s8(pixels);
        }
        PackStep(row, to);
    }
}

void PackBlock(const MatrixProduct& p, size_t pixel, const Block& block, int8_t* to) {
    for (size_t done = 0; done < block.pixels; done += kTilePixels) {
        PackTile(p, pixel + done, std::min(kTilePixels, block.pixels - done), to);
        to += block.steps * kStepBytes;
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

}  // namespace

namespace neon {

void Multiply(const MatrixProduct& p) {
    const size_t steps = (p.inner + kStepRows - 1) / kStepRows;
    if (steps == 0 || steps > kMaxSteps || p.scratchBytes < steps * kStepBytes) {
        plain::Multiply(p);
        return;
    }
    const size_t blockTiles = std::min(p.scratchBytes, kBlockBytes) / (steps * kStepBytes);
    const size_t blockPixels = blockTiles * kTilePixels;
    for (size_t pixel = 0; pixel < p.pixels; pixel += blockPixels) {
        const Block block{p.scratch, steps, std::min(blockPixels, p.pixels - pixel)};
        PackBlock(p, pixel, block, p.scratch);
        MultiplyBlock(p, block, pixel);
    }
}

}  // namespace neon

const Routines kNeonRoutines{
    "neon",             neon::Multiply,  plain::Depthwise, plain::Dot,      plain::MaxPoolStride1,
    plain::MaxPoolRows, plain::SampleRow, plain::Rectify,   plain::FlipSign, plain::Add};

}  // namespace orvo
