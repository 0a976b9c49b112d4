// SPDX-License-Identifier: MIT
//
// The walk of a matrix product, once for all instruction sets:
//
//              pixels
//          ┌─────────── slab ────────────┬──────────── slab ──── ...
//          │ tile │ tile │ tile │  rest  │ tile │ tile │
//   ┌──────┼──────┼──────┼──────┼────────┼──────┼──
//   │group │ sums │ sums │ sums │  sums  │
//   ├──────┼──────┼──────┼──────┼────────┼──
//   │group │      │      │      │        │
//   channels
//
// A slab is as many pixels as fit the scratch and stay in the first cache. Its rows are packed: a
// step is the few rows, two or four, whose values of one pixel stand side by side in a 32-bit lane.
// Then one group of channels after the other has its weights made ready, in the same steps, and
// meets the slab tile by tile: a tile is the pixels whose sums of a group the registers hold at a
// time. The sums start from the bias and go over all steps; then they are requantised and stored.
// The rest is what a slab has left behind its whole tiles.
//
// What differs from one instruction set to another is its scheme, a class with
//
//     Scheme(product)              constants of this product
//     size_t GroupChannels()       the channels of a group, a multiple of four; of the last, at most
//     Slab                         which pixels, and where they are packed; pixels() says how many
//     Slab SlabFrom(pixel)         the next slab; none, of no pixels, where the scratch has no room
//     void MakeReady(group)        the weights and starting sums of a group
//     void Pack(slab)
//     void MultiplyTiles(group, slab)
//     void MultiplyRest(group, slab)
//
// Each file that includes this has the walk to itself: it is compiled for one instruction set.
#pragma once

#include <cstddef>
#include <cstdint>

#include "compute_a/routines.h"

namespace orvo {
namespace {

// Channels that are taken together, at most as many as a group of the scheme has.
struct ChannelGroup {
    size_t first;
    size_t channels;
    const int8_t* weights; // of the first; see MatrixProduct
};

inline size_t Least(size_t a, size_t b) { return a < b ? a : b; }

// Of `tiles` those for the next slab: as few slabs as there is room for, of much the same size.
inline size_t TilesOfSlab(size_t tiles, size_t most) {
    if (most == 0) {
        return 0;
    }
    const size_t slabs = (tiles + most - 1) / most;
    return slabs == 0 ? 0 : (tiles + slabs - 1) / slabs;
}

// For schemes that pack a slab from the start of the scratch, whole tiles first.
template <size_t TilePixels>
struct TileSlab {
    size_t first, tiles, rest;
    size_t pixels() const { return tiles * TilePixels + rest; }
};

// The next slab where the scratch holds at most so many tiles; a rest takes the room of one.
template <size_t TilePixels>
inline TileSlab<TilePixels> TileSlabFrom(const MatrixProduct& p, size_t pixel, size_t mostTiles) {
    const size_t left = p.pixels - pixel;
    const size_t tiles = TilesOfSlab((left + TilePixels - 1) / TilePixels, mostTiles);
    const size_t count = Least(tiles * TilePixels, left);
    return {pixel, count / TilePixels, count % TilePixels};
}

// Where a group's outputs of a slab begin.
template <size_t TilePixels>
inline int8_t* OutputOf(const MatrixProduct& p, const ChannelGroup& group,
                        const TileSlab<TilePixels>& slab) {
    return p.dst + group.first * p.planePitch + slab.first;
}

// Groups begin at multiples of four channels, since that is how the weights are stored.
inline ChannelGroup GroupFrom(const MatrixProduct& p, size_t first, size_t most) {
    return {first, Least(most, p.channels - first), p.weights + first / 4 * p.groupBytes};
}

// Returns false, having left some of the product unmade, where the scratch has no room for a slab.
template <typename Scheme>
inline bool MultiplyBySlabs(const MatrixProduct& p, Scheme& scheme) {
    if (p.channels == 0) {
        return true;
    }
    const size_t groupChannels = scheme.GroupChannels();
    for (size_t pixel = 0; pixel < p.pixels;) {
        const typename Scheme::Slab slab = scheme.SlabFrom(pixel);
        if (slab.pixels() == 0) {
            return false;
        }
        // The first group's weights before the pixels: what is packed last is met first.
        ChannelGroup group = GroupFrom(p, 0, groupChannels);
        scheme.MakeReady(group);
        scheme.Pack(slab);
        for (;;) {
            scheme.MultiplyTiles(group, slab);
            scheme.MultiplyRest(group, slab);
            if (group.first + group.channels >= p.channels) {
                break;
            }
            group = GroupFrom(p, group.first + group.channels, groupChannels);
            scheme.MakeReady(group);
        }
        pixel += slab.pixels();
    }
    return true;
}

} // namespace
} // namespace orvo
