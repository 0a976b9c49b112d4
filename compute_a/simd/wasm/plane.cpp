// SPDX-License-Identifier: MIT
//
// Convolution of one plane with WebAssembly's vectors: tiles of 8 pixels, whose values are put in
// pairs once for all channels. Nine weights and a zero make five pairs:
//
//     left and centre of row 0, 1, 2 | right of rows 0 and 1 | right of row 2 and nothing
//
// Register plan: 10 vectors of values, 2 sums, a pair of weights and a product.
#include <cstring>

#include "compute_a/simd/wasm/lanes.h"
#include "compute_a/simd/wasm/routines.h"

namespace orvo {
namespace {

constexpr size_t kTilePixels = 8;
constexpr size_t kPairs = 5;

// A filter's weights as they meet the pairs of values.
struct PairedFilter {
    int16_t pairs[kPairs][2];
};

void PairFilters(const PlaneConvolution& p, PairedFilter* paired) {
    for (size_t c = 0; c < p.channels; ++c) {
        const auto& w = p.filters[c];
        paired[c] = {{{w[0][0], w[0][1]},
                      {w[1][0], w[1][1]},
                      {w[2][0], w[2][1]},
                      {w[0][2], w[1][2]},
                      {w[2][2], 0}}};
    }
}

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

// Pairs of values of 4 pixels each.
struct TileValues {
    Vector low[kPairs], high[kPairs];

    TileValues(const int8_t* at, size_t pitch) {
        Vector right[3];
        for (size_t row = 0; row < 3; ++row, at += pitch) {
            const Vector left = wasm_i16x8_load8x8(at);
            const Vector centre = wasm_i16x8_load8x8(at + 1);
            right[row] = wasm_i16x8_load8x8(at + 2);
            Pair(row, left, centre);
        }
        Pair(3, right[0], right[1]);
        Pair(4, right[2], wasm_i64x2_splat(0));
    }

  private:
    void Pair(size_t pair, Vector first, Vector second) {
        low[pair] = wasm_i16x8_shuffle(first, second, 0, 8, 1, 9, 2, 10, 3, 11);
        high[pair] = wasm_i16x8_shuffle(first, second, 4, 12, 5, 13, 6, 14, 7, 15);
    }
};

inline Vector MultiplyTile(const TileValues& values, const PairedFilter& filter, int32_t bias,
                           uint32_t shift) {
    Vector low = wasm_i32x4_splat(bias);
    Vector high = low;
    for (size_t pair = 0; pair < kPairs; ++pair) {
        const Vector weights = wasm_v128_load32_splat(filter.pairs[pair]);
        low = wasm_i32x4_add(low, wasm_i32x4_dot_i16x8(values.low[pair], weights));
        high = wasm_i32x4_add(high, wasm_i32x4_dot_i16x8(values.high[pair], weights));
    }
    const Vector words = wasm_i16x8_narrow_i32x4(ShiftRight(low, shift), ShiftRight(high, shift));
    return wasm_i8x16_narrow_i16x8(words, words);
}

} // namespace

bool wasm::ConvolvePlane(const PlaneConvolution& p) {
    if (p.width < kTilePixels || PaddedPlane::Bytes(p.width, p.height) > p.scratchBytes) {
        return false;
    }
    PairedFilter filters[PlaneConvolution::kMostChannels];
    PairFilters(p, filters);
    const PaddedPlane padded = PadPlane(p);
    const uint32_t shift = ShiftCount(p.shift);
    const size_t plane = p.width * p.height;
    for (size_t y = 0; y < p.height; ++y) {
        for (size_t next = 0; next < p.width; next += kTilePixels) {
            // The last tile of a row may overlap the one before it.
            const size_t x = next + kTilePixels <= p.width ? next : p.width - kTilePixels;
            const TileValues values(padded.values + y * padded.pitch + x, padded.pitch);
            int8_t* dst = p.dst + y * p.width + x;
            for (size_t c = 0; c < p.channels; ++c, dst += plane) {
                wasm_v128_store64_lane(dst, MultiplyTile(values, filters[c], p.bias[c], shift), 0);
            }
        }
    }
    return true;
}

} // namespace orvo
