// SPDX-License-Identifier: MIT
//
// Matrix product with WebAssembly's vectors; compute_a/simd/product.h has the walk.
//
// A tile is four channels by 8 pixels. Two rows, widened to words, make a step, whose 32 bytes hold
// a pixel in each 32-bit lane; they meet one pair of weights a channel, repeated in all lanes:
//
//     values   | r0 r1 | of p0 | r0 r1 | of p1 ...  p7
//     weights  | w0 w1 | of c0 | w0 w1 | of c1 ...  c3
//              '- lane '
//
// Register plan: 8 sums, 2 of values, 1 of weights; WebAssembly's engines have 16 on x86-64 and 32
// on ARM.
#include "compute_a/simd/product.h"

#include <cstring>

#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/wasm/lanes.h"
#include "compute_a/simd/wasm/routines.h"

namespace orvo {
namespace {

constexpr size_t kTilePixels = 8;
constexpr size_t kStepRows = 2;
constexpr size_t kStepBytes = kStepRows * kTilePixels * sizeof(int16_t);
constexpr size_t kGroup = 4;
constexpr size_t kMaxSteps = 128;        // of which the weights fit the stack
constexpr size_t kSlabBytes = 16 * 1024; // of packed values, to stay in the first cache

inline void PackStep(Vector first, Vector second, int8_t* to) {
    const Vector mixed =
        wasm_i8x16_shuffle(first, second, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
    wasm_v128_store(to, wasm_i16x8_extend_low_i8x16(mixed));
    wasm_v128_store(to + 16, wasm_i16x8_extend_high_i8x16(mixed));
}

// 8 values or, at the end of the rows, fewer.
inline Vector LoadValues(const int8_t* from, size_t count) {
    if (count >= kTilePixels) {
        return wasm_v128_load64_zero(from);
    }
    int8_t values[kTilePixels] = {};
    std::memcpy(values, from, count);
    return wasm_v128_load64_zero(values);
}

// `count` pixels from `pixel` on, or of those as many as a tile has.
void PackTile(const MatrixProduct& p, size_t pixel, size_t count, int8_t* to) {
    const int8_t* row = p.rows + pixel;
    for (size_t k = 0; k < p.inner; k += kStepRows, row += 2 * p.rowPitch, to += kStepBytes) {
        const bool isPair = k + 1 < p.inner;
        PackStep(LoadValues(row, count),
                 isPair ? LoadValues(row + p.rowPitch, count) : wasm_i64x2_splat(0), to);
    }
}

// Pairs of weights of up to four channels, step by step, and what their sums start from. Channels
// that are not there have zeros.
struct GroupWeights {
    int16_t pairs[kMaxSteps][kGroup][kStepRows];
    int32_t bias[kGroup];
};

// A whole group has the four weights of a row side by side: two rows' become a step's pairs.
void LoadWholeGroup(const int8_t* weights, size_t inner, GroupWeights& group) {
    const auto store = [&](size_t step, Vector rows) {
        const Vector words = wasm_i16x8_extend_low_i8x16(rows);
        wasm_v128_store(group.pairs[step],
                        wasm_i16x8_shuffle(words, words, 0, 4, 1, 5, 2, 6, 3, 7));
    };
    const size_t steps = inner / kStepRows;
    for (size_t step = 0; step < steps; ++step, weights += kStepRows * kGroup) {
        store(step, wasm_v128_load64_zero(weights));
    }
    if (inner % kStepRows != 0) {
        store(steps, wasm_v128_load32_zero(weights));
    }
}

// A leftover channel has its weights alone.
void LoadChannels(const MatrixProduct& p, const ChannelGroup& from, GroupWeights& group) {
    std::memset(group.pairs, 0, (p.inner + 1) / kStepRows * sizeof group.pairs[0]);
    for (size_t c = 0; c < from.channels; ++c) {
        for (size_t k = 0; k < p.inner; ++k) {
            group.pairs[k / kStepRows][c][k % kStepRows] = from.weights[c * p.groupBytes + k];
        }
    }
}

void LoadGroup(const MatrixProduct& p, const ChannelGroup& from, GroupWeights& group) {
    from.channels == kGroup ? LoadWholeGroup(from.weights, p.inner, group)
                            : LoadChannels(p, from, group);
    for (size_t c = 0; c < kGroup; ++c) {
        group.bias[c] = c < from.channels ? p.bias[from.first + c] : 0;
    }
}

// The bytes of two planes, one in each half.
struct TileBytes {
    Vector planes01, planes23;
};

inline TileBytes MultiplyTile(const int8_t* values, const GroupWeights& group, size_t steps,
                              uint32_t shift) {
    Vector sums[kGroup][2];
    for (size_t c = 0; c < kGroup; ++c) {
        sums[c][0] = sums[c][1] = wasm_i32x4_splat(group.bias[c]);
    }
    for (size_t step = 0; step < steps; ++step, values += kStepBytes) {
        const Vector low = wasm_v128_load(values);
        const Vector high = wasm_v128_load(values + 16);
        for (size_t c = 0; c < kGroup; ++c) {
            const Vector pair = wasm_v128_load32_splat(group.pairs[step][c]);
            sums[c][0] = wasm_i32x4_add(sums[c][0], wasm_i32x4_dot_i16x8(low, pair));
            sums[c][1] = wasm_i32x4_add(sums[c][1], wasm_i32x4_dot_i16x8(high, pair));
        }
    }
    Vector words[kGroup];
    for (size_t c = 0; c < kGroup; ++c) {
        words[c] =
            wasm_i16x8_narrow_i32x4(ShiftRight(sums[c][0], shift), ShiftRight(sums[c][1], shift));
    }
    return {wasm_i8x16_narrow_i16x8(words[0], words[1]),
            wasm_i8x16_narrow_i16x8(words[2], words[3])};
}

inline void StoreTile(const TileBytes& bytes, int8_t* dst, size_t pitch) {
    wasm_v128_store64_lane(dst, bytes.planes01, 0);
    wasm_v128_store64_lane(dst + pitch, bytes.planes01, 1);
    wasm_v128_store64_lane(dst + 2 * pitch, bytes.planes23, 0);
    wasm_v128_store64_lane(dst + 3 * pitch, bytes.planes23, 1);
}

class WasmProduct {
  public:
    // Packed at the start of the scratch: some tiles, and the pixels of one that is not full.
    using Slab = TileSlab<kTilePixels>;

    explicit WasmProduct(const MatrixProduct& p)
        : p_(p),
          steps_((p.inner + kStepRows - 1) / kStepRows),
          tileBytes_(steps_ * kStepBytes),
          mostTiles_(Least(p.scratchBytes, kSlabBytes) / tileBytes_),
          shift_(ShiftCount(p.shift)) {}

    static size_t GroupChannels() { return kGroup; }

    Slab SlabFrom(size_t pixel) const { return TileSlabFrom<kTilePixels>(p_, pixel, mostTiles_); }

    void MakeReady(const ChannelGroup& group) { LoadGroup(p_, group, weights_); }

    void Pack(const Slab& slab) const {
        int8_t* to = p_.scratch;
        for (size_t done = 0; done < slab.pixels(); done += kTilePixels, to += tileBytes_) {
            PackTile(p_, slab.first + done, slab.pixels() - done, to);
        }
    }

    void MultiplyTiles(const ChannelGroup& group, const Slab& slab) const {
        const int8_t* values = p_.scratch;
        int8_t* dst = OutputOf(p_, group, slab);
        for (size_t tile = 0; tile < slab.tiles; ++tile, dst += kTilePixels) {
            const TileBytes bytes = MultiplyTile(values, weights_, steps_, shift_);
            if (group.channels == kGroup) {
                StoreTile(bytes, dst, p_.planePitch);
            } else {
                StorePart(bytes, group.channels, kTilePixels, dst);
            }
            values += tileBytes_;
        }
    }

    void MultiplyRest(const ChannelGroup& group, const Slab& slab) const {
        if (slab.rest > 0) {
            const int8_t* values = p_.scratch + slab.tiles * tileBytes_;
            StorePart(MultiplyTile(values, weights_, steps_, shift_), group.channels, slab.rest,
                      OutputOf(p_, group, slab) + slab.tiles * kTilePixels);
        }
    }

  private:
    void StorePart(const TileBytes& bytes, size_t channels, size_t pixels, int8_t* dst) const {
        int8_t tile[kGroup][kTilePixels];
        StoreTile(bytes, tile[0], kTilePixels);
        for (size_t c = 0; c < channels; ++c) {
            std::memcpy(dst + c * p_.planePitch, tile[c], pixels);
        }
    }

    const MatrixProduct& p_;
    const size_t steps_, tileBytes_, mostTiles_;
    const uint32_t shift_;
    GroupWeights weights_;
};

} // namespace

void wasm::Multiply(const MatrixProduct& p) {
    if (p.inner == 0 || p.inner > kMaxSteps * kStepRows) {
        return plain::Multiply(p);
    }
    WasmProduct product(p);
    if (!MultiplyBySlabs(p, product)) {
        plain::Multiply(p);
    }
}

} // namespace orvo
