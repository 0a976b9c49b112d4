// SPDX-License-Identifier: MIT
#include "tools/pack_models/white_box_tables.h"

#include <algorithm>
#include <optional>
#include <string>

#include "cipher/aes_tables.h"
#include "cipher/white_box_rounds.h"
#include "orvo/cipher.h"
#include "tools/pack_models/byte_map.h"
#include "tools/pack_models/custom_data.h"
#include "tools/pack_models/pack_error.h"
#include "tools/pack_models/random_stream.h"

namespace orvo::pack {
namespace {

constexpr unsigned kRounds = 10;

// The search for maps that show the custom data ends after so many draws of one column's inputs and
// so many seeds for each number of relations. Two relations in a column take 65536 draws on
// average.
constexpr int kMaxDraws = 1 << 18;
constexpr int kMaxSeeds = 8;
constexpr int kMaxRelations = 2;

using Block = std::array<uint8_t, 16>;

// AES-128 in one direction as ten rounds of the same form: key addition, substitution, a second
// addition, row shift and column mixing.
struct RoundedCipher {
    const uint8_t* box;
    std::array<uint8_t, 4> mixing; // first row of the circulant mixing matrix
    unsigned step;                 // columns to the right from which the next row comes
    Block keyBefore[kRounds];      // added before substitution, at the source's position
    Block keyAfter[kRounds];       // added after it, at the destination's
};

Block RoundKey(const AES_ctx& ctx, unsigned round) {
    Block key;
    std::copy_n(ctx.roundKeys + 16 * round, key.size(), key.begin());
    return key;
}

RoundedCipher Encryption(const Block& key) {
    AES_ctx ctx;
    AES_init_ctx(&ctx, key.data());
    RoundedCipher cipher = {kAesSboxes.forward, {2, 3, 1, 1}, kColumnsToTheRight, {}, {}};
    for (unsigned round = 0; round < kRounds; ++round) {
        cipher.keyBefore[round] = RoundKey(ctx, round);
    }
    cipher.keyAfter[kRounds - 1] = RoundKey(ctx, kRounds);
    return cipher;
}

RoundedCipher Decryption(const Block& key) {
    AES_ctx ctx;
    AES_init_ctx(&ctx, key.data());
    RoundedCipher cipher = {kAesSboxes.inverse, {14, 11, 13, 9}, kColumnsToTheLeft, {}, {}};
    cipher.keyBefore[0] = RoundKey(ctx, kRounds);
    for (unsigned round = 0; round < kRounds; ++round) {
        cipher.keyAfter[round] = RoundKey(ctx, kRounds - 1 - round);
    }
    return cipher;
}

// The maps behind every round, by column and row.
using Maps = std::array<std::array<std::array<ByteMap, 4>, 4>, kRounds>;

unsigned SourceColumn(const RoundedCipher& cipher, unsigned column, unsigned row) {
    return (column + cipher.step * row) % 4;
}

// The byte that index y of a sub-table contributes, before the column mixing.
uint8_t Contribution(const RoundedCipher& cipher, const Maps& maps, unsigned round, unsigned column,
                     unsigned row, uint8_t y) {
    const unsigned source = SourceColumn(cipher, column, row);
    const uint8_t plain = round == 0 ? y : maps[round - 1][source][row].decode[y];
    const uint8_t keyed = plain ^ cipher.keyBefore[round][4 * source + row];
    return cipher.box[keyed] ^ cipher.keyAfter[round][4 * column + row];
}

// The share of a contribution from row `from` in row `to` of its column.
uint8_t Mixed(const RoundedCipher& cipher, unsigned round, unsigned to, unsigned from, uint8_t v) {
    if (round == kRounds - 1) {
        return to == from ? v : 0;
    }
    return GfMultiply(cipher.mixing[(from + 4 - to) % 4], v);
}

// One way to choose the maps of a cipher, so that its tables show given bytes.
class MapSearch {
  public:
    MapSearch(const RoundedCipher& cipher, std::span<const uint8_t> visible, RandomStream* random)
        : cipher_(cipher), visible_(visible), random_(random) {}

    // Draws all maps; false if the bytes cannot be shown within the bound of the search.
    bool Run() {
        for (unsigned round = 0; round + 1 < kRounds; ++round) {
            for (unsigned column = 0; column < 4; ++column) {
                if (!DrawColumn(round, column)) {
                    return false;
                }
            }
        }
        for (auto& column : maps_[kRounds - 1]) {
            column.fill(IdentityMap());
        }
        return true;
    }

    const Maps& maps() const { return maps_; }

  private:
    // What the map at a position must do: carry what it is given at entries 0 to 3 to the bytes
    // to be shown there.
    std::vector<ByteWish> Wishes(unsigned round, unsigned column, unsigned row) const {
        std::vector<ByteWish> wishes;
        if (round == 0) {
            return wishes;
        }
        const size_t first = kBytesPerRound * (round - 1) + kBytesPerColumn * column + 4 * row;
        for (unsigned x = 0; x < 4 && first + x < visible_.size(); ++x) {
            uint8_t given = 0;
            for (unsigned k = 0; k < 4; ++k) {
                const uint8_t v =
                    Contribution(cipher_, maps_, round, column, k, static_cast<uint8_t>(x));
                given ^= Mixed(cipher_, round, row, k, v);
            }
            wishes.push_back({given, visible_[first + x]});
        }
        return wishes;
    }

