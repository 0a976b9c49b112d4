// SPDX-License-Identifier: MIT
//
// Matrix product with the dot-product instruction; compute_a/simd/product.h has the walk.
//
// A tile is four channels by 16 pixels. Four rows make a step, whose 64 bytes hold a pixel in each
// 32-bit lane, and a step of weights is one vector with a channel in each:
//
//     values   | r0 r1 r2 r3 | of p0 | r0 r1 r2 r3 | of p1 ...  p15     four vectors
//     weights  | w0 w1 w2 w3 | of c0 | w0 w1 w2 w3 | of c1 ...  c3      one vector
//              '--- lane ----'
//
// Of a slab's rest only the vectors that hold its pixels are packed.
#include "compute_a/simd/product.h"

#include <cstring>

#include "compute_a/simd/neon_dot/lanes.h"
#include "compute_a/simd/neon_dot/routines.h"
#include "compute_a/simd/neon_dot/tiles.h"
#include "compute_a/simd/plain/routines.h"

namespace orvo {
namespace {

constexpr size_t kStepRows = 4;
constexpr size_t kVectorPixels = 4;
constexpr size_t kTileVectors = 4;
constexpr size_t kTilePixels = kTileVectors * kVectorPixels;
constexpr size_t kGroup = 4;
constexpr size_t kMaxSteps = 256;        // of which the weights fit the stack
constexpr size_t kSlabBytes = 20 * 1024; // of packed values, to stay in the first cache

constexpr size_t VectorsOf(size_t pixels) { return (pixels + kVectorPixels - 1) / kVectorPixels; }

// One group: a vector of weights for each step, with the four rows of a channel in a lane; they are
// arranged four steps at a time. Planes that are not there are written where the last one stands,
// before it.
constexpr size_t kWeightSteps = 4;
struct GroupWeights {
    alignas(16) int32_t bias[kGroup][8]; // each as often as two vectors have lanes
    size_t start[kGroup];                // of the planes, in the output
    int32x4_t shiftCount;
    alignas(16) int8_t bytes[(kMaxSteps + kWeightSteps - 1) * 16];
};

// Taken apart into channels, of which four rows at a time are put side by side again.
inline void ArrangeWeights(const int8_t* weights, int8_t* to) {
    const int8x16x4_t channels = vld4q_s8(weights);
    const int32x4x4_t rows{
        {vreinterpretq_s32_s8(channels.val[0]), vreinterpretq_s32_s8(channels.val[1]),
         vreinterpretq_s32_s8(channels.val[2]), vreinterpretq_s32_s8(channels.val[3])}};
    vst4q_s32(reinterpret_cast<int32_t*>(to), rows);
}

void LoadWeights(const int8_t* weights, size_t inner, GroupWeights& group) {
    constexpr size_t kRows = kWeightSteps * kStepRows;
    constexpr size_t kBytes = kRows * kGroup;
    int8_t* to = group.bytes;
    for (; inner >= kRows; inner -= kRows, weights += kBytes, to += kBytes) {
        ArrangeWeights(weights, to);
    }
    if (inner > 0) {
        int8_t rest[kBytes] = {};
        std::memcpy(rest, weights, kGroup * inner);
        ArrangeWeights(rest, to);
    }
}

// Leftover channels, each of which has its weights in row order; zeros for those that are not
// there.
void LoadLeftoverWeights(const int8_t* weights, size_t channelBytes, size_t channels, size_t inner,
                         GroupWeights& group) {
    std::memset(group.bytes, 0, (inner + kStepRows - 1) / kStepRows * 16);
    for (size_t c = 0; c < channels; ++c, weights += channelBytes) {
        for (size_t k = 0; k < inner; ++k) {
            group.bytes[k / kStepRows * 16 + kStepRows * c + k % kStepRows] = weights[k];
        }
    }
}

// Steps of four rows of 16 pixels, zeros for the rows after the last.
template <class Load, class Store>
inline void PackSteps(const MatrixProduct& p, size_t pixel, Load load, Store store) {
    const int8_t* at = p.rows + pixel;
    size_t left = p.inner;
    for (; left >= kStepRows; left -= kStepRows) {
        int8x16x4_t rows;
#pragma GCC unroll 4
        for (size_t i = 0; i < kStepRows; ++i, at += p.rowPitch) {
            rows.val[i] = load(at);
        }
        store(rows);
    }
    if (left > 0) {
        int8x16x4_t rows;
        for (size_t i = 0; i < kStepRows; ++i, at += p.rowPitch) {
            rows.val[i] = i < left ? load(at) : vdupq_n_s8(0);
        }
        store(rows);
    }
}

// A step becomes vectors whose lanes hold the four values of a pixel.
void PackTile(const MatrixProduct& p, size_t pixel, int8_t* to) {
    PackSteps(
        p, pixel, [](const int8_t* at) { return vld1q_s8(at); },
        [&to](const int8x16x4_t& rows) {
            vst4q_s8(to, rows);
            to += kTileVectors * 16;
        });
}

// The same for `count` pixels, fewer than a tile has, in as few vectors as hold them.
void PackRest(const MatrixProduct& p, size_t pixel, size_t count, int8_t* to) {
    const size_t bytes = VectorsOf(count) * 16;
    PackSteps(
        p, pixel,
        [count](const int8_t* at) {
            int8_t pixels[kTilePixels] = {};
            std::memcpy(pixels, at, count);
            return vld1q_s8(pixels);
        },
        [&to, bytes](const int8x16x4_t& rows) {
            int8_t packed[kTileVectors * 16];
            vst4q_s8(packed, rows);
            std::memcpy(to, packed, bytes);
            to += bytes;
        });
}

// One step's products; `values` and `weights` move past it.
template <size_t Vectors>
inline void AddStep(const int8_t*& values, const int8_t*& weights,
                    int32x4_t sums[kGroup][Vectors]) {
    const int8x16_t w = vld1q_s8(weights);
    weights += 16;
#pragma GCC unroll 4
    for (size_t v = 0; v < Vectors; ++v, values += 16) {
        const int8x16_t pixels = vld1q_s8(values);
        sums[0][v] = vdotq_laneq_s32(sums[0][v], pixels, w, 0);
        sums[1][v] = vdotq_laneq_s32(sums[1][v], pixels, w, 1);
        sums[2][v] = vdotq_laneq_s32(sums[2][v], pixels, w, 2);
        sums[3][v] = vdotq_laneq_s32(sums[3][v], pixels, w, 3);
    }
}

// The sums of four channels, bias included.
template <size_t Vectors>
inline void SumTile(const int8_t* values, const int8_t* weights, size_t steps,
                    const int32_t bias[kGroup][8], int32x4_t sums[kGroup][Vectors]) {
#pragma GCC unroll 4
    for (size_t c = 0; c < kGroup; ++c) {
        for (size_t v = 0; v < Vectors; ++v) {
            sums[c][v] = vld1q_s32(bias[c]);
        }
    }
    for (; steps >= 4; steps -= 4) {
#pragma GCC unroll 4
        for (size_t i = 0; i < 4; ++i) {
            AddStep<Vectors>(values, weights, sums);
        }
    }
    if ((steps & 2) != 0) {
        AddStep<Vectors>(values, weights, sums);
        AddStep<Vectors>(values, weights, sums);
    }
    if ((steps & 1) != 0) {
        AddStep<Vectors>(values, weights, sums);
    }
}

// The requantised bytes of up to 16 pixels.
template <size_t Vectors>
inline int8x16_t RequantiseTile(const int32x4_t sums[Vectors], int32x4_t shiftCount) {
    int32x4_t shifted[kTileVectors];
#pragma GCC unroll 4
    for (size_t v = 0; v < kTileVectors; ++v) {
        shifted[v] = vqshlq_s32(sums[v < Vectors ? v : 0], shiftCount);
    }
    return TopBytes(shifted);
}

template <size_t Vectors>
inline void MultiplyRestOfTile(const GroupWeights& group, const int8_t* values, size_t steps,
                               size_t pixels, int8_t* dst) {
    int32x4_t sums[kGroup][Vectors];
    SumTile<Vectors>(values, group.bytes, steps, group.bias, sums);
    const int32x4_t shiftCount = group.shiftCount;
#pragma GCC unroll 4
    for (size_t i = 0; i < kGroup; ++i) {
        const size_t c = kGroup - 1 - i;
        const int8x16_t outputs = RequantiseTile<Vectors>(sums[c], shiftCount);
        int8_t last[kTilePixels];
        vst1q_s8(last, outputs);
        std::memcpy(dst + group.start[c], last, pixels);
    }
}

class DotProduct {
  public:
    // Packed at the start of the scratch: some tiles, and the pixels of one that is not full.
    using Slab = TileSlab<kTilePixels>;

