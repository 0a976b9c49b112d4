// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "orvo/cipher.h"
#include "support/guarded_buffer.h"
#include "support/random.h"

namespace {

using orvo_test::GuardedBuffer;
using orvo_test::Random;

using Bytes = std::vector<uint8_t>;
using Words = std::vector<uint32_t>;

constexpr size_t kCollected = 260;   // seed, length, 256 bytes of payload
constexpr size_t kMaxLength = 65535; // what 16 bits can claim

// ---- The stream

// Taken before any test can have touched the state.
const uint32_t firstAtLoad = psr_next();

TEST(PseudoRandomStream, StateIsZeroAtLoad) { EXPECT_EQ(firstAtLoad, 12345u); }

TEST(PseudoRandomStream, FollowsTheCongruence) {
    psr_init(0);
    EXPECT_EQ(psr_next(), 12345u);
    EXPECT_EQ(psr_next(), 3554416254u); // 12345 * 1103515245 + 12345 modulo 2^32
    for (const uint32_t seed : {1u, 0xffffu, 0x10000u, 0x80000000u, UINT32_MAX}) {
        psr_init(seed);
        uint64_t state = seed;
        for (int i = 0; i < 1000; ++i) {
            state = (state * 1103515245u + 12345u) % (uint64_t{1} << 32);
            ASSERT_EQ(psr_next(), state);
        }
    }
}

TEST(PseudoRandomStream, BytesAreTheLowBytesOfTheStates) {
    for (const uint32_t count : {1u, 2u, 255u, 256u, 1000u}) {
        for (const auto place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
            GuardedBuffer buffer(count, place);
            psr_init(77);
            psr_rand_bytes(buffer.bytes(), count);
            const uint32_t after = psr_next();
            psr_init(77);
            for (uint32_t i = 0; i < count; ++i) {
                ASSERT_EQ(buffer.bytes()[i], psr_next() & 0xff);
            }
            EXPECT_EQ(psr_next(), after) << "the state must have advanced once a byte";
        }
    }
}

TEST(PseudoRandomStream, NoBytesWriteNothingAndKeepTheState) {
    GuardedBuffer nothing(0);
    psr_init(5);
    psr_rand_bytes(nothing.bytes(), 0);
    psr_rand_bytes(nullptr, 0);
    const uint32_t next = psr_next();
    psr_init(5);
    EXPECT_EQ(psr_next(), next);
}

// ---- The collection buffer

// The stream by its definition, apart from the library's.
class Stream {
  public:
    explicit Stream(uint32_t seed) : state_(seed) {}
    uint8_t Next() {
        state_ = state_ * 1103515245u + 12345u;
        return static_cast<uint8_t>(state_);
    }

