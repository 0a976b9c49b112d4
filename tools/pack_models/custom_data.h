// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace orvo::pack {

// The bytes that a decryption table shows a reader who XORs the four sub-tables of a column at
// entries 0 to 3: a 16-bit seed, then the length and the custom data, both masked with the stream
// that the seed starts. They are spread over rounds 1 to 5: 64 bytes a round, 16 a column, 4 (one
// for each entry) for each byte of the column's word.
constexpr size_t kMaxCustomData = 256;
constexpr unsigned kBytesPerColumn = 16;
constexpr unsigned kBytesPerRound = 64;

// The visible bytes for some custom data and a seed.
std::vector<uint8_t> MaskCustomData(std::span<const uint8_t> data, uint16_t seed);

// How hard it is to make a table show the bytes: every group of four must come out of an invertible
// linear map, so each linear relation among a group's differences must hold among the values that
// the map is given as well, for which chance is 1 to 256. Returns the largest number of relations
// in one column.
int CountRelations(std::span<const uint8_t> visible);

} // namespace orvo::pack
