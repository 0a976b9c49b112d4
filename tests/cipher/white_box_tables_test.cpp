// SPDX-License-Identifier: MIT
// The generator of the white-box tables: what the tables compute, what they show, and the custom
// data hidden in them. The walk through a table and the reading of custom data are written here a
// second time.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "orvo/cipher.h"
#include "slow_aes.h"
#include "support/random.h"
#include "test_keys.h"
#include "tools/pack_models/byte_map.h"
#include "tools/pack_models/custom_data.h"
#include "tools/pack_models/pack_error.h"
#include "tools/pack_models/white_box_tables.h"

namespace {

using orvo_test::PackingKey;
using orvo_test::Random;
using orvo_test::SlowAes;
using Bytes = std::vector<uint8_t>;
using Table = std::vector<uint32_t>;
using Key = std::array<uint8_t, 16>;
using Seed = std::array<uint8_t, 32>;

constexpr int kBlocks = ORVO_TEST_BLOCKS;

Key TestKey(uint64_t n) {
    Key key;
    Random(n).Fill(key.data(), key.size());
    return key;
}

Seed TestSeed(uint64_t n) {
    Seed seed;
    Random(n + 1000).Fill(seed.data(), seed.size());
    return seed;
}

Bytes RandomBytes(size_t count, uint64_t seed) {
    Bytes bytes(count);
    Random(seed).Fill(bytes.data(), count);
    return bytes;
}

uint32_t Entry(const Table& table, unsigned round, unsigned subTable, unsigned x) {
    return table[(16 * round + subTable) * 256 + x];
}

// step: columns to the right from which the next row comes, 3 for decryption and 1 for encryption.
Bytes Walk(const Table& table, Bytes state, unsigned step) {
    for (unsigned round = 0; round < 10; ++round) {
        Bytes next;
        for (unsigned column = 0; column < 4; ++column) {
            uint32_t word = 0;
            for (unsigned row = 0; row < 4; ++row) {
                const uint8_t index = state[4 * ((column + row * step) % 4) + row];
                word ^= Entry(table, round, 4 * column + row, index);
            }
            for (unsigned shift = 0; shift < 32; shift += 8) {
                next.push_back(static_cast<uint8_t>(word >> shift));
            }
        }
        state = next;
    }
    return state;
}

// The same many blocks, faster, against the library's AES.
void ExpectDecrypts(const Table& table, const Key& key, int blocks) {
    ASSERT_EQ(table.size(), 40960u);
    AES_ctx ctx;
    AES_init_ctx(&ctx, key.data());
    Random random(9);
    for (int n = 0; n < blocks; ++n) {
        uint8_t block[16];
        random.Fill(block, 16);
        uint8_t state[16];
        std::copy_n(block, 16, state);
        const uint32_t* round = table.data();
        for (int r = 0; r < 10; ++r, round += 16 * 256) {
            uint32_t words[4];
            for (unsigned j = 0; j < 4; ++j) {
                const uint32_t* sub = round + 4 * 256 * j;
                words[j] = sub[state[4 * j]] ^ sub[256 + state[4 * ((j + 3) % 4) + 1]] ^
                           sub[512 + state[4 * ((j + 2) % 4) + 2]] ^
                           sub[768 + state[4 * ((j + 1) % 4) + 3]];
            }
            for (unsigned i = 0; i < 16; ++i) {
                state[i] = static_cast<uint8_t>(words[i / 4] >> 8 * (i % 4));
            }
        }
        AES_ECB_decrypt(&ctx, block);
        ASSERT_TRUE(std::equal(block, block + 16, state)) << "block " << n;
    }
}

// The custom data as a reader of the table finds it; empty if the length is not credible.
std::optional<Bytes> ReadCustomData(const Table& table) {
    Bytes collected;
    for (unsigned round = 1; collected.size() < 260; ++round) {
        for (unsigned column = 0; column < 4; ++column) {
            for (unsigned shift = 0; shift < 32; shift += 8) {
                for (unsigned x = 0; x < 4; ++x) {
                    uint32_t word = 0;
                    for (unsigned k = 0; k < 4; ++k) {
                        word ^= Entry(table, round, 4 * column + k, x);
                    }
                    collected.push_back(static_cast<uint8_t>(word >> shift));
                }
            }
        }
    }
    uint32_t state = collected[0] | static_cast<uint32_t>(collected[1]) << 8;
    const auto next = [&state] {
        state = state * 1103515245u + 12345u;
        return static_cast<uint8_t>(state);
    };
    size_t length = static_cast<uint8_t>(collected[2] ^ next());
    length |= static_cast<size_t>(collected[3] ^ next()) << 8;
    if (length > 256) {
        return std::nullopt;
    }
    Bytes data;
    for (size_t i = 0; i < length; ++i) {
        data.push_back(static_cast<uint8_t>(collected[4 + i] ^ next()));
    }
    return data;
}

void ExpectRoundTrip(const Bytes& data, uint64_t n, int blocks = kBlocks / 1000) {
    const Table table = orvo::pack::MakeDecryptTable(TestKey(n), TestSeed(n), data);
    const std::optional<Bytes> read = ReadCustomData(table);
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(*read, data);
    // The library's own reader finds the same.
    Bytes output(256, 0x5A);
    uint32_t length = 0;
    EXPECT_EQ(get_custom_data(table.data(), 4, output.data(), &length), 0);
    ASSERT_EQ(length, data.size());
    EXPECT_TRUE(std::equal(data.begin(), data.end(), output.begin()));
    ExpectDecrypts(table, TestKey(n), blocks);
}

// What one byte contributes to a column in a plain round: the substituted byte times the column
// mixing (or, in a last round, on its own), before any key is added.
struct PlainShare {
    bool decrypt;
    bool last;
    unsigned row;

