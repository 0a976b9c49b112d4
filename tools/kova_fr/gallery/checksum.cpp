// SPDX-License-Identifier: MIT
#include "gallery/checksum.h"

#include <bit>
#include <cstring>

#if defined(__x86_64__)
#include <nmmintrin.h>
#endif

namespace kova_cli {
namespace {

static_assert(std::endian::native == std::endian::little, "words are taken as they lie");

constexpr size_t kLanes = 4;
constexpr size_t kStripe = kLanes * sizeof(uint64_t);

// What a byte does to the sum when 0 to 7 bytes come after it.
struct ByteTables {
    uint32_t share[8][256];
};

constexpr ByteTables MakeByteTables() {
    constexpr uint32_t kPolynomial = 0x82f63b78u;
    ByteTables tables = {};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t sum = byte;
        for (int bit = 0; bit < 8; ++bit) {
            sum = (sum >> 1) ^ ((sum & 1) != 0 ? kPolynomial : 0);
        }
        tables.share[0][byte] = sum;
    }
    for (size_t after = 1; after < 8; ++after) {
        for (size_t byte = 0; byte < 256; ++byte) {
            const uint32_t sum = tables.share[after - 1][byte];
            tables.share[after][byte] = (sum >> 8) ^ tables.share[0][sum & 0xff];
        }
    }
    return tables;
}

constexpr ByteTables kTables = MakeByteTables();

uint32_t AddWord(uint32_t sum, uint64_t word) {
    word ^= sum;
    uint32_t next = 0;
    for (size_t byte = 0; byte < 8; ++byte) {
        next ^= kTables.share[7 - byte][word >> (8 * byte) & 0xff];
    }
    return next;
}

void AddStripesByTables(Checksum& sums, const uint8_t* bytes, size_t stripes) {
    for (; stripes > 0; --stripes, bytes += kStripe) {
        uint64_t words[kLanes];
        std::memcpy(words, bytes, sizeof words);
        for (size_t lane = 0; lane < kLanes; ++lane) {
            sums[lane] = AddWord(sums[lane], words[lane]);
        }
    }
}

#if defined(__x86_64__)
// The instruction's result is there after three cycles, so three lanes at least keep it busy.
__attribute__((target("sse4.2"))) void AddStripesByInstruction(Checksum& sums, const uint8_t* bytes,
                                                               size_t stripes) {
    uint64_t lanes[kLanes] = {sums[0], sums[1], sums[2], sums[3]};
    for (; stripes > 0; --stripes, bytes += kStripe) {
        uint64_t words[kLanes];
        std::memcpy(words, bytes, sizeof words);
        for (size_t lane = 0; lane < kLanes; ++lane) {
            lanes[lane] = _mm_crc32_u64(lanes[lane], words[lane]);
        }
    }
    for (size_t lane = 0; lane < kLanes; ++lane) {
        sums[lane] = static_cast<uint32_t>(lanes[lane]);
    }
}

void AddStripes(Checksum& sums, const uint8_t* bytes, size_t stripes) {
    if (__builtin_cpu_supports("sse4.2")) {
        AddStripesByInstruction(sums, bytes, stripes);
    } else {
        AddStripesByTables(sums, bytes, stripes);
    }
}
#else
void AddStripes(Checksum& sums, const uint8_t* bytes, size_t stripes) {
    AddStripesByTables(sums, bytes, stripes);
}
#endif

template <typename Add>
Checksum WithLastStripe(const Checksum& before, const void* bytes, size_t count, Add add) {
    const auto* from = static_cast<const uint8_t*>(bytes);
    Checksum sums = before;
    add(sums, from, count / kStripe);
    if (const size_t rest = count % kStripe) {
        uint8_t last[kStripe] = {};
        std::memcpy(last, from + count - rest, rest);
        add(sums, last, 1);
    }
    return sums;
}

} // namespace

Checksum ChecksumOf(const Checksum& before, const void* bytes, size_t count) {
    return WithLastStripe(before, bytes, count, AddStripes);
}

Checksum ChecksumByTables(const Checksum& before, const void* bytes, size_t count) {
    return WithLastStripe(before, bytes, count, AddStripesByTables);
}

} // namespace kova_cli