    explicit DotProduct(const MatrixProduct& p)
        : p_(p),
          steps_((p.inner + kStepRows - 1) / kStepRows),
          mostVectors_(Least(p.scratchBytes, kSlabBytes) / (16 * steps_)) {
        weights_.shiftCount = TopByteShift(p.shift);
    }

    static size_t GroupChannels() { return kGroup; }

    // Whole tiles and what is left at the end, or the few vectors that there is room for.
    Slab SlabFrom(size_t pixel) const {
        const size_t left = p_.pixels - pixel;
        const size_t tiles =
            TilesOfSlab((left + kTilePixels - 1) / kTilePixels, mostVectors_ / kTileVectors);
        const size_t most = tiles > 0 ? tiles * kTilePixels : mostVectors_ * kVectorPixels;
        const size_t count = Least(most, left);
        return {pixel, count / kTilePixels, count % kTilePixels};
    }

    void MakeReady(const ChannelGroup& group) {
        if (group.channels == kGroup) {
            LoadWeights(group.weights, p_.inner, weights_);
        } else {
            LoadLeftoverWeights(group.weights, p_.groupBytes, group.channels, p_.inner, weights_);
        }
#pragma GCC unroll 4
        for (size_t c = 0; c < kGroup; ++c) {
            const size_t plane = group.first + Least(c, group.channels - 1);
            weights_.start[c] = plane * p_.planePitch;
            vst1q_s32(weights_.bias[c], vdupq_n_s32(p_.bias[plane]));
            vst1q_s32(weights_.bias[c] + 4, vdupq_n_s32(p_.bias[plane]));
        }
    }

