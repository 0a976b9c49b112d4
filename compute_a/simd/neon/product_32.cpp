// SPDX-License-Identifier: MIT
//
// Matrix product with NEON on 32-bit ARM; compute_a/simd/product.h has the walk.
//
// A tile is four channels by 8 pixels. Four rows make a step: the values of two rows, r0 and r1 or
// r2 and r3, stand side by side, pixel by pixel. A step's 32 bytes are
//
//              bytes 0 to 7       8 to 15            16 to 23           24 to 31
//              r0r1 of p0 to p3 | r0r1 of p4 to p7 | r2r3 of p0 to p3 | r2r3 of p4 to p7
//
// and the 32 bytes of weights that two steps meet are, for each channel,
//
//              w0w1 four times  | w2w3 four times  | w4w5 four times  | w6w7 four times
//
// vmull.s8 and vmlal.s8 multiply eight bytes by eight into 16-bit sums, which is where the work is
// cheap: a lane holds one row of each pair, and vpadal adds the two while it widens. How many
// products such a sum may take before it is widened is decided from the weights, which are known:
// with totals of |w| up to kMostWeight nothing is lost. Two products of -128 by -128 are beyond
// that, and so each product is widened where two weights of -128 meet.
#include "compute_a/simd/product.h"

#include <cstring>

#include "compute_a/simd/neon/lanes.h"
#include "compute_a/simd/neon/routines.h"
#include "compute_a/simd/neon/tiles_32.h"
#include "compute_a/simd/plain/routines.h"

