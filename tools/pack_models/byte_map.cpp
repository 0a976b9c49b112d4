// SPDX-License-Identifier: MIT
#include "tools/pack_models/byte_map.h"

#include <bit>
#include <vector>

namespace orvo::pack {
namespace {

// A pair that the linear map must respect: from is carried to to.
struct Pair {
    uint8_t from;
    uint8_t to;
};

uint8_t HighestBit(uint8_t v) { return static_cast<uint8_t>(std::bit_floor(v)); }

// The values that a set of bytes spans by XOR.
class Span {
  public:
    // Adds a value; false if it was spanned already.
    bool Add(uint8_t value) {
        for (size_t i = 0; i < rank_; ++i) {
            if ((value & HighestBit(basis_[i])) != 0) {
                value = static_cast<uint8_t>(value ^ basis_[i]);
            }
        }
        if (value == 0) {
            return false;
        }
        basis_[rank_++] = value;
        return true;
    }
    int rank() const { return static_cast<int>(rank_); }

  private:
    std::array<uint8_t, 8> basis_ = {}; // no member contains the highest bit of one before it
    size_t rank_ = 0;
};

// Turns the wishes into independent pairs, or nothing where they contradict each other.
std::optional<std::vector<Pair>> IndependentPairs(std::span<const ByteWish> wishes) {
    std::vector<Pair> pairs;
    Span images;
    for (const ByteWish& wish : wishes) {
        Pair pair = {static_cast<uint8_t>(wish.from ^ wishes[0].from),
                     static_cast<uint8_t>(wish.to ^ wishes[0].to)};
        for (const Pair& earlier : pairs) {
            if ((pair.from & HighestBit(earlier.from)) != 0) {
                pair.from = static_cast<uint8_t>(pair.from ^ earlier.from);
                pair.to = static_cast<uint8_t>(pair.to ^ earlier.to);
            }
        }
        if (pair.from == 0 && pair.to == 0) {
            continue;
        }
        if (pair.from == 0 || !images.Add(pair.to)) {
            return std::nullopt;
        }
        pairs.push_back(pair);
    }
    return pairs;
}

// Completes the pairs to a basis, with random images.
void CompletePairs(std::vector<Pair>* pairs, RandomStream* random) {
    Span images;
    unsigned leading = 0; // the highest bits of the pairs, which are all different
    for (const Pair& pair : *pairs) {
        images.Add(pair.to);
        leading |= HighestBit(pair.from);
    }
    for (unsigned bit = 1; bit < 256; bit <<= 1) {
        if ((leading & bit) == 0) {
            uint8_t image = random->Byte();
            while (!images.Add(image)) {
                image = random->Byte();
            }
            pairs->push_back({static_cast<uint8_t>(bit), image});
        }
    }
}

} // namespace

int DifferenceRank(std::span<const uint8_t> values) {
    Span differences;
    for (const uint8_t value : values) {
        differences.Add(static_cast<uint8_t>(value ^ values[0]));
    }
    return differences.rank();
}

ByteMap IdentityMap() {
    ByteMap map = {};
    for (unsigned v = 0; v < 256; ++v) {
        map.encode[v] = map.decode[v] = static_cast<uint8_t>(v);
    }
    return map;
}

std::optional<ByteMap> DrawByteMap(std::span<const ByteWish> wishes, RandomStream* random) {
    std::optional<std::vector<Pair>> pairs = IndependentPairs(wishes);
    if (!pairs) {
        return std::nullopt;
    }
    CompletePairs(&*pairs, random);
    ByteMap map = {};
    // Every value is a sum of `from`s; each pair doubles the number of sums that are known.
    std::array<uint8_t, 256> sums = {};
    for (unsigned b = 0; b < 8; ++b) {
        for (unsigned i = 0; i < 1u << b; ++i) {
            const auto sum = static_cast<uint8_t>(sums[i] ^ (*pairs)[b].from);
            sums[i + (1u << b)] = sum;
            map.encode[sum] = static_cast<uint8_t>(map.encode[sums[i]] ^ (*pairs)[b].to);
        }
    }
    map.mask = wishes.empty() ? random->Byte()
                              : static_cast<uint8_t>(map.encode[wishes[0].from] ^ wishes[0].to);
    for (unsigned v = 0; v < 256; ++v) {
        map.encode[v] = static_cast<uint8_t>(map.encode[v] ^ map.mask);
        map.decode[map.encode[v]] = static_cast<uint8_t>(v);
    }
    return map;
}

} // namespace orvo::pack
