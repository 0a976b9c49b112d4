// SPDX-License-Identifier: MIT
//
// The tile registers of AMX, and how sums go from them to bytes.
//
// tdpbssd multiplies 16 rows of 64 signed bytes by 64 rows of 16 and adds to 16 x 16 sums of 32
// bits, wrapping: eight times what the vector ports do, on a unit of its own. So what costs is the
// rest. Making a tile of sums and storing it takes 26 cycles, whatever its shape, and requantising
// it 18 more, of which hardly any overlap; four rows of 64 pixels take 8 to be packed, and what is
// stored reaches a tile only once it and all that was stored before it is in the first cache.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "compute_a/routines.h"
#include "compute_a/simd/avx512vnni/lanes.h"
#include "compute_a/simd/product.h"

// The tests put a model in the place of the tile instructions, so that what is made with them is
// tested on processors without tiles, too.
#ifdef ORVO_TILE_INSTRUCTIONS
#include ORVO_TILE_INSTRUCTIONS
#else
#include "compute_a/simd/amx/instructions.h"
#endif

namespace orvo {
namespace {

// ---- Tiles -------------------------------------------------------------------------------------

// The shape of each tile register, as ldtilecfg reads it.
struct alignas(64) TileShapes {
    uint8_t palette = 1;
    uint8_t startRow = 0;
    uint8_t reserved[14] = {};
    uint16_t rowBytes[16] = {};
    uint8_t rows[16] = {};

    void Set(size_t tile, size_t tileRows, size_t bytes) {
        rows[tile] = static_cast<uint8_t>(tileRows);
        rowBytes[tile] = static_cast<uint16_t>(bytes);
    }
};

// In effect as long as it lives: tiles in use make every switch to another thread dearer.
class Tiles {
  public:
    explicit Tiles(const TileShapes& shapes) { ConfigureTiles(&shapes); }
    ~Tiles() { ReleaseTiles(); }
    Tiles(const Tiles&) = delete;
    Tiles& operator=(const Tiles&) = delete;
};

// ---- Sums --------------------------------------------------------------------------------------
//
// Registers: 0 to 3 the sums of four B's, 4 and 5 the weights, 6 and 7 the pixels. The processor
// renames them, so a register is loaded anew as soon as what was in it is stored.
//
// A block's sums are stored only when the next one's are about to be made, since they take 50
// cycles to be made and a store that waits holds up all that comes after it; and requantised when
// those have been made, since what a tile stores is to be had only from the first cache. So the
// registers always have the sums of the block before.

constexpr size_t kTileRows = 16;
constexpr size_t kTileBytes = 1024;
constexpr size_t kVectorPixels = 16;
constexpr size_t kBlockVectors = 4;
constexpr size_t kQuadPixels = kBlockVectors * kVectorPixels;

// By channel of a tile, pixel.
using Sums = int32_t[kTileRows][kQuadPixels];

// How pixels are spread over the vectors of a channel's sums.
enum class PixelOrder {
    kUnpacked,    // a quad as PackQuad() leaves it; requantising undoes it
    kInterleaved, // a quad of which each vector has every fourth
    kAsTheyAre,   // 16 after 16
};

// A tile of channels by up to four vectors of pixels: whose sums they are and what becomes of them.
struct Block {
    size_t vectors;
    size_t channels;
    size_t pixels;
    PixelOrder order;
    uint32_t shift;
    int8_t* dst;
    size_t planePitch;
};

template <PixelOrder kOrder, bool ShiftWords>
void RequantiseQuad(const Sums& sums, const Block& block) {
    const __m512i shift = ShiftCounts<ShiftWords>(block.shift);
    const __m512i interleave = _mm512_broadcast_i32x4(TransposeFourByFour());
    int8_t* dst = block.dst;
    for (size_t c = 0; c < block.channels; ++c, dst += block.planePitch) {
        const __m512i plane[4] = {_mm512_load_si512(sums[c]), _mm512_load_si512(sums[c] + 16),
                                  _mm512_load_si512(sums[c] + 32), _mm512_load_si512(sums[c] + 48)};
        __m512i bytes = Requantise<ShiftWords>(plane, shift);
        if constexpr (kOrder == PixelOrder::kInterleaved) {
            bytes = _mm512_shuffle_epi8(bytes, interleave);
        }
        _mm512_storeu_si512(dst, bytes);
    }
}

template <bool ShiftWords>
void RequantiseVectors(const Sums& sums, const Block& block) {
    const __m512i shift = ShiftCounts<ShiftWords>(block.shift);
    for (size_t v = 0; v < block.vectors; ++v) {
        const __mmask16 inside = FirstBytes16(block.pixels - v * kVectorPixels);
        int8_t* dst = block.dst + v * kVectorPixels;
        for (size_t c = 0; c < block.channels; c += 4, dst += 4 * block.planePitch) {
            const int32_t* const at = sums[c] + v * kVectorPixels;
            const __m512i planes[4] = {_mm512_load_si512(at), _mm512_load_si512(at + kQuadPixels),
                                       _mm512_load_si512(at + 2 * kQuadPixels),
                                       _mm512_load_si512(at + 3 * kQuadPixels)};
            StoreFourPlanes(Requantise<ShiftWords>(planes, shift), dst, block.planePitch,
                            block.channels - c, inside);
        }
    }
}

template <bool ShiftWords>
void RequantiseBlock(const Sums& sums, const Block& block) {
    switch (block.order) {
        case PixelOrder::kUnpacked:
            return RequantiseQuad<PixelOrder::kUnpacked, ShiftWords>(sums, block);
        case PixelOrder::kInterleaved:
            return RequantiseQuad<PixelOrder::kInterleaved, ShiftWords>(sums, block);
        default:
            return RequantiseVectors<ShiftWords>(sums, block);
    }
}

template <int kVector>
using Vector = std::integral_constant<int, kVector>;

// The sums that are in the registers, and room for them.
struct SumsInWork {
    alignas(64) Sums sums;
    Block block{};
};

template <int kVector, typename MakeSums>
inline void MakeVector(SumsInWork& work, const Block& next, const MakeSums& makeSums) {
    if (kVector < work.block.vectors) {
        StoreTile<kVector>(&work.sums[0][kVector * kVectorPixels], sizeof work.sums[0]);
    }
    if (kVector < next.vectors) {
        makeSums(Vector<kVector>{});
    }
}

// Ends the block in work and begins the next one; `makeSums(vector)` makes the sums of one of its
// vectors, in the register of that number.
template <typename MakeSums>
inline void MakeBlock(SumsInWork& work, const Block& next, const MakeSums& makeSums) {
    for (size_t c = 0; c < next.channels; ++c) {
        const int8_t* const outputs = next.dst + c * next.planePitch;
        PrefetchToWrite(outputs);
        PrefetchToWrite(outputs + next.pixels - 1);
    }
    MakeVector<0>(work, next, makeSums);
    MakeVector<1>(work, next, makeSums);
    MakeVector<2>(work, next, makeSums);
    MakeVector<3>(work, next, makeSums);
    // Requantising waits for the new sums. Done at the same time it would take fewer cycles, but
    // tiles that are busy all the time make the processor lower its clock, for all other layers as
    // well: to 2.5 GHz from 3.1 where it was measured, and a face took 1.1 times as long.
    _mm_lfence();
    if (work.block.shift <= 8) {
        RequantiseBlock<true>(work.sums, work.block);
    } else {
        RequantiseBlock<false>(work.sums, work.block);
    }
    work.block = next;
}

void EndLastBlock(SumsInWork& work) {
    MakeBlock(work, Block{}, [](auto) {});
}

// The scratch from a cache line's start on: tiles whose rows straddle two lines take six times as
// long to load.
struct Scratch {
    int8_t* start;
    size_t bytes;

