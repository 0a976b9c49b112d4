// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace orvo::pack {

// White-box tables: 10 rounds x 16 sub-tables x 256 words that compute AES-128 under a key without
// showing it. In every round byte k of each output column's four source bytes selects a word in
// sub-table 4 * column + k, and the four words XOR into the column.
//
// A sub-table folds together key addition, substitution and its byte's share of the column mixing.
// Between rounds every byte of the state is disguised by a random invertible linear map and a mask
// (byte_map.h): a sub-table's words are carried through the maps of the column that it feeds, and
// its index comes through the map of the byte that selects it. Since the maps are linear they pass
// through the XOR; the mask of a column is the XOR of four random constants, one in each sub-table.
// The first round's input and the last round's output are not disguised.
//
// The same key and seed (and custom data) give the same tables.

constexpr size_t kTableWords = 10 * 16 * 256;

std::vector<uint32_t> MakeEncryptTable(const std::array<uint8_t, 16>& key,
                                       const std::array<uint8_t, 32>& seed);

// Hides up to kMaxCustomData bytes in the table (custom_data.h) by a choice of the maps; the cipher
// stays the same. More bytes, or bytes that no tried choice can hide, are refused by a PackError.
std::vector<uint32_t> MakeDecryptTable(const std::array<uint8_t, 16>& key,
                                       const std::array<uint8_t, 32>& seed,
                                       std::span<const uint8_t> customData);

} // namespace orvo::pack
