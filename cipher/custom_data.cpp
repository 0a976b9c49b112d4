// SPDX-License-Identifier: MIT
//
// The custom data hidden in the white-box table, and the byte stream that masks it.
#include "orvo/cipher.h"

namespace {

constexpr uint32_t kSubTables = 16;
constexpr uint32_t kEntries = 256;
constexpr uint32_t kHeaderBytes = 4; // 16-bit seed, 16-bit masked length
constexpr uint32_t kCollectedBytes = kHeaderBytes + 256;
constexpr uint32_t kEntriesPerColumn = 4; // that carry custom data in table2

uint32_t streamState;

uint8_t StreamByte() { return static_cast<uint8_t>(psr_next()); }

// What the four sub-tables of a column show together at one entry.
uint32_t ColumnWord(const uint32_t* table, uint32_t round, uint32_t column, uint32_t entry) {
    const uint32_t* subTable = table + (kSubTables * round + 4 * column) * kEntries;
    return subTable[entry] ^ subTable[kEntries + entry] ^ subTable[2 * kEntries + entry] ^
           subTable[3 * kEntries + entry];
}

// Collects the bytes round by round, column by column, byte by byte of the words, entry by entry.
// Round 0 carries none.
void Collect(const uint32_t* table, uint32_t entries, uint8_t* collected) {
    uint32_t count = 0;
    for (uint32_t round = 1;; ++round) {
        for (uint32_t column = 0; column < 4; ++column) {
            for (uint32_t shift = 0; shift < 32; shift += 8) {
                for (uint32_t entry = 0; entry < entries; ++entry) {
                    collected[count++] =
                        static_cast<uint8_t>(ColumnWord(table, round, column, entry) >> shift);
                    if (count == kCollectedBytes) {
                        return;
                    }
                }
            }
        }
    }
}

} // namespace

void psr_init(uint32_t seed) { streamState = seed; }

uint32_t psr_next(void) { return streamState = streamState * 1103515245u + 12345u; }

void psr_rand_bytes(uint8_t* buffer, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        buffer[i] = StreamByte();
    }
}

void decode(uint8_t* output, uint32_t* length, const uint8_t* collected) {
    psr_init(collected[0] | static_cast<uint32_t>(collected[1]) << 8);
    const uint32_t low = collected[2] ^ StreamByte();
    const uint32_t high = collected[3] ^ StreamByte();
    *length = low | high << 8;
    for (uint32_t i = 0; i < *length; ++i) {
        output[i] = collected[kHeaderBytes + i] ^ StreamByte();
    }
}

int32_t get_custom_data(const uint32_t* table, uint32_t entries, uint8_t* output,
                        uint32_t* length) {
    if (entries == 0) {
        *length = 0; // no entry, no bytes: there would be no end to the collecting
        return 0;
    }
    uint8_t collected[kCollectedBytes];
    Collect(table, entries, collected);
    decode(output, length, collected);
    return 0;
}

int32_t wb_aes_get_custom_data_d(uint8_t* output, uint32_t* length) {
    return get_custom_data(table2, kEntriesPerColumn, output, length);
}