    void Pack(const Slab& slab) const {
        int8_t* to = p_.scratch;
        size_t pixel = slab.first;
        for (size_t tile = 0; tile < slab.tiles; ++tile, pixel += kTilePixels, to += tileBytes()) {
            PackTile(p_, pixel, to);
        }
        if (slab.rest > 0) {
            PackRest(p_, pixel, slab.rest, to);
        }
    }

    void MultiplyTiles(const ChannelGroup&, const Slab& slab) const {
        if (slab.tiles > 0) {
            int8_t* const dst = p_.dst + slab.first;
            const size_t* start = weights_.start;
            MultiplyDotTiles({p_.scratch,
                              weights_.bytes,
                              weights_.bias,
                              steps_,
                              slab.tiles,
                              weights_.shiftCount,
                              {dst + start[0], dst + start[1], dst + start[2], dst + start[3]}});
        }
    }

    void MultiplyRest(const ChannelGroup&, const Slab& slab) const {
        const int8_t* values = p_.scratch + slab.tiles * tileBytes();
        int8_t* dst = p_.dst + slab.first + slab.tiles * kTilePixels;
        switch (VectorsOf(slab.rest)) {
            case 1:
                return MultiplyRestOfTile<1>(weights_, values, steps_, slab.rest, dst);
            case 2:
                return MultiplyRestOfTile<2>(weights_, values, steps_, slab.rest, dst);
            case 3:
                return MultiplyRestOfTile<3>(weights_, values, steps_, slab.rest, dst);
            case 4:
                return MultiplyRestOfTile<4>(weights_, values, steps_, slab.rest, dst);
            default:
                return;
        }
    }

  private:
    size_t tileBytes() const { return steps_ * kTileVectors * 16; }

    const MatrixProduct& p_;
    const size_t steps_, mostVectors_;
    GroupWeights weights_;
};

} // namespace

void neon_dot::Multiply(const MatrixProduct& p) {
    if (p.inner == 0 || p.inner > kMaxSteps * kStepRows) {
        return plain::Multiply(p);
    }
    DotProduct product(p);
    if (!MultiplyBySlabs(p, product)) {
        plain::Multiply(p);
    }
}

} // namespace orvo
