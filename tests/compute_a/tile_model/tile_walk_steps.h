// SPDX-License-Identifier: MIT
//
// Tiles of random shapes, loaded, multiplied more than once, and stored. What is stored is the
// answer. To be included after what the tile instructions are to be.
#pragma once

#include "compute_a/tile_model/tile_walk.h"
#include "support/random.h"

namespace orvo_test {
namespace {

struct WalkBuffer {
    static constexpr size_t kStride = 80;
    alignas(64) uint8_t bytes[16 * kStride];

    explicit WalkBuffer(Random& random, bool extremes) {
        random.Fill(reinterpret_cast<int8_t*>(bytes), sizeof bytes);
        for (uint8_t& byte : bytes) {
            byte = extremes ? (byte & 1) != 0 ? 0x80 : 0x7F : byte;
        }
    }
};

// The numbers of the registers are part of the instructions, so that each is written out.
std::vector<uint8_t> Walk(uint64_t seed) {
    Random random(seed);
    const int rows = random.Between(1, 16);
    const int steps = random.Between(1, 16);
    const int columns = random.Between(1, 16);
    WalkShapes shapes;
    for (const int tile : {0, 1, 2, 3}) {
        shapes.Set(tile, rows, 4 * columns);
    }
    for (const int tile : {4, 5}) {
        shapes.Set(tile, rows, 4 * steps);
    }
    for (const int tile : {6, 7}) {
        shapes.Set(tile, steps, 4 * columns);
    }
    const bool extremes = seed % 4 == 0;
    const WalkBuffer sums(random, false), a(random, extremes), b(random, extremes);
    WalkBuffer out[4] = {sums, sums, sums, sums};
    constexpr size_t kStride = WalkBuffer::kStride;
    orvo::ConfigureTiles(&shapes);
    orvo::LoadTile<0>(sums.bytes, kStride);
    orvo::LoadTile<1>(sums.bytes + 7, kStride);
    orvo::LoadTile<2>(sums.bytes, 64);
    orvo::LoadTile<4>(a.bytes, kStride);
    orvo::LoadTile<5>(a.bytes + 3, kStride);
    orvo::LoadTile<6>(b.bytes, kStride);
    orvo::LoadTile<7>(b.bytes + 16, 64);
    orvo::MultiplyTiles<0, 4, 6>();
    orvo::MultiplyTiles<0, 5, 7>();
    orvo::MultiplyTiles<1, 4, 7>();
    orvo::MultiplyTiles<2, 5, 6>();
    orvo::MultiplyTiles<3, 4, 6>(); // sums that start as configuring leaves them
    orvo::MultiplyTiles<2, 4, 6>();
    orvo::StoreTile<0>(out[0].bytes, kStride);
    orvo::StoreTile<1>(out[1].bytes + 5, kStride);
    orvo::StoreTile<2>(out[2].bytes, 64);
    orvo::StoreTile<3>(out[3].bytes, kStride);
    orvo::ReleaseTiles();
    std::vector<uint8_t> all;
    for (const WalkBuffer& buffer : out) {
        all.insert(all.end(), buffer.bytes, buffer.bytes + sizeof buffer.bytes);
    }
    return all;
}

} // namespace
} // namespace orvo_test