    Scratch(int8_t* given, size_t givenBytes) {
        const size_t skip = (64 - reinterpret_cast<uintptr_t>(given) % 64) % 64;
        start = given + skip;
        bytes = givenBytes - Least(skip, givenBytes);
    }
};

// Four channels: 64 bytes hold 16 rows of them, side by side. `to` is the first channel's.
void PackGroup(const MatrixProduct& p, const int8_t* weights, int8_t* to) {
    alignas(64) static constexpr uint8_t kByChannel[64] = {
        0,  4,  8,  12, 16, 20, 24, 28, 32, 36, 40, 44, 48, 52, 56, 60, 1,  5,  9,  13, 17, 21,
        25, 29, 33, 37, 41, 45, 49, 53, 57, 61, 2,  6,  10, 14, 18, 22, 26, 30, 34, 38, 42, 46,
        50, 54, 58, 62, 3,  7,  11, 15, 19, 23, 27, 31, 35, 39, 43, 47, 51, 55, 59, 63};
    const __m512i byChannel = _mm512_load_si512(kByChannel);
    for (size_t k = 0; k < p.inner; k += 64, to += kTileBytes, weights += 256) {
        __m512i rows[4];
        for (size_t i = 0; i < 4; ++i) {
            const __mmask64 inside =
                k + 16 * i < p.inner ? FirstBytes(4 * (p.inner - k - 16 * i)) : 0;
            rows[i] = _mm512_permutexvar_epi8(byChannel, LoadBytes(inside, weights + 64 * i));
        }
        const __m512i a = _mm512_shuffle_i32x4(rows[0], rows[1], 0x44);
        const __m512i b = _mm512_shuffle_i32x4(rows[2], rows[3], 0x44);
        const __m512i c = _mm512_shuffle_i32x4(rows[0], rows[1], 0xEE);
        const __m512i d = _mm512_shuffle_i32x4(rows[2], rows[3], 0xEE);
        _mm512_store_si512(to, _mm512_shuffle_i32x4(a, b, 0x88));
        _mm512_store_si512(to + 64, _mm512_shuffle_i32x4(a, b, 0xDD));
        _mm512_store_si512(to + 128, _mm512_shuffle_i32x4(c, d, 0x88));
        _mm512_store_si512(to + 192, _mm512_shuffle_i32x4(c, d, 0xDD));
    }
}

} // namespace
} // namespace orvo
