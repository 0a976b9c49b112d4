// SPDX-License-Identifier: MIT
//
// A model of the tile instructions, with the interface of compute_a/simd/amx/instructions.h: what the
// processor would refuse ends the test with a word that says why.
#pragma once

#include <cstddef>

namespace orvo_test {

void ConfigureModelTiles(const void* shapes);
void ReleaseModelTiles();
void LoadModelTile(int tile, const void* from, size_t stride);
void StoreModelTile(int tile, void* to, size_t stride);
void MultiplyModelTiles(int sums, int a, int b);

// How many times tiles have been multiplied in this thread.
size_t ModelMultiplications();

} // namespace orvo_test

namespace orvo {
namespace { // nothing that another file could have in another way

inline void ConfigureTiles(const void* shapes) { orvo_test::ConfigureModelTiles(shapes); }
inline void ReleaseTiles() { orvo_test::ReleaseModelTiles(); }
template <int kTile>
inline void LoadTile(const void* from, size_t stride) {
    orvo_test::LoadModelTile(kTile, from, stride);
}
template <int kTile>
inline void StoreTile(void* to, size_t stride) {
    orvo_test::StoreModelTile(kTile, to, stride);
}
template <int kSums, int kA, int kB>
inline void MultiplyTiles() {
    orvo_test::MultiplyModelTiles(kSums, kA, kB);
}

} // namespace
} // namespace orvo