    uint32_t operator()(uint8_t y) const {
        static const SboxPair boxes;
        const uint8_t v = decrypt ? boxes.inverse[y] : boxes.forward[y];
        if (last) {
            return static_cast<uint32_t>(v) << 8 * row;
        }
        const std::array<uint8_t, 4> mixing =
            decrypt ? std::array<uint8_t, 4>{14, 9, 13, 11} : std::array<uint8_t, 4>{2, 1, 1, 3};
        uint32_t word = 0;
        for (unsigned to = 0; to < 4; ++to) {
            word |= static_cast<uint32_t>(Times(v, mixing[(to + 4 - row) % 4])) << 8 * to;
        }
        return word;
    }

    // Read off the cipher itself: the all-zero key's last round adds no more than constants.
    struct SboxPair {
        std::array<uint8_t, 256> forward;
        std::array<uint8_t, 256> inverse;
        SboxPair() {
            for (unsigned a = 0; a < 256; ++a) {
                unsigned b = 0;
                while (a != 0 && Times(static_cast<uint8_t>(a), static_cast<uint8_t>(++b)) != 1) {
                }
                const unsigned twice = b | b << 8;
                const unsigned s = b ^ twice >> 4 ^ twice >> 5 ^ twice >> 6 ^ twice >> 7 ^ 0x63;
                forward[a] = static_cast<uint8_t>(s);
                inverse[forward[a]] = static_cast<uint8_t>(a);
            }
        }
    };

