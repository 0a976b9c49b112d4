// SPDX-License-Identifier: MIT
//
// Matrix product with NEON on 64-bit ARM without the dot product; compute_a/simd/product.h has the
// walk.
//
// A tile is four channels by 12 pixels. Four rows make a step of 48 bytes, and the 64 bytes of
// weights that meet it are 16 a channel:
//
//     values    r0r1 of p0 to p3 | r2r3 of p0 to p3 | ... | r0r1 of p8 to p11 | r2r3 of p8 to p11
//     weights   w0w1 four times  | w2w3 four times
//
// smull and smlal multiply eight bytes by eight into 16-bit sums, which is where the work is cheap:
// a lane holds one row of each pair, and sadalp adds the two while it widens. How many steps such
// a sum may take before it is widened is decided from the weights, which are known: with totals of
// |w| up to kMostWeight nothing is lost. So a group's steps are taken in runs as long as that
// allows. Two weights of -128 that meet in a step allow not even one; their group is left to
// intrinsics that widen each product.
#include <cstring>

#include "compute_a/simd/neon/lanes.h"
#include "compute_a/simd/neon/routines.h"
#include "compute_a/simd/neon/tiles_64.h"
#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/product.h"

namespace orvo {
namespace {

constexpr size_t kTilePixels = 12;
constexpr size_t kTileVectors = 3;
constexpr size_t kStepRows = 4;
constexpr size_t kStepBytes = kStepRows * kTilePixels;
constexpr size_t kGroup = 4;
constexpr size_t kMaxSteps = 64;         // of which the weights, four times as large, fit the stack
constexpr size_t kSlabBytes = 20 * 1024; // of packed values, to stay in the first cache
constexpr size_t kStepWeights = kGroup * 16;

// One group as the tiles read it. Weights are loaded ahead: half a step's beyond the last.
struct GroupWeights {
    alignas(16) int32_t biases[kGroup][kTilePixels];
    int8_t bytes[kMaxSteps * kStepWeights + kStepWeights / 2];
    uint8_t runs[kMaxSteps]; // each one's steps after its first
    size_t runCount = 0;     // none: each product is to be widened
};

// The weights of the channels of a group, of rows that may end within a step, in whole steps.
struct GroupRows {
    alignas(16) int8_t rows[kMaxSteps][kStepRows][kGroup];
};

constexpr size_t StepsOf(size_t inner) { return (inner + kStepRows - 1) / kStepRows; }

// Leftover channels have their weights one after the other; zeros for those that are not there.
const int8_t* WholeSteps(const MatrixProduct& p, const ChannelGroup& group, GroupRows& room) {
    if (group.channels == kGroup && p.inner % kStepRows == 0) {
        return group.weights;
    }
    int8_t* const to = room.rows[0][0];
    std::memset(to, 0, StepsOf(p.inner) * kStepRows * kGroup);
    if (group.channels == kGroup) {
        std::memcpy(to, group.weights, p.inner * kGroup);
        return to;
    }
    for (size_t c = 0; c < group.channels; ++c) {
        for (size_t k = 0; k < p.inner; ++k) {
            to[kGroup * k + c] = group.weights[c * p.groupBytes + k];
        }
    }
    return to;
}

// Adds |w| where the 16-bit sums add the products: rows 0 and 2 of each channel, rows 1 and 3. The
// magnitude of -128 is right as an unsigned byte.
inline uint16x8_t AddTotals(uint16x8_t totals, int8x16_t weights) {
    const uint8x16_t magnitudes = vreinterpretq_u8_s8(vabsq_s8(weights));
    return vaddw_high_u8(vaddw_u8(totals, vget_low_u8(magnitudes)), magnitudes);
}

// Each channel's pairs of a step, four times.
inline void StoreWeights(int8x16_t step, int8_t* to) {
    const uint8x16_t first = vreinterpretq_u8_u64(
        vcombine_u64(vcreate_u64(0x0400040004000400u), vcreate_u64(0x0C080C080C080C08u)));
    const uint8x16_t one = vdupq_n_u8(1);
    const uint8x16_t second = vaddq_u8(first, one);
    const uint8x16_t third = vaddq_u8(second, one);
    const uint8x16_t fourth = vaddq_u8(third, one);
    vst1q_s8(to, vqtbl1q_s8(step, first));
    vst1q_s8(to + 16, vqtbl1q_s8(step, second));
    vst1q_s8(to + 32, vqtbl1q_s8(step, third));
    vst1q_s8(to + 48, vqtbl1q_s8(step, fourth));
}

void LoadWeights(const int8_t* weights, size_t steps, GroupWeights& group) {
    const uint16x8_t none = vdupq_n_u16(0);
    uint16x8_t totals = none;
    uint8_t* run = group.runs;
    size_t more = 0; // steps of this run after its first
    bool byProducts = false;
    int8_t* to = group.bytes;
    for (size_t step = 0; step < steps; ++step, weights += 16, to += kStepWeights) {
        const int8x16_t w = vld1q_s8(weights);
        StoreWeights(w, to);
        totals = AddTotals(totals, w);
        if (step == 0) {
            byProducts = !AllWithin(totals);
        } else if (++more == kMostStepsOfRun || !AllWithin(totals)) {
            *run++ = static_cast<uint8_t>(more - 1);
            more = 0;
            totals = AddTotals(none, w);
            byProducts |= !AllWithin(totals);
        }
    }
    *run++ = static_cast<uint8_t>(more);
    group.runCount = byProducts ? 0 : static_cast<size_t>(run - group.runs);
}

// What MultiplyTiles64() does, whatever the weights.
void MultiplyByProducts(const GroupWeights& group, size_t steps, const Tiles64& tiles) {
    const int8_t* values = tiles.values;
    for (size_t tile = 0; tile < tiles.count; ++tile, values += steps * kStepBytes) {
        for (size_t i = 0; i < kGroup; ++i) {
            const size_t c = kGroup - 1 - i; // see Tiles64
            int8_t outputs[16];
            for (size_t v = 0; v < kTileVectors; ++v) {
                int32x4_t sum = vld1q_s32(group.biases[c]);
                for (size_t step = 0; step < steps; ++step) {
                    const int8x16_t pixels = vld1q_s8(values + step * kStepBytes + v * 16);
                    const int8x16_t w = vld1q_s8(group.bytes + step * kStepWeights + c * 16);
                    sum = vpadalq_s16(sum, vmull_s8(vget_low_s8(pixels), vget_low_s8(w)));
                    sum = vpadalq_s16(sum, vmull_high_s8(pixels, w));
                }
                vst1_s8(outputs + 4 * v, Requantise(sum, sum, tiles.shiftCount));
            }
            std::memcpy(tiles.dst[c] + tile * kTilePixels, outputs, kTilePixels);
        }
    }
}

// Pixels 4 to 15 of four rows.
inline void PackStep(const int8x16_t row[kStepRows], int8_t* to) {
    const int64x2_t low01 = vreinterpretq_s64_s8(vzip1q_s8(row[0], row[1]));
    const int64x2_t low23 = vreinterpretq_s64_s8(vzip1q_s8(row[2], row[3]));
    const int64x2_t high01 = vreinterpretq_s64_s8(vzip2q_s8(row[0], row[1]));
    const int64x2_t high23 = vreinterpretq_s64_s8(vzip2q_s8(row[2], row[3]));
    vst1q_s8(to, vreinterpretq_s8_s64(vzip2q_s64(low01, low23)));
    vst1q_s8(to + 16, vreinterpretq_s8_s64(vzip1q_s64(high01, high23)));
    vst1q_s8(to + 32, vreinterpretq_s8_s64(vzip2q_s64(high01, high23)));
}

// The steps of a tile whose rows `load` gets; zeros for rows after the last.
template <class Load>
inline void PackSteps(const MatrixProduct& p, size_t pixel, int8_t* to, const Load& load) {
    const int8_t* at = p.rows + pixel;
    size_t left = p.inner;
    for (; left >= kStepRows; left -= kStepRows, to += kStepBytes) {
        int8x16_t row[kStepRows];
#pragma GCC unroll 4
        for (size_t i = 0; i < kStepRows; ++i, at += p.rowPitch) {
            row[i] = load(at);
        }
        PackStep(row, to);
    }
    if (left > 0) {
        int8x16_t row[kStepRows];
        for (size_t i = 0; i < kStepRows; ++i, at += p.rowPitch) {
            row[i] = i < left ? load(at) : vdupq_n_s8(0);
        }
        PackStep(row, to);
    }
}

// `count` pixels, perhaps fewer than a tile has. The vectors start four pixels before a whole tile
// that has as many before it.
void PackTile(const MatrixProduct& p, size_t pixel, size_t count, int8_t* to) {
    constexpr size_t kBefore = 16 - kTilePixels;
    if (count == kTilePixels && pixel >= kBefore) {
        PackSteps(p, pixel - kBefore, to, [](const int8_t* at) { return vld1q_s8(at); });
        return;
    }
    PackSteps(p, pixel, to, [count](const int8_t* at) {
        int8_t pixels[16] = {};
        std::memcpy(pixels + kBefore, at, count);
        return vld1q_s8(pixels);
    });
}

class NeonProduct {
  public:
    // Packed at the start of the scratch: some tiles, and the pixels of one that is not full.
    using Slab = TileSlab<kTilePixels>;

