// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "tools/pack_models/random_stream.h"

namespace orvo::pack {

// How one byte of the state is disguised between two rounds: an invertible linear map over GF(2),
// then a constant mask.
struct ByteMap {
    std::array<uint8_t, 256> encode; // encode[v] = linear(v) ^ mask
    std::array<uint8_t, 256> decode; // the inverse of encode
    uint8_t mask;

    uint8_t Linear(uint8_t v) const { return static_cast<uint8_t>(encode[v] ^ mask); }
};

// A value and what the map must make of it.
struct ByteWish {
    uint8_t from;
    uint8_t to;
};

// The number of linearly independent values among the differences first ^ other.
int DifferenceRank(std::span<const uint8_t> values);

ByteMap IdentityMap();

// Draws one of the maps that fulfil all wishes (without wishes: any map), each equally likely.
//
// A fitting map exists if and only if the differences of the `from` values fulfil the same linear
// relations as those of the `to` values; if they do not, the result is empty and nothing is drawn.
std::optional<ByteMap> DrawByteMap(std::span<const ByteWish> wishes, RandomStream* random);

} // namespace orvo::pack
