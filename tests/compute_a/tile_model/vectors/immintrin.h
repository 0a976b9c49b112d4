// SPDX-License-Identifier: MIT
//
// Comes before the compiler's header where amx.cpp is compiled for the tests, so that it runs on
// processors without AVX-512: what it does with vectors of 64 bytes and with masks is done here on
// bytes, the rest by instructions that every x86-64 processor has.
#pragma once

#include_next <immintrin.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace orvo_test {

struct alignas(64) Vector {
    std::array<uint8_t, 64> bytes;
};

template <typename Lane>
using Lanes = std::array<Lane, 64 / sizeof(Lane)>;

template <typename Lane>
Lanes<Lane> LanesOf(const Vector& v) {
    return std::bit_cast<Lanes<Lane>>(v);
}

// Lane by lane: of(i).
template <typename Lane, typename Of>
Vector MakeLanes(const Of& of) {
    Lanes<Lane> lanes{};
    for (size_t i = 0; i < lanes.size(); ++i) {
        lanes[i] = static_cast<Lane>(of(i));
    }
    return std::bit_cast<Vector>(lanes);
}

// The four 128-bit parts.
struct Parts {
    __m128i part[4];
};
inline Parts PartsOf(const Vector& v) { return std::bit_cast<Parts>(v); }
template <typename Of>
Vector MakeParts(const Of& of) {
    return std::bit_cast<Vector>(Parts{{of(0), of(1), of(2), of(3)}});
}

inline bool IsIn(uint64_t mask, size_t i) { return (mask >> i & 1) != 0; }

inline void RequireLine(const void* place) {
    if (reinterpret_cast<uintptr_t>(place) % 64 != 0) {
        std::fprintf(stderr, "the processor would refuse: a vector across lines\n");
        std::abort();
    }
}

// ---- Loads and stores

inline Vector Load(const void* from) {
    Vector v;
    std::memcpy(&v, from, sizeof v);
    return v;
}
inline Vector LoadLine(const void* from) {
    RequireLine(from);
    return Load(from);
}
inline void Store(void* to, const Vector& v) { std::memcpy(to, &v, sizeof v); }
inline void StoreLine(void* to, const Vector& v) {
    RequireLine(to);
    Store(to, v);
}
// Reads and writes nothing but what the mask names.
inline Vector LoadSome(uint64_t mask, const void* from) {
    const uint8_t* const bytes = static_cast<const uint8_t*>(from);
    return MakeLanes<uint8_t>([&](size_t i) { return IsIn(mask, i) ? bytes[i] : uint8_t{0}; });
}
inline void StoreSome(void* to, uint64_t mask, const Vector& v) {
    for (size_t i = 0; i < 64; ++i) {
        if (IsIn(mask, i)) {
            static_cast<uint8_t*>(to)[i] = v.bytes[i];
        }
    }
}
inline __m128i FirstPart(const Vector& v) { return PartsOf(v).part[0]; }
inline __m128i LoadSome16(__mmask16 mask, const void* from) {
    return FirstPart(LoadSome(mask, from));
}
inline void StoreSome16(void* to, __mmask16 mask, __m128i bytes) {
    StoreSome(to, mask, MakeParts([&](size_t) { return bytes; }));
}

// ---- Lanes and parts

template <typename Lane>
Vector All(Lane value) {
    return MakeLanes<Lane>([=](size_t) { return value; });
}
inline Vector InsertPart(const Vector& v, __m128i part, size_t at) {
    const Parts parts = PartsOf(v);
    return MakeParts([&](size_t i) { return i == at ? part : parts.part[i]; });
}
// Two parts of `a`, then two of `b`, each named by two bits.
inline Vector ShuffleParts(const Vector& a, const Vector& b, unsigned order) {
    const Parts from[2] = {PartsOf(a), PartsOf(b)};
    return MakeParts([&](size_t i) { return from[i / 2].part[order >> 2 * i & 3]; });
}
inline Vector PermuteBytes(uint64_t mask, const Vector& order, const Vector& v) {
    return MakeLanes<uint8_t>(
        [&](size_t i) { return IsIn(mask, i) ? v.bytes[order.bytes[i] & 63] : uint8_t{0}; });
}
inline Vector PermuteWords(const Vector& order, const Vector& v) {
    const auto indices = LanesOf<uint32_t>(order);
    const auto words = LanesOf<uint32_t>(v);
    return MakeLanes<uint32_t>([&](size_t i) { return words[indices[i] & 15]; });
}
inline Vector ShuffleWithinParts(const Vector& v, const Vector& order) {
    return MakeLanes<uint8_t>([&](size_t i) {
        const uint8_t index = order.bytes[i];
        return index >= 128 ? uint8_t{0} : v.bytes[i / 16 * 16 + (index & 15)];
    });
}
// A count of all bits and more leaves the sign.
template <typename Lane>
Vector ShiftRight(const Vector& v, const Vector& counts) {
    constexpr unsigned kMost = 8 * sizeof(Lane) - 1;
    const auto values = LanesOf<Lane>(v);
    const auto by = LanesOf<std::make_unsigned_t<Lane>>(counts);
    return MakeLanes<Lane>([&](size_t i) { return values[i] >> (by[i] < kMost ? by[i] : kMost); });
}
inline Vector MaxOf(const Vector& others, uint64_t mask, const Vector& a, const Vector& b) {
    const auto first = LanesOf<int8_t>(a);
    const auto second = LanesOf<int8_t>(b);
    const auto other = LanesOf<int8_t>(others);
    return MakeLanes<int8_t>([&](size_t i) {
        return !IsIn(mask, i) ? other[i] : second[i] > first[i] ? second[i] : first[i];
    });
}
inline Vector Xor(const Vector& a, const Vector& b) {
    return MakeLanes<uint8_t>([&](size_t i) { return a.bytes[i] ^ b.bytes[i]; });
}
// What the instructions for 16 bytes do, in each part.
template <typename Do>
Vector InParts(const Vector& a, const Vector& b, const Do& of) {
    const Parts first = PartsOf(a);
    const Parts second = PartsOf(b);
    return MakeParts([&](size_t i) { return of(first.part[i], second.part[i]); });
}

} // namespace orvo_test

