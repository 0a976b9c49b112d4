// SPDX-License-Identifier: MIT
//
// 64-bit ARM with the dot-product instruction, which adds four products of signed bytes to each
// 32-bit lane, wrapping: exact as it is. Only the matrix product is made with it; a depthwise
// filter of three columns fills three quarters of it at best, after its rows were interleaved.
#include <cstring>

#include "compute_a/simd/neon.h"
#include "compute_a/simd/neon_lanes.h"
#include "compute_a/simd/plain.h"

namespace orvo {
namespace {

constexpr size_t kStepRows = 4;
constexpr size_t kVectorPixels = 4;
constexpr size_t kTileVectors = 4;
constexpr size_t kTilePixels = kTileVectors * kVectorPixels;
constexpr size_t kGroup = 4;
constexpr size_t kMaxSteps = 256;         // of which the weights fit the stack
constexpr size_t kBlockBytes = 16 * 1024; // pixels packed at a time: they stay in the first cache

// One group's weights: a vector for each step of four rows, with the four rows of a channel in a
// lane.
struct GroupWeights {
    alignas(16) int8_t bytes[kMaxSteps * 16];
};

void LoadGroup(const int8_t* weights, size_t inner, GroupWeights& group) {
    const uint8x16_t transpose = vreinterpretq_u8_u64(
        vcombine_u64(vcreate_u64(0x0D0905010C080400u), vcreate_u64(0x0F0B07030E0A0602u)));
    int8_t* to = group.bytes;
    for (; inner >= kStepRows; inner -= kStepRows, weights += 16, to += 16) {
        vst1q_s8(to, vqtbl1q_s8(vld1q_s8(weights), transpose));
    }
    if (inner > 0) {
        int8_t rest[16] = {};
        std::memcpy(rest, weights, kGroup * inner);
        vst1q_s8(to, vqtbl1q_s8(vld1q_s8(rest), transpose));
    }
}

// Leftover channels, each of which has its weights in row order; zeros for those that are not
// there.
void LoadRestOfChannels(const int8_t* weights, size_t channelBytes, size_t channels, size_t inner,
                        GroupWeights& group) {
    std::memset(group.bytes, 0, (inner + kStepRows - 1) / kStepRows * 16);
    for (size_t c = 0; c < channels; ++c, weights += channelBytes) {
        for (size_t k = 0; k < inner; ++k) {
            group.bytes[k / kStepRows * 16 + kStepRows * c + k % kStepRows] = weights[k];
        }
    }
}

// Four rows of 16 pixels become four vectors whose lanes hold the four values of a pixel.
inline void PackStep(const int8x16_t row[kStepRows], int8x16_t packed[kTileVectors]) {
    const int16x8_t low01 = vreinterpretq_s16_s8(vzip1q_s8(row[0], row[1]));
    const int16x8_t high01 = vreinterpretq_s16_s8(vzip2q_s8(row[0], row[1]));
    const int16x8_t low23 = vreinterpretq_s16_s8(vzip1q_s8(row[2], row[3]));
    const int16x8_t high23 = vreinterpretq_s16_s8(vzip2q_s8(row[2], row[3]));
    packed[0] = vreinterpretq_s8_s16(vzip1q_s16(low01, low23));
    packed[1] = vreinterpretq_s8_s16(vzip2q_s16(low01, low23));
    packed[2] = vreinterpretq_s8_s16(vzip1q_s16(high01, high23));
    packed[3] = vreinterpretq_s8_s16(vzip2q_s16(high01, high23));
}

// The steps of a tile of `vectors` vectors, the last of which `count` pixels may not fill. Rows
// after the last and pixels after `count` count as zeros.
void PackTile(const MatrixProduct& p, size_t pixel, size_t count, size_t vectors, int8_t* to) {
    const int8_t* at = p.rows + pixel;
    for (size_t k = 0; k < p.inner; k += kStepRows, at += kStepRows * p.rowPitch) {
        int8x16_t row[kStepRows];
        if (count == kTilePixels && k + kStepRows <= p.inner) {
#pragma GCC unroll 4
            for (size_t i = 0; i < kStepRows; ++i) {
                row[i] = vld1q_s8(at + i * p.rowPitch);
            }
        } else {
            for (size_t i = 0; i < kStepRows; ++i) {
                int8_t pixels[kTilePixels] = {};
                if (k + i < p.inner) {
                    std::memcpy(pixels, at + i * p.rowPitch, count);
                }
                row[i] = vld1q_s8(pixels);
            }
        }
        int8x16_t packed[kTileVectors];
        PackStep(row, packed);
#pragma GCC unroll 4
        for (size_t v = 0; v < kTileVectors; ++v) {
            if (v < vectors) {
                vst1q_s8(to, packed[v]);
                to += 16;
            }
        }
    }
}

// The sums of a tile's four channels, bias included. Register plan: 16 of sums, 4 of pixels, 1 of
// weights, whose lanes are the channels.
template <size_t Vectors>
inline void SumTile(const int8_t* values, const int8_t* weights, size_t steps,
                    const int32_t bias[kGroup], int32x4_t sums[kGroup][Vectors]) {
#pragma GCC unroll 4
    for (size_t v = 0; v < Vectors; ++v) {
#pragma GCC unroll 4
        for (size_t c = 0; c < kGroup; ++c) {
            sums[c][v] = vdupq_n_s32(bias[c]);
        }
    }
#pragma GCC unroll 4
    for (; steps > 0; --steps, weights += 16, values += 16 * Vectors) {
        const int8x16_t w = vld1q_s8(weights);
#pragma GCC unroll 4
        for (size_t v = 0; v < Vectors; ++v) {
            const int8x16_t pixels = vld1q_s8(values + 16 * v);
            sums[0][v] = vdotq_laneq_s32(sums[0][v], pixels, w, 0);
            sums[1][v] = vdotq_laneq_s32(sums[1][v], pixels, w, 1);
            sums[2][v] = vdotq_laneq_s32(sums[2][v], pixels, w, 2);
            sums[3][v] = vdotq_laneq_s32(sums[3][v], pixels, w, 3);
        }
    }
}

// The requantised bytes of up to 16 pixels.
template <size_t Vectors>
inline int8x16_t RequantiseTile(const int32x4_t sums[Vectors], int32x4_t shiftCount) {
    const auto shifted = [&](size_t v) {
        return v < Vectors ? vshlq_s32(sums[v < Vectors ? v : 0], shiftCount) : vdupq_n_s32(0);
    };
    return NarrowPair(NarrowPair(shifted(0), shifted(1)), NarrowPair(shifted(2), shifted(3)));
}

// Packed pixels of one block, tile after tile.
struct Block {
    const int8_t* values;
    size_t steps;
    size_t pixels;
};

// Up to four planes.
struct Planes {
    const int8_t* weights;
    int32_t bias[kGroup];
    int32x4_t shiftCount;
    size_t count;
    size_t pitch;
};

template <size_t Vectors>
void MultiplyTile(const Planes& planes, const int8_t* values, size_t steps, size_t pixels,
                  int8_t* dst) {
    int32x4_t sums[kGroup][Vectors];
    SumTile<Vectors>(values, planes.weights, steps, planes.bias, sums);
#pragma GCC unroll 4
    for (size_t c = 0; c < kGroup; ++c) {
        if (c >= planes.count) {
            break;
        }
        const int8x16_t outputs = RequantiseTile<Vectors>(sums[c], planes.shiftCount);
        if (pixels == kTilePixels) {
            vst1q_s8(dst + c * planes.pitch, outputs);
        } else {
            int8_t last[kTilePixels];
            vst1q_s8(last, outputs);
            std::memcpy(dst + c * planes.pitch, last, pixels);
        }
    }
}

void MultiplyPlanes(const Planes& planes, const Block& block, int8_t* dst) {
    const int8_t* values = block.values;
    size_t pixels = block.pixels;
    for (; pixels >= kTilePixels; pixels -= kTilePixels, dst += kTilePixels) {
        MultiplyTile<kTileVectors>(planes, values, block.steps, kTilePixels, dst);
        values += block.steps * kTileVectors * 16;
    }
    switch ((pixels + kVectorPixels - 1) / kVectorPixels) {
        case 1:
            return MultiplyTile<1>(planes, values, block.steps, pixels, dst);
        case 2:
            return MultiplyTile<2>(planes, values, block.steps, pixels, dst);
        case 3:
            return MultiplyTile<3>(planes, values, block.steps, pixels, dst);
        case 4:
            return MultiplyTile<4>(planes, values, block.steps, pixels, dst);
        default:
            return;
    }
}

void PackBlock(const MatrixProduct& p, size_t pixel, const Block& block, int8_t* to) {
    for (size_t done = 0; done < block.pixels; done += kTilePixels) {
        const size_t left = block.pixels - done;
        const size_t count = left < kTilePixels ? left : kTilePixels;
        const size_t vectors = (count + kVectorPixels - 1) / kVectorPixels;
        PackTile(p, pixel + done, count, vectors, to);
        to += block.steps * vectors * 16;
    }
}

void MultiplyBlock(const MatrixProduct& p, const Block& block, size_t pixel) {
    GroupWeights group;
    Planes planes{group.bytes, {}, RightShiftCount(p.shift), kGroup, p.planePitch};
    const int8_t* weights = p.weights;
    for (size_t channel = 0; channel < p.channels; channel += kGroup, weights += p.groupBytes) {
        if (channel + kGroup <= p.channels) {
            LoadGroup(weights, p.inner, group);
        } else {
            planes.count = p.channels - channel;
            LoadRestOfChannels(weights, p.groupBytes, planes.count, p.inner, group);
        }
        std::memcpy(planes.bias, p.bias + channel, planes.count * sizeof planes.bias[0]);
        MultiplyPlanes(planes, block, p.dst + channel * p.planePitch + pixel);
    }
}

void Multiply(const MatrixProduct& p) {
    const size_t steps = (p.inner + kStepRows - 1) / kStepRows;
    const size_t vectorBytes = 16 * steps;
    const size_t room = p.scratchBytes < kBlockBytes ? p.scratchBytes : kBlockBytes;
    if (steps == 0 || steps > kMaxSteps || room < vectorBytes) {
        plain::Multiply(p);
        return;
    }
    // Whole tiles, or the few vectors that there is room for.
    const size_t vectors = room / vectorBytes;
    const size_t blockVectors =
        vectors < kTileVectors ? vectors : vectors / kTileVectors * kTileVectors;
    const size_t blockPixels = blockVectors * kVectorPixels;
    for (size_t pixel = 0; pixel < p.pixels; pixel += blockPixels) {
        const size_t left = p.pixels - pixel;
        const Block block{p.scratch, steps, left < blockPixels ? left : blockPixels};
        PackBlock(p, pixel, block, p.scratch);
        MultiplyBlock(p, block, pixel);
    }
}

} // namespace

const Routines kNeonDotRoutines{
    "neon_dot",        Multiply,        neon::Depthwise, plain::Dot,      neon::MaxPoolStride1,
    neon::MaxPoolRows, neon::SampleRow, neon::Rectify,   plain::FlipSign, neon::Add};

} // namespace orvo