    static uint8_t Times(uint8_t a, uint8_t b) {
        unsigned product = 0;
        for (unsigned x = a; b != 0; b = static_cast<uint8_t>(b >> 1)) {
            product ^= (b & 1) != 0 ? x : 0;
            x = (x << 1) ^ ((x & 0x80) != 0 ? 0x11b : 0);
        }
        return static_cast<uint8_t>(product);
    }
};

bool EqualsUpToAConstant(const Table& table, unsigned round, unsigned subTable,
                         const std::array<uint32_t, 256>& plain, unsigned key) {
    const uint32_t constant = Entry(table, round, subTable, 0) ^ plain[key];
    for (unsigned y = 1; y < 256; ++y) {
        if ((Entry(table, round, subTable, y) ^ plain[y ^ key]) != constant) {
            return false;
        }
    }
    return true;
}

// Counts the sub-tables of the given rounds that are a plain round's under any key byte, with and
// without column mixing, for any row.
int CountPlainSubTables(const Table& table, bool decrypt, unsigned firstRound, unsigned lastRound) {
    int plainOnes = 0;
    for (unsigned row = 0; row < 4; ++row) {
        for (const bool last : {false, true}) {
            std::array<uint32_t, 256> plain;
            for (unsigned y = 0; y < 256; ++y) {
                plain[y] = PlainShare{decrypt, last, row}(static_cast<uint8_t>(y));
            }
            for (unsigned round = firstRound; round <= lastRound; ++round) {
                for (unsigned subTable = 0; subTable < 16; ++subTable) {
                    for (unsigned key = 0; key < 256; ++key) {
                        plainOnes +=
                            EqualsUpToAConstant(table, round, subTable, plain, key) ? 1 : 0;
                    }
                }
            }
        }
    }
    return plainOnes;
}

Table LibraryTable() { return {table2, table2 + 40960}; }

TEST(WhiteBoxTables, DecryptionFollowsTheDefinition) {
    for (uint64_t n = 0; n < 3; ++n) {
        const Table table = orvo::pack::MakeDecryptTable(TestKey(n), TestSeed(n), {});
        const SlowAes aes(TestKey(n).data());
        for (uint64_t block = 0; block < 50; ++block) {
            const Bytes in = RandomBytes(16, block);
            SlowAes::Block expected;
            std::ranges::copy(in, expected.begin());
            expected = aes.Decrypt(expected);
            EXPECT_EQ(Walk(table, in, 3), Bytes(expected.begin(), expected.end()));
        }
    }
}

TEST(WhiteBoxTables, EncryptionFollowsTheDefinition) {
    for (uint64_t n = 0; n < 3; ++n) {
        const Table table = orvo::pack::MakeEncryptTable(TestKey(n), TestSeed(n));
        const SlowAes aes(TestKey(n).data());
        for (uint64_t block = 0; block < 50; ++block) {
            const Bytes in = RandomBytes(16, block);
            SlowAes::Block expected;
            std::ranges::copy(in, expected.begin());
            expected = aes.Encrypt(expected);
            EXPECT_EQ(Walk(table, in, 1), Bytes(expected.begin(), expected.end()));
        }
    }
}

TEST(WhiteBoxTables, TheSameInputsGiveTheSameTables) {
    const Bytes data = RandomBytes(100, 1);
    EXPECT_TRUE(orvo::pack::MakeDecryptTable(TestKey(1), TestSeed(1), data) ==
                orvo::pack::MakeDecryptTable(TestKey(1), TestSeed(1), data));
    EXPECT_TRUE(orvo::pack::MakeEncryptTable(TestKey(1), TestSeed(1)) ==
                orvo::pack::MakeEncryptTable(TestKey(1), TestSeed(1)));
}

TEST(WhiteBoxTables, AnotherSeedGivesOtherTablesForTheSameCipher) {
    const Table a = orvo::pack::MakeDecryptTable(TestKey(1), TestSeed(1), {});
    const Table b = orvo::pack::MakeDecryptTable(TestKey(1), TestSeed(2), {});
    EXPECT_FALSE(a == b);
    ExpectDecrypts(a, TestKey(1), 100);
    ExpectDecrypts(b, TestKey(1), 100);
}

TEST(WhiteBoxTables, TheLibrarysTableIsTheOneOfItsKeyFile) {
    Key key;
    Seed seed;
    std::ranges::copy(PackingKey("white_box_key"), key.begin());
    std::ranges::copy(PackingKey("seed"), seed.begin());
    const std::optional<Bytes> data = ReadCustomData(LibraryTable());
    ASSERT_TRUE(data.has_value()) << "the length of the library's custom data is above 256";
    EXPECT_TRUE(LibraryTable() == orvo::pack::MakeDecryptTable(key, seed, *data));
}

// Guards the tests below: the search must find plain sub-tables where there are some.
TEST(WhiteBoxTables, APlainTableWouldBeNoticed) {
    Table table = LibraryTable();
    for (unsigned y = 0; y < 256; ++y) {
        table[(16 * 4 + 7) * 256 + y] =
            PlainShare{true, false, 2}(static_cast<uint8_t>(y ^ 0x5c)) ^ 0x12345678;
        table[(16 * 8 + 1) * 256 + y] = PlainShare{true, true, 1}(static_cast<uint8_t>(y ^ 3)) ^ 1;
    }
    EXPECT_EQ(CountPlainSubTables(table, true, 0, 9), 2);
}

TEST(WhiteBoxTables, NoSubTableOfTheLibraryIsAPlainRounds) {
    EXPECT_EQ(CountPlainSubTables(LibraryTable(), true, 0, 9), 0);
}

TEST(WhiteBoxTables, NoSubTableWithCustomDataIsAPlainRounds) {
    const Table table = orvo::pack::MakeDecryptTable(TestKey(5), TestSeed(5), Bytes(256, 0));
    EXPECT_EQ(CountPlainSubTables(table, true, 0, 9), 0);
}

TEST(WhiteBoxTables, NoSubTableOfTheEncryptionIsAPlainRounds) {
    const Table table = orvo::pack::MakeEncryptTable(TestKey(6), TestSeed(6));
    EXPECT_EQ(CountPlainSubTables(table, false, 0, 9), 0);
}

TEST(CustomData, ATableWithoutAnyReadsAsLengthZero) { ExpectRoundTrip({}, 10); }

TEST(CustomData, OneByteComesBack) {
    for (unsigned byte = 0; byte < 256; byte += 51) {
        ExpectRoundTrip({static_cast<uint8_t>(byte)}, 11 + byte);
    }
}

TEST(CustomData, SeventeenBytesComeBack) { ExpectRoundTrip(RandomBytes(17, 17), 12); }

TEST(CustomData, TwoHundredAndFiftyFiveBytesComeBack) { ExpectRoundTrip(RandomBytes(255, 1), 13); }

TEST(CustomData, TwoHundredAndFiftySixBytesComeBack) { ExpectRoundTrip(RandomBytes(256, 2), 14); }

TEST(CustomData, EveryLengthComesBack) {
    for (size_t length = 0; length <= 256; length += 3) {
        ExpectRoundTrip(RandomBytes(length, length), length, 10);
    }
}

// Repeated and regular bytes are the ones whose differences have relations.
TEST(CustomData, RegularBytesComeBack) {
    for (const unsigned byte : {0u, 1u, 0x55u, 0xffu}) {
        ExpectRoundTrip(Bytes(256, static_cast<uint8_t>(byte)), byte, 10);
    }
    Bytes counting(256);
    for (unsigned i = 0; i < 256; ++i) {
        counting[i] = static_cast<uint8_t>(i);
    }
    ExpectRoundTrip(counting, 20, 10);
    Bytes pairs(256);
    for (unsigned i = 0; i < 256; ++i) {
        pairs[i] = static_cast<uint8_t>(i / 2 * 37);
    }
    ExpectRoundTrip(pairs, 21, 10);
}

TEST(CustomData, TheCipherEqualsAesWithCustomDataInside) {
    ExpectRoundTrip(RandomBytes(256, 3), 30, kBlocks);
}

TEST(CustomData, MoreThan256BytesAreRefused) {
    try {
        orvo::pack::MakeDecryptTable(TestKey(1), TestSeed(1), Bytes(257, 7));
        FAIL() << "not refused";
    } catch (const orvo::pack::PackError& error) {
        EXPECT_STREQ(error.what(), "custom data has 257 bytes, at most 256 can be hidden");
    }
}

// Custom data that equals the mask itself in some groups of four, under another seed of the mask in
// every group, so that hardly a seed leaves the masked bytes without a relation.
Bytes AgainstTheMask(unsigned factor, unsigned step, unsigned offset) {
    Bytes data;
    for (unsigned i = 0; i < 256; ++i) {
        uint32_t state = (offset * factor + i / 4 * step) & 0xff;
        for (unsigned n = 0; n < i + 3; ++n) {
            state = state * 1103515245u + 12345u;
        }
        data.push_back(static_cast<uint8_t>(state));
    }
    return data;
}

// The fewest relations that a seed leaves. The mask follows from a seed's low byte alone, and the
// high byte is seen only beside it, so eight of the high bytes will do.
int FewestRelations(const Bytes& data) {
    int fewest = INT_MAX;
    for (unsigned seed = 0; seed < 8 * 256; ++seed) {
        fewest = std::min(fewest, orvo::pack::CountRelations(orvo::pack::MaskCustomData(
                                      data, static_cast<uint16_t>(seed))));
    }
    return fewest;
}

TEST(CustomData, ComesBackWhereEverySeedLeavesARelation) {
    const Bytes data = AgainstTheMask(1, 4, 1);
    EXPECT_EQ(FewestRelations(data), 1);
    ExpectRoundTrip(data, 40, 10);
}

TEST(CustomData, ComesBackWhereEverySeedLeavesTwoRelations) {
    const Bytes data = AgainstTheMask(9, 9, 7);
    EXPECT_EQ(FewestRelations(data), 2);
    ExpectRoundTrip(data, 41, 10);
}

TEST(CustomData, RelationsAreCounted) {
    // No group has any; one group has two equal bytes; one group is all equal; two in one column;
    // one in each of two columns; the fourth difference is the sum of the others' two.
    EXPECT_EQ(orvo::pack::CountRelations(Bytes{0, 1, 2, 4, 8, 9, 10, 12}), 0);
    EXPECT_EQ(orvo::pack::CountRelations(Bytes{0, 1, 2, 4, 8, 9, 10, 10}), 1);
    EXPECT_EQ(orvo::pack::CountRelations(Bytes{5, 5, 5, 5, 8, 9, 10, 12}), 3);
    EXPECT_EQ(orvo::pack::CountRelations(Bytes{0, 1, 2, 2, 8, 8, 10, 12}), 2);
    Bytes apart(32);
    for (unsigned i = 0; i < 32; ++i) {
        apart[i] = static_cast<uint8_t>(1u << i % 4);
    }
    apart[1] = apart[0];
    apart[17] = apart[16];
    EXPECT_EQ(orvo::pack::CountRelations(apart), 1);
    EXPECT_EQ(orvo::pack::CountRelations(Bytes{0, 1, 2, 3}), 1);
}

TEST(ByteMap, FulfilsItsWishes) {
    orvo::pack::RandomStream random(TestSeed(1), 0);
    Random numbers(5);
    for (int n = 0; n < 500; ++n) {
        // Wishes taken from a map that exists can always be fulfilled.
        const auto hidden = orvo::pack::DrawByteMap({}, &random);
        ASSERT_TRUE(hidden.has_value());
        std::vector<orvo::pack::ByteWish> wishes;
        for (int i = 0; i < n % 12; ++i) {
            const uint8_t from = numbers.Byte();
            wishes.push_back({from, hidden->encode[from]});
        }
        const auto map = orvo::pack::DrawByteMap(wishes, &random);
        ASSERT_TRUE(map.has_value());
        for (const auto& wish : wishes) {
            EXPECT_EQ(map->encode[wish.from], wish.to);
        }
        for (unsigned v = 0; v < 256; ++v) {
            EXPECT_EQ(map->decode[map->encode[v]], v);
            const auto w = numbers.Byte();
            EXPECT_EQ(map->Linear(static_cast<uint8_t>(v ^ w)),
                      map->Linear(static_cast<uint8_t>(v)) ^ map->Linear(w));
        }
    }
}

TEST(ByteMap, RefusesWishesThatNoInvertibleMapFulfils) {
    using orvo::pack::ByteWish;
    orvo::pack::RandomStream random(TestSeed(2), 0);
    const std::vector<std::vector<ByteWish>> impossible = {
        {{1, 5}, {1, 6}},                     // one value to two
        {{1, 5}, {2, 5}},                     // two values to one
        {{0, 0}, {1, 8}, {2, 4}, {3, 13}},    // 1 ^ 2 = 3, but 8 ^ 4 is not 13
        {{0, 0}, {1, 8}, {2, 4}, {16, 12}},   // 8 ^ 4 = 12, but 1 ^ 2 is not 16
        {{9, 1}, {8, 9}, {11, 5}, {10, 0xc}}, // the same, displaced
    };
    for (const auto& wishes : impossible) {
        EXPECT_FALSE(orvo::pack::DrawByteMap(wishes, &random).has_value());
    }
    const std::vector<ByteWish> possible = {{0, 0}, {1, 8}, {2, 4}, {3, 12}};
    EXPECT_TRUE(orvo::pack::DrawByteMap(possible, &random).has_value());
}

} // namespace