namespace orvo {
namespace {

constexpr size_t kTilePixels = 8;
constexpr size_t kStepRows = 4;
constexpr size_t kStepBytes = kStepRows * kTilePixels;
constexpr size_t kGroup = 4;
constexpr size_t kMaxSteps = 64;         // of which the weights, four times as large, fit the stack
constexpr size_t kSlabBytes = 20 * 1024; // of packed values, to stay in the first cache

// Tiles one after the other, their values and outputs.
struct Tiles {
    const int8_t* values;
    size_t count; // at least one
    int8_t* dst;
    size_t pitch; // from plane to plane
};

constexpr size_t kBiases = 8; // of a channel, one a pixel

// What tiles meet, a group's weights or a leftover channel's, and how they do that.
struct TileWeights {
    const int32_t (*biases)[kBiases];
    const int8_t* bytes;
    size_t steps;
    uint32_t shift;
    void (*run)(const TileWeights& weights, const Tiles& tiles); // see RunTiles
};

// One group as the tiles read it: what its sums start from, and the weights, two steps of a channel
// side by side. Behind them stand the shift, and the biases if they are added last.
// Leftover channels, which the tiles take one by one, have their weights one after the other.
struct GroupWeights {
    alignas(16) int32_t biases[kGroup][kBiases];
    alignas(16) int8_t bytes[kMaxSteps * kGroup * 16 + (kGroup * kBiases + 4) * sizeof(int32_t)];
    TileWeights parts[kGroup]; // the first a group's, or one of each leftover channel
};

// Pixels 4 A to 4 A + 3 of a step's values `a`, rows 0 and 1 and rows 2 and 3, times vector B of the
// weights `b`.
template <int A, int B>
inline int16x8_t MultiplyAdd(int16x8_t sum, const Bytes32& a, const Bytes32& b) {
    return vmlal_s8(vmlal_s8(sum, a.val[A], b.val[2 * B]), a.val[A + 2], b.val[2 * B + 1]);
}
template <int A, int B>
inline int16x8_t Multiply(const Bytes32& a, const Bytes32& b) {
    return vmlal_s8(vmull_s8(a.val[A], b.val[2 * B]), a.val[A + 2], b.val[2 * B + 1]);
}
// The same of rows 0 and 1, and of rows 2 and 3.
template <int A, int B>
inline int16x8_t MultiplyFirst(const Bytes32& a, const Bytes32& b) {
    return vmull_s8(a.val[A], b.val[2 * B]);
}
template <int A, int B>
inline int16x8_t MultiplySecond(const Bytes32& a, const Bytes32& b) {
    return vmull_s8(a.val[A + 2], b.val[2 * B + 1]);
}

template <Widen kWiden, int A, int B>
inline int32x4_t AddStep(int32x4_t sums, const Bytes32& values, const Bytes32& weights) {
    if constexpr (kWiden == Widen::kProduct) {
        sums = vpadalq_s16(sums, MultiplyFirst<A, B>(values, weights));
        return vpadalq_s16(sums, MultiplySecond<A, B>(values, weights));
    }
    return vpadalq_s16(sums, Multiply<A, B>(values, weights));
}

// The sums of a tile, bias included, of what does not go through tiles_32.h: leftover channels, one
// by one, and groups that have a single step or whose products are widened each. Of the networks'
// products 4 % are widened after each step, 93 % after two and 3 % in the end.
template <size_t Channels, Widen kWiden>
inline void SumTile(const int8_t* values, const TileWeights& of, int32x4_t sums[Channels][2]) {
    const int8_t* weights = of.bytes;
    size_t steps = of.steps;
    int16x8_t parts[Channels][2];
#pragma GCC unroll 4
    for (size_t c = 0; c < Channels; ++c) {
        sums[c][0] = vld1q_s32(of.biases[c]);
        sums[c][1] = vld1q_s32(of.biases[c] + 4);
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
                sums[c][0] = AddStep<kWiden, 0, 0>(sums[c][0], one, w);
                sums[c][1] = AddStep<kWiden, 1, 0>(sums[c][1], one, w);
                sums[c][0] = AddStep<kWiden, 0, 1>(sums[c][0], two, w);
                sums[c][1] = AddStep<kWiden, 1, 1>(sums[c][1], two, w);
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
                sums[c][0] = AddStep<kWiden, 0, 0>(sums[c][0], one, w);
                sums[c][1] = AddStep<kWiden, 1, 0>(sums[c][1], one, w);
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

template <size_t Channels, Widen kWiden>
void RunTiles(const TileWeights& weights, const Tiles& tiles) {
    const TileWeights w = weights; // which the outputs, for all that GCC knows, may overwrite
    Tiles t = tiles;
    const int32x4_t shiftCount = TopByteShift(w.shift);
    for (; t.count > 0; --t.count, t.dst += kTilePixels) {
        int32x4_t sums[Channels][2];
        SumTile<Channels, kWiden>(t.values, w, sums);
        t.values += w.steps * kStepBytes;
#pragma GCC unroll 4
        for (size_t c = 0; c < Channels; ++c) {
            vst1_s8(t.dst + c * t.pitch, Requantise(sums[c][0], sums[c][1], shiftCount));
        }
    }
}

// The same for a group of at least so many steps.
constexpr size_t kAssemblySteps = 2;

template <Widen kWiden>
void RunTilesByAssembly(const TileWeights& w, const Tiles& t) {
    const void* from = kWiden == Widen::kEnd ? static_cast<const void*>(w.bytes) : w.biases;
    MultiplyTiles32<kWiden>({t.values, from, w.steps, t.count, t.dst, t.pitch});
}

// What runs the tiles of a group or of a leftover channel.
template <size_t Channels>
auto TilesFor(Widen widen, [[maybe_unused]] size_t steps) {
    if constexpr (Channels == kGroup) {
        return steps < kAssemblySteps  ? RunTiles<kGroup, Widen::kProduct>
               : widen == Widen::kEnd  ? RunTilesByAssembly<Widen::kEnd>
               : widen == Widen::kPair ? RunTilesByAssembly<Widen::kPair>
               : widen == Widen::kStep ? RunTilesByAssembly<Widen::kStep>
                                       : RunTiles<kGroup, Widen::kProduct>;
    }
    return widen == Widen::kEnd    ? RunTiles<Channels, Widen::kEnd>
           : widen == Widen::kPair ? RunTiles<Channels, Widen::kPair>
           : widen == Widen::kStep ? RunTiles<Channels, Widen::kStep>
                                   : RunTiles<Channels, Widen::kProduct>;
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
    for (size_t k = 0; k < Least(rows, kPairRows); ++k) {
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
        vst1q_s32(to + kBiases * c, sum);
        vst1q_s32(to + kBiases * c + 4, sum);
    }
}

// Stores each pair of bytes four times; `to` moves past them. GCC would move the first pair to a core register and back.
inline void StoreRepeated(int8x8_t pairs, int8_t*& to) {
    __asm__(
        "vdup.16 d16, %P[pairs][0]\n\t"
        "vdup.16 d17, %P[pairs][1]\n\t"
        "vdup.16 d18, %P[pairs][2]\n\t"
        "vdup.16 d19, %P[pairs][3]\n\t"
        "vst1.8 {d16-d19}, [%[to]]!"
        : [to] "+r"(to), "=m"(*reinterpret_cast<int8_t(*)[32]>(to))
        : [pairs] "w"(pairs)
        : "q8", "q9");
}

// Puts the weights of a group, or of one leftover channel, where tiles read them; `to` moves past
// them.
template <size_t Channels>
Widen LoadWeights(const int8_t* weights, size_t inner, int8_t*& to) {
    uint16x8_t stepMost = vdupq_n_u16(0);
    uint16x8_t pairMost = stepMost;
    uint16x8_t total = stepMost;
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
    return AllWithin(total)      ? Widen::kEnd
           : AllWithin(pairMost) ? Widen::kPair
           : AllWithin(stepMost) ? Widen::kStep
                                 : Widen::kProduct;
}

constexpr size_t StepsOf(size_t inner) { return (inner + kStepRows - 1) / kStepRows; }

void LoadGroup(const MatrixProduct& p, const ChannelGroup& from, GroupWeights& group) {
    int8_t* end = group.bytes;
    const size_t steps = StepsOf(p.inner);
    const Widen widen = LoadWeights<kGroup>(from.weights, p.inner, end);
    group.parts[0] = {group.biases, group.bytes, steps, p.shift, TilesFor<kGroup>(widen, steps)};
    int32_t* biases = group.biases[0];
    int32_t* behind = reinterpret_cast<int32_t*>(end);
    vst1q_s32(behind, TopByteShift(p.shift));
    if (widen == Widen::kEnd && steps >= kAssemblySteps) {
        biases = behind + 4;
    }
    PutBiases<kGroup>(p.bias + from.first, biases);
}

void LoadLeftoverChannels(const MatrixProduct& p, const ChannelGroup& from, GroupWeights& group) {
    int8_t* to = group.bytes;
    const size_t steps = StepsOf(p.inner);
    for (size_t c = 0; c < from.channels; ++c) {
        const int8_t* const bytes = to;
        const Widen widen = LoadWeights<1>(from.weights + c * p.groupBytes, p.inner, to);
        group.parts[c] = {group.biases + c, bytes, steps, p.shift, TilesFor<1>(widen, steps)};
        PutBiases<1>(p.bias + from.first + c, group.biases[c]);
    }
}

// Rows interleaved by two, 8 pixels, in the order that suits these products; `to` moves past them.
inline void StoreStep(int8x16_t rows01, int8x16_t rows23, int8_t*& to) {
    vst1q_s8(to, rows01);
    vst1q_s8(to + 16, rows23);
    to += 32;
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
void PackTwoTiles(const MatrixProduct& p, size_t pixel, int8_t* first, int8_t* second) {
    const int8_t* at = p.rows + pixel;
    if (p.inner >= kStepRows) {
        PackTiles32(at, p.rowPitch, p.inner / kStepRows, first, second);
    }
    const size_t rest = p.inner % kStepRows;
    for (size_t tile = 0; tile < 2 && rest != 0; ++tile) {
        int8x8_t row[kStepRows];
        LoadRest(at + tile * kTilePixels, p.rowPitch, rest, kTilePixels, row);
        PackStep(row, tile == 0 ? first : second);
    }
}

class NeonProduct {
  public:
    // Packed at the start of the scratch: some tiles, and the pixels of one that is not full.
    using Slab = TileSlab<kTilePixels>;

    explicit NeonProduct(const MatrixProduct& p)
        : p_(p),
          tileBytes_(StepsOf(p.inner) * kStepBytes),
          mostTiles_(Least(p.scratchBytes, kSlabBytes) / tileBytes_) {}

    static size_t GroupChannels() { return kGroup; }

    Slab SlabFrom(size_t pixel) const { return TileSlabFrom<kTilePixels>(p_, pixel, mostTiles_); }

    void MakeReady(const ChannelGroup& group) {
        if (group.channels == kGroup) {
            LoadGroup(p_, group, weights_);
        } else {
            LoadLeftoverChannels(p_, group, weights_);
        }
    }

    void Pack(const Slab& slab) const {
        int8_t* to = p_.scratch;
        size_t pixel = slab.first;
        size_t tiles = slab.tiles;
        for (; tiles >= 2; tiles -= 2, pixel += 2 * kTilePixels, to += 2 * tileBytes_) {
            PackTwoTiles(p_, pixel, to, to + tileBytes_);
        }
        if (tiles > 0) {
            PackTile(p_, pixel, kTilePixels, to);
            pixel += kTilePixels;
            to += tileBytes_;
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
    // The group's planes of some of the slab's tiles.
    void Multiply(const ChannelGroup& group, Tiles tiles) const {
        const TileWeights* weights = weights_.parts;
        if (group.channels == kGroup) {
            return weights->run(*weights, tiles);
        }
        for (size_t c = 0; c < group.channels; ++c, ++weights, tiles.dst += tiles.pitch) {
            weights->run(*weights, tiles);
        }
    }

    const MatrixProduct& p_;
    const size_t tileBytes_, mostTiles_;
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