    bool DrawMap(unsigned round, unsigned column, unsigned row) {
        const auto map = DrawByteMap(Wishes(round, column, row), random_);
        if (map) {
            maps_[round][column][row] = *map;
        }
        return map.has_value();
    }

    bool TryColumn(unsigned round, unsigned column) {
        for (unsigned row = 0; row < 4; ++row) {
            if (!DrawMap(round, column, row)) {
                return false;
            }
        }
        return true;
    }

    // Where a column's wishes contradict each other, the maps in front of it are drawn anew. They
    // feed no other column, and their own wishes stay possible, so nothing else is disturbed.
    bool DrawColumn(unsigned round, unsigned column) {
        for (int draw = 0; draw < kMaxDraws; ++draw) {
            if (TryColumn(round, column)) {
                return true;
            }
            for (unsigned row = 0; row < 4; ++row) {
                (void)DrawMap(round - 1, SourceColumn(cipher_, column, row), row);
            }
        }
        return false;
    }

    const RoundedCipher& cipher_;
    std::span<const uint8_t> visible_;
    RandomStream* random_;
    Maps maps_ = {};
};

// The four constants of a column's sub-tables, which XOR to the column's mask.
std::array<uint32_t, 4> DrawConstants(const std::array<ByteMap, 4>& column, RandomStream* random) {
    std::array<uint32_t, 4> constants = {0, random->Word(), random->Word(), random->Word()};
    constants[0] = constants[1] ^ constants[2] ^ constants[3];
    for (unsigned row = 0; row < 4; ++row) {
        constants[0] ^= static_cast<uint32_t>(column[row].mask) << 8 * row;
    }
    return constants;
}

std::vector<uint32_t> FillTable(const RoundedCipher& cipher, const Maps& maps,
                                RandomStream* random) {
    std::vector<uint32_t> table;
    table.reserve(kTableWords);
    for (unsigned round = 0; round < kRounds; ++round) {
        for (unsigned column = 0; column < 4; ++column) {
            const auto& out = maps[round][column];
            const std::array<uint32_t, 4> constants = DrawConstants(out, random);
            for (unsigned from = 0; from < 4; ++from) {
                for (unsigned y = 0; y < 256; ++y) {
                    const uint8_t v =
                        Contribution(cipher, maps, round, column, from, static_cast<uint8_t>(y));
                    uint32_t word = constants[from];
                    for (unsigned to = 0; to < 4; ++to) {
                        const uint8_t mixed = Mixed(cipher, round, to, from, v);
                        word ^= static_cast<uint32_t>(out[to].Linear(mixed)) << 8 * to;
                    }
                    table.push_back(word);
                }
            }
        }
    }
    return table;
}

// Makes the table with one seed of the custom data's stream, or nothing if the search fails.
std::optional<std::vector<uint32_t>> TryTable(const RoundedCipher& cipher,
                                              std::span<const uint8_t> visible,
                                              RandomStream* random) {
    MapSearch search(cipher, visible, random);
    if (!search.Run()) {
        return std::nullopt;
    }
    return FillTable(cipher, search.maps(), random);
}

} // namespace

std::vector<uint32_t> MakeEncryptTable(const std::array<uint8_t, 16>& key,
                                       const std::array<uint8_t, 32>& seed) {
    RandomStream random(seed, 1);
    // With nothing to show the search succeeds at its first draw.
    return TryTable(Encryption(key), {}, &random).value();
}

std::vector<uint32_t> MakeDecryptTable(const std::array<uint8_t, 16>& key,
                                       const std::array<uint8_t, 32>& seed,
                                       std::span<const uint8_t> customData) {
    if (customData.size() > kMaxCustomData) {
        throw PackError("custom data has " + std::to_string(customData.size()) +
                        " bytes, at most " + std::to_string(kMaxCustomData) + " can be hidden");
    }
    RandomStream random(seed, 0);
    const RoundedCipher cipher = Decryption(key);
    const auto first = static_cast<uint16_t>(random.Word());
    // Seeds that leave fewer relations are tried first; usually one of the first few leaves none.
    for (int relations = 0; relations <= kMaxRelations; ++relations) {
        int tried = 0;
        for (unsigned n = 0; n < 65536 && tried < kMaxSeeds; ++n) {
            const auto streamSeed = static_cast<uint16_t>(first + n);
            const std::vector<uint8_t> visible = MaskCustomData(customData, streamSeed);
            if (CountRelations(visible) == relations) {
                ++tried;
                if (auto table = TryTable(cipher, visible, &random)) {
                    return *std::move(table);
                }
            }
        }
    }
    throw PackError("this custom data cannot be hidden in the table under the key file's seed");
}

} // namespace orvo::pack