    explicit NeonProduct(const MatrixProduct& p)
        : p_(p),
          steps_(StepsOf(p.inner)),
          tileBytes_(steps_ * kStepBytes),
          mostTiles_(Least(p.scratchBytes, kSlabBytes) / tileBytes_),
          shiftCount_(TopByteShift(p.shift)) {}

    static size_t GroupChannels() { return kGroup; }

    Slab SlabFrom(size_t pixel) const { return TileSlabFrom<kTilePixels>(p_, pixel, mostTiles_); }

    void MakeReady(const ChannelGroup& group) {
        GroupRows room;
        LoadWeights(WholeSteps(p_, group, room), steps_, weights_);
        for (size_t c = 0; c < kGroup; ++c) {
            const int32x4_t bias = vdupq_n_s32(p_.bias[group.first + Least(c, group.channels - 1)]);
            for (size_t v = 0; v < kTileVectors; ++v) {
                vst1q_s32(weights_.biases[c] + 4 * v, bias);
            }
        }
    }

    void Pack(const Slab& slab) const {
        int8_t* to = p_.scratch;
        size_t pixel = slab.first;
        for (size_t i = 0; i < slab.tiles; ++i, pixel += kTilePixels, to += tileBytes_) {
            PackTile(p_, pixel, kTilePixels, to);
        }
        if (slab.rest > 0) {
            PackTile(p_, pixel, slab.rest, to);
        }
    }

