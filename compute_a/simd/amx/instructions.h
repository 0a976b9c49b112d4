// SPDX-License-Identifier: MIT
//
// The tile instructions of AMX.
//
// Statements of assembly: GCC 12's intrinsics do not tell the compiler what memory they read. No
// register is listed as changed, since nothing else uses tiles and the compiler does not know them.
#pragma once

#include <cstddef>

namespace orvo {
namespace { // nothing that another file could have in another way

// The shapes of the tile registers: 64 bytes, as ldtilecfg reads them.
inline void ConfigureTiles(const void* shapes) {
    __asm__ volatile("ldtilecfg %0" ::"m"(*static_cast<const unsigned char(*)[64]>(shapes)));
}
inline void ReleaseTiles() { __asm__ volatile("tilerelease"); }

// Rows that are `stride` bytes apart.
template <int kTile>
inline void LoadTile(const void* from, size_t stride) {
    __asm__ volatile("tileloadd (%0,%1,1), %%tmm%c2" ::"r"(from), "r"(stride), "i"(kTile)
                     : "memory");
}
template <int kTile>
inline void StoreTile(void* to, size_t stride) {
    __asm__ volatile("tilestored %%tmm%c2, (%0,%1,1)" ::"r"(to), "r"(stride), "i"(kTile)
                     : "memory");
}

// Sums of 32 bits += A's rows of signed bytes by B's, in which four rows stand side by side.
template <int kSums, int kA, int kB>
inline void MultiplyTiles() {
    __asm__ volatile("tdpbssd %%tmm%c2, %%tmm%c1, %%tmm%c0" ::"i"(kSums), "i"(kA), "i"(kB));
}

} // namespace
} // namespace orvo