#define ORVO_IN_PARTS(of, a, b) \
    orvo_test::InParts(a, b, [](__m128i x, __m128i y) { return of(x, y); })
#define __m512i orvo_test::Vector
#define _mm512_load_si512(from) orvo_test::LoadLine(from)
#define _mm512_loadu_si512(from) orvo_test::Load(from)
#define _mm512_maskz_loadu_epi8(mask, from) orvo_test::LoadSome(mask, from)
#define _mm512_store_si512(to, v) orvo_test::StoreLine(to, v)
#define _mm512_storeu_si512(to, v) orvo_test::Store(to, v)
#define _mm512_mask_storeu_epi8(to, mask, v) orvo_test::StoreSome(to, mask, v)
#define _mm_maskz_loadu_epi8(mask, from) orvo_test::LoadSome16(mask, from)
#define _mm_mask_storeu_epi8(to, mask, v) orvo_test::StoreSome16(to, mask, v)
#define _mm512_setzero_si512() orvo_test::All<uint8_t>(0)
#define _mm512_set1_epi8(value) orvo_test::All<int8_t>(value)
#define _mm512_set1_epi16(value) orvo_test::All<int16_t>(value)
#define _mm512_set1_epi32(value) orvo_test::All<int32_t>(value)
#define _mm512_setr_epi32(...) \
    std::bit_cast<orvo_test::Vector>(std::array<int32_t, 16>{__VA_ARGS__})
#define _mm512_broadcast_i32x4(part) orvo_test::MakeParts([&](size_t) { return part; })
#define _mm512_castsi128_si512(part) orvo_test::InsertPart(orvo_test::Vector{}, part, 0)
#define _mm512_castsi512_si128(v) orvo_test::FirstPart(v)
#define _mm512_inserti32x4(v, part, at) orvo_test::InsertPart(v, part, at)
#define _mm512_extracti32x4_epi32(v, at) orvo_test::PartsOf(v).part[at]
#define _mm512_shuffle_i32x4(a, b, order) orvo_test::ShuffleParts(a, b, order)
#define _mm512_permutexvar_epi8(order, v) orvo_test::PermuteBytes(~uint64_t{0}, order, v)
#define _mm512_maskz_permutexvar_epi8(mask, order, v) orvo_test::PermuteBytes(mask, order, v)
#define _mm512_permutexvar_epi32(order, v) orvo_test::PermuteWords(order, v)
#define _mm512_shuffle_epi8(v, order) orvo_test::ShuffleWithinParts(v, order)
#define _mm512_srav_epi16(v, counts) orvo_test::ShiftRight<int16_t>(v, counts)
#define _mm512_srav_epi32(v, counts) orvo_test::ShiftRight<int32_t>(v, counts)
#define _mm512_max_epi8(a, b) orvo_test::MaxOf(a, ~uint64_t{0}, a, b)
#define _mm512_mask_max_epi8(others, mask, a, b) orvo_test::MaxOf(others, mask, a, b)
#define _mm512_xor_si512(a, b) orvo_test::Xor(a, b)
#define _mm512_packs_epi16(a, b) ORVO_IN_PARTS(_mm_packs_epi16, a, b)
#define _mm512_packs_epi32(a, b) ORVO_IN_PARTS(_mm_packs_epi32, a, b)
#define _mm512_unpacklo_epi8(a, b) ORVO_IN_PARTS(_mm_unpacklo_epi8, a, b)
#define _mm512_unpackhi_epi8(a, b) ORVO_IN_PARTS(_mm_unpackhi_epi8, a, b)
#define _mm512_unpacklo_epi16(a, b) ORVO_IN_PARTS(_mm_unpacklo_epi16, a, b)
#define _mm512_unpackhi_epi16(a, b) ORVO_IN_PARTS(_mm_unpackhi_epi16, a, b)