  private:
    uint32_t state_;
};

// Seed, masked length, masked payload.
Bytes Masked(uint16_t seed, const Bytes& payload) {
    Stream stream(seed);
    Bytes masked = {static_cast<uint8_t>(seed), static_cast<uint8_t>(seed >> 8)};
    masked.push_back(static_cast<uint8_t>(payload.size() ^ stream.Next()));
    masked.push_back(static_cast<uint8_t>(payload.size() >> 8 ^ stream.Next()));
    for (const uint8_t byte : payload) {
        masked.push_back(byte ^ stream.Next());
    }
    return masked;
}

Bytes RandomBytes(Random& random, size_t count) {
    Bytes bytes(count);
    random.Fill(bytes.data(), count);
    return bytes;
}

TEST(Decode, UnmasksEveryLengthUpTo256) {
    Random random(1);
    for (size_t length = 0; length <= 256; ++length) {
        const auto seed = static_cast<uint16_t>(random.Next());
        const Bytes payload = RandomBytes(random, length);
        const Bytes masked = Masked(seed, payload);
        GuardedBuffer collected(masked.size());
        std::memcpy(collected.bytes(), masked.data(), masked.size());
        collected.MakeReadOnly();
        GuardedBuffer output(length);
        uint32_t stored = 0xdeadbeef;
        decode(output.bytes(), &stored, collected.bytes());
        ASSERT_EQ(stored, length);
        ASSERT_EQ(Bytes(output.bytes(), output.bytes() + length), payload);
    }
}

TEST(Decode, LengthZeroLeavesTheOutputAndStoresZero) {
    for (const int seed : {0, 1, 0x00ff, 0xff00, 0xffff}) {
        const Bytes masked = Masked(static_cast<uint16_t>(seed), {});
        Bytes output(300, 77);
        uint32_t stored = 0xdeadbeef;
        decode(output.data(), &stored, masked.data());
        EXPECT_EQ(stored, 0u);
        EXPECT_EQ(output, Bytes(300, 77));
    }
}

// Seed 1 gives the masks 0xa6 and 0xe7 first.
TEST(Decode, SeedAndLengthAreLittleEndian) {
    const uint8_t collected[5] = {0x01, 0x00, 0xa6 ^ 0x01, 0xe7, 0x5a};
    Stream stream(1);
    ASSERT_EQ(stream.Next(), 0xa6);
    ASSERT_EQ(stream.Next(), 0xe7);
    uint8_t output = 0;
    uint32_t stored = 0;
    decode(&output, &stored, collected);
    EXPECT_EQ(stored, 1u);
    EXPECT_EQ(output, 0x5a ^ stream.Next());

    const Bytes payload(0x0102, 9);
    const Bytes masked = Masked(0x8001, payload);
    Bytes unmasked(payload.size());
    decode(unmasked.data(), &stored, masked.data());
    EXPECT_EQ(stored, 0x0102u);
    EXPECT_EQ(unmasked, payload);
}

TEST(Decode, HasNoBoundOfItsOwn) {
    Random random(2);
    for (const size_t length : {size_t{257}, size_t{1000}, kMaxLength}) {
        const Bytes payload = RandomBytes(random, length);
        const Bytes masked = Masked(0x1234, payload);
        Bytes output(length);
        uint32_t stored = 0;
        decode(output.data(), &stored, masked.data());
        EXPECT_EQ(stored, length);
        EXPECT_EQ(output, payload);
    }
}

TEST(Decode, LeavesTheStreamBehindTheLastMask) {
    const Bytes payload(17, 3);
    const Bytes masked = Masked(0xfeed, payload);
    Bytes output(17);
    uint32_t stored = 0;
    psr_init(999);
    decode(output.data(), &stored, masked.data());
    const uint32_t next = psr_next();
    psr_init(0xfeed);
    for (int i = 0; i < 2 + 17; ++i) {
        psr_next();
    }
    EXPECT_EQ(psr_next(), next);
}

// ---- The table

// Where the bytes are: rounds from 1, in each the four columns, in each the four byte positions, in
// each the first `entries` entries.
struct Site {
    size_t word; // in the first of the column's four sub-tables, which follow each other
    int shift;
};

std::vector<Site> Sites(size_t entries, size_t count) {
    std::vector<Site> sites;
    for (size_t round = 1;; ++round) {
        for (size_t column = 0; column < 4; ++column) {
            for (int shift = 0; shift < 32; shift += 8) {
                for (size_t x = 0; x < entries; ++x) {
                    if (sites.size() == count) {
                        return sites;
                    }
                    sites.push_back({(16 * round + 4 * column) * 256 + x, shift});
                }
            }
        }
    }
}

uint8_t ByteAt(const uint32_t* table, Site site) {
    const uint32_t* first = table + site.word;
    return static_cast<uint8_t>((first[0] ^ first[256] ^ first[512] ^ first[768]) >> site.shift);
}

// The smallest table that holds them all.
size_t TableWords(size_t entries) {
    size_t words = 0;
    for (const Site site : Sites(entries, kCollected)) {
        words = std::max(words, site.word + 768 + 1);
    }
    return words;
}

// Random words, in one of each four of which the byte is set right.
Words TableWith(Random& random, size_t entries, const Bytes& masked) {
    Words table(TableWords(entries));
    random.Fill(table.data(), table.size());
    const std::vector<Site> sites = Sites(entries, masked.size());
    for (size_t i = 0; i < sites.size(); ++i) {
        const uint32_t change = ByteAt(table.data(), sites[i]) ^ masked[i];
        const auto subTable = static_cast<size_t>(random.Between(0, 3));
        table[sites[i].word + 256 * subTable] ^= change << sites[i].shift;
    }
    return table;
}

void ExpectReadBack(Random& random, size_t entries, size_t length) {
    const Bytes payload = RandomBytes(random, length);
    const Words table =
        TableWith(random, entries, Masked(static_cast<uint16_t>(random.Next()), payload));
    GuardedBuffer guarded(table.size() * sizeof(uint32_t));
    std::memcpy(guarded.bytes(), table.data(), guarded.size());
    guarded.MakeReadOnly();
    GuardedBuffer output(length);
    uint32_t stored = 0xdeadbeef;
    ASSERT_EQ(get_custom_data(guarded.as<uint32_t>(), static_cast<uint32_t>(entries),
                              output.bytes(), &stored),
              0);
    ASSERT_EQ(stored, length) << entries;
    ASSERT_EQ(Bytes(output.bytes(), output.bytes() + length), payload) << entries;
}

TEST(CustomData, EveryLengthIsReadBackFromFourEntries) {
    Random random(3);
    for (size_t length = 0; length <= 256; ++length) {
        ExpectReadBack(random, 4, length);
    }
}

// The table ends behind the last word that is needed: round 5, column 0 for four entries.
TEST(CustomData, OtherEntryCountsReadFromOtherPlaces) {
    Random random(4);
    ASSERT_EQ(TableWords(4), (16 * 5 + 3) * 256 + 4u);
    for (const size_t entries : {2, 3, 5, 7, 16, 64, 65, 66, 128, 256}) {
        for (const size_t length : {0, 1, 17, 255, 256}) {
            ExpectReadBack(random, entries, length);
        }
    }
}

// 16 bytes a round: the table must be longer than the cipher's, and rounds are read until all bytes
// are there.
TEST(CustomData, OneEntryIsReadFromSeventeenRounds) {
    Random random(7);
    ASSERT_EQ(TableWords(1), (16 * 17 + 3) * 256 + 1u);
    for (const size_t length : {0, 1, 17, 255, 256}) {
        ExpectReadBack(random, 1, length);
    }
}

// Entries beyond the 256 of a sub-table are those of the next.
TEST(CustomData, EntriesMayRunIntoTheNextSubTable) {
    Random random(5);
    const size_t words = (16 + 3) * 256 + kCollected;
    Words table(words);
    random.Fill(table.data(), words);
    Bytes expected(kCollected);
    for (size_t i = 0; i < kCollected; ++i) {
        expected[i] = ByteAt(table.data(), {16 * 256 + i, 0});
    }
    // The length comes out as 256: only entries 2 and 3 decide about it.
    Stream stream(static_cast<uint32_t>(expected[0] | expected[1] << 8));
    const uint8_t low = stream.Next();
    const uint8_t high = stream.Next();
    table[16 * 256 + 2] ^= static_cast<uint32_t>(expected[2] ^ low);
    table[16 * 256 + 3] ^= static_cast<uint32_t>(expected[3] ^ high ^ 1);
    GuardedBuffer guarded(words * sizeof(uint32_t));
    std::memcpy(guarded.bytes(), table.data(), guarded.size());
    guarded.MakeReadOnly();
    Bytes output(256);
    uint32_t stored = 0;
    ASSERT_EQ(get_custom_data(guarded.as<uint32_t>(), 1000, output.data(), &stored), 0);
    ASSERT_EQ(stored, 256u);
    for (size_t i = 0; i < 256; ++i) {
        ASSERT_EQ(output[i], ByteAt(table.data(), {16 * 256 + 4 + i, 0}) ^ stream.Next()) << i;
    }
}

TEST(CustomData, NoEntriesGiveLengthZeroAndNoOutput) {
    uint32_t length = 77;
    uint8_t output = 0x5A;
    EXPECT_EQ(get_custom_data(table2, 0, &output, &length), 0);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(output, 0x5A);
}

TEST(CustomData, RoundZeroDoesNotMatter) {
    Random random(6);
    const Bytes payload = RandomBytes(random, 100);
    Words table = TableWith(random, 4, Masked(0xabcd, payload));
    random.Fill(table.data(), 16 * 256);
    Bytes output(100);
    uint32_t stored = 0;
    EXPECT_EQ(get_custom_data(table.data(), 4, output.data(), &stored), 0);
    EXPECT_EQ(stored, 100u);
    EXPECT_EQ(output, payload);
}

// The development key's tables were generated without custom data.
TEST(CustomData, BuiltTableHoldsNone) {
    Bytes output(kMaxLength, 77);
    uint32_t stored = 0xdeadbeef;
    EXPECT_EQ(wb_aes_get_custom_data_d(output.data(), &stored), 0);
    EXPECT_EQ(stored, 0u);
    EXPECT_EQ(output, Bytes(kMaxLength, 77));
}

TEST(CustomData, BuiltTableIsReadWithFourEntries) {
    Bytes collected(kCollected);
    const std::vector<Site> sites = Sites(4, kCollected);
    for (size_t i = 0; i < kCollected; ++i) {
        collected[i] = ByteAt(table2, sites[i]);
    }
    Stream stream(static_cast<uint32_t>(collected[0] | collected[1] << 8));
    const uint8_t low = collected[2] ^ stream.Next();
    const uint8_t high = collected[3] ^ stream.Next();
    const uint32_t expected = static_cast<uint32_t>(low | high << 8);
    ASSERT_LE(expected, 256u) << "a table must not claim more than it can hold";
    Bytes output(kMaxLength, 77);
    uint32_t stored = 0xdeadbeef;
    EXPECT_EQ(wb_aes_get_custom_data_d(output.data(), &stored), 0);
    EXPECT_EQ(stored, expected);
    for (uint32_t i = 0; i < expected; ++i) {
        ASSERT_EQ(output[i], collected[4 + i] ^ stream.Next());
    }
    EXPECT_EQ(output[expected], 77);
}

} // namespace
