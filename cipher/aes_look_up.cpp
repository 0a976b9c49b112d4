// SPDX-License-Identifier: MIT
//
// AES-128 decryption by one table of words: for each byte its inverse substitution and its share of
// the inverse column mixing. A column takes four look-ups, three of them rotated. For processors
// without AES instructions. Compiled without early scheduling (cmake/InstructionSets.cmake),
// opening the models takes 41 instructions a byte on 32-bit ARM, 48 with it.
#include <bit>

#include "cipher/aes_routines.h"
#include "cipher/aes_tables.h"
#include "cipher/blocks.h"
#include "cipher/wipe.h"

namespace orvo {
namespace {

struct MixTable {
    uint32_t share[256]; // of row 0; the other rows' shares are this one rotated
};

constexpr uint32_t MixShare(uint8_t value) {
    return GfMultiply(value, 0x0e) | static_cast<uint32_t>(GfMultiply(value, 0x09)) << 8 |
           static_cast<uint32_t>(GfMultiply(value, 0x0d)) << 16 |
           static_cast<uint32_t>(GfMultiply(value, 0x0b)) << 24;
}

constexpr MixTable MakeMixTable() {
    MixTable table = {};
    for (int b = 0; b < 256; ++b) {
        table.share[b] = MixShare(kAesSboxes.inverse[b]);
    }
    return table;
}

constexpr MixTable kMix = MakeMixTable();

// The keys of the equivalent inverse cipher, in the order that it uses them: the inner ones have
// gone through the inverse column mixing, because here they are added after it.
struct InverseKeys {
    uint32_t word[kAesRounds + 1][4];

    explicit InverseKeys(const uint8_t* roundKeys) {
        for (int round = 0; round <= kAesRounds; ++round) {
            for (int column = 0; column < 4; ++column) {
                const uint8_t* key = roundKeys + 16 * (kAesRounds - round) + 4 * column;
                const bool isInner = round > 0 && round < kAesRounds;
                word[round][column] = isInner ? Mix(key) : LoadWord(key);
            }
        }
    }
    ~InverseKeys() { Wipe(word, sizeof word); }

  private:
    // The table substitutes before it mixes, so the bytes are substituted forward first.
    static uint32_t Mix(const uint8_t* column) {
        const auto share = [column](int row) {
            return kMix.share[kAesSboxes.forward[column[row]]];
        };
        return share(0) ^ std::rotl(share(1), 8) ^ std::rotl(share(2), 16) ^
               std::rotl(share(3), 24);
    }
};

struct State {
    uint32_t a, b, c, d;
};

// One output column: row k comes from the k-th column to the left.
inline uint32_t MixedColumn(uint32_t row0, uint32_t row1, uint32_t row2, uint32_t row3,
                            uint32_t key) {
    return kMix.share[row0 & 0xff] ^ std::rotl(kMix.share[(row1 >> 8) & 0xff], 8) ^
           std::rotl(kMix.share[(row2 >> 16) & 0xff], 16) ^ std::rotl(kMix.share[row3 >> 24], 24) ^
           key;
}

inline uint32_t LastColumn(uint32_t row0, uint32_t row1, uint32_t row2, uint32_t row3,
                           uint32_t key) {
    const uint8_t* box = kAesSboxes.inverse;
    return (box[row0 & 0xff] | static_cast<uint32_t>(box[(row1 >> 8) & 0xff]) << 8 |
            static_cast<uint32_t>(box[(row2 >> 16) & 0xff]) << 16 |
            static_cast<uint32_t>(box[row3 >> 24]) << 24) ^
           key;
}

inline State Decrypt(const InverseKeys& keys, State s) {
    const uint32_t* key = keys.word[0];
    s = {s.a ^ key[0], s.b ^ key[1], s.c ^ key[2], s.d ^ key[3]};
    for (int round = 1; round < kAesRounds; ++round) {
        key = keys.word[round];
        s = {MixedColumn(s.a, s.d, s.c, s.b, key[0]), MixedColumn(s.b, s.a, s.d, s.c, key[1]),
             MixedColumn(s.c, s.b, s.a, s.d, key[2]), MixedColumn(s.d, s.c, s.b, s.a, key[3])};
    }
    key = keys.word[kAesRounds];
    return {LastColumn(s.a, s.d, s.c, s.b, key[0]), LastColumn(s.b, s.a, s.d, s.c, key[1]),
            LastColumn(s.c, s.b, s.a, s.d, key[2]), LastColumn(s.d, s.c, s.b, s.a, key[3])};
}

State Load(const uint8_t* block) {
    return {LoadWord(block), LoadWord(block + 4), LoadWord(block + 8), LoadWord(block + 12)};
}

void Store(uint8_t* block, const State& s) {
    StoreWord(block, s.a);
    StoreWord(block + 4, s.b);
    StoreWord(block + 8, s.c);
    StoreWord(block + 12, s.d);
}

} // namespace

void DecryptBlockByLookUp(const uint8_t* roundKeys, uint8_t* block) {
    const InverseKeys keys(roundKeys);
    State s = Decrypt(keys, Load(block));
    Store(block, s);
    Wipe(&s, sizeof s);
}

void DecryptCbcByLookUp(const uint8_t* roundKeys, uint8_t* iv, uint8_t* buffer, size_t blocks) {
    const InverseKeys keys(roundKeys);
    State chain = Load(iv);
    State s = {};
    for (; blocks > 0; --blocks, buffer += kBlockSize) {
        const State cipherText = Load(buffer);
        s = Decrypt(keys, cipherText);
        Store(buffer, {s.a ^ chain.a, s.b ^ chain.b, s.c ^ chain.c, s.d ^ chain.d});
        chain = cipherText;
    }
    Store(iv, chain);
    Wipe(&s, sizeof s);
    Wipe(&chain, sizeof chain);
}

} // namespace orvo