    void MultiplyTiles(const ChannelGroup& group, const Slab& slab) const {
        if (slab.tiles > 0) {
            Multiply(group, {p_.scratch, slab.tiles, OutputOf(p_, group, slab), p_.planePitch});
        }
    }

    // By way of a tile's own room.
    void MultiplyRest(const ChannelGroup& group, const Slab& slab) const {
        if (slab.rest == 0) {
            return;
        }
        int8_t outputs[kGroup][kTilePixels];
        const int8_t* values = p_.scratch + slab.tiles * tileBytes_;
        Multiply(group, {values, 1, outputs[0], kTilePixels});
        int8_t* to = OutputOf(p_, group, slab) + slab.tiles * kTilePixels;
        for (size_t c = 0; c < group.channels; ++c, to += p_.planePitch) {
            std::memcpy(to, outputs[c], slab.rest);
        }
    }

  private:
    struct Planes4 {
        const int8_t* values;
        size_t tiles;
        int8_t* dst;
        size_t pitch;
    };

    // The group's planes of some of the slab's tiles.
    void Multiply(const ChannelGroup& group, const Planes4& planes) const {
        const auto plane = [&](size_t c) {
            return planes.dst + Least(c, group.channels - 1) * planes.pitch;
        };
        const Tiles64 tiles{planes.values,
                            weights_.biases[0],
                            weights_.runs,
                            weights_.runCount,
                            planes.tiles,
                            shiftCount_,
                            {plane(0), plane(1), plane(2), plane(3)}};
        if (weights_.runCount == 0) {
            MultiplyByProducts(weights_, steps_, tiles);
        } else {
            MultiplyTiles64(tiles);
        }
    }

    const MatrixProduct& p_;
    const size_t steps_, tileBytes_, mostTiles_;
    const int32x4_t shiftCount_;
    GroupWeights weights_;
};

} // namespace

void neon::Multiply(const MatrixProduct& p) {
    if (p.inner == 0 || p.inner > kMaxSteps * kStepRows) {
        return plain::Multiply(p);
    }
    NeonProduct product(p);
    if (!MultiplyBySlabs(p, product)) {
        plain::Multiply(p);
    }
}

} // namespace orvo
