// SPDX-License-Identifier: MIT
//
// What the paths with AVX-512 do with vectors.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace orvo {
namespace { // nothing that a file for another instruction set could share

inline __mmask64 FirstBytes(size_t count) {
    return count >= 64 ? ~__mmask64{0} : (__mmask64{1} << count) - 1;
}
inline __mmask16 FirstBytes16(size_t count) {
    return static_cast<__mmask16>(count >= 16 ? 0xFFFFu : (1u << count) - 1);
}

#ifdef __AVX512VNNI__ // not where the tests put a model in the place of the vectors
// sum += four products a lane. GCC 12 copies and spills the accumulators of a tile around the
// intrinsic, which costs more than half of the tile's speed; the instruction itself does not.
inline __attribute__((always_inline)) void DotAccumulate(__m512i& sum, __m512i values,
                                                         __m512i weights) {
    __asm__("vpdpbusd %2, %1, %0" : "+v"(sum) : "v"(values), "v"(weights));
}
#endif

inline __m512i FlipSign(__m512i bytes) { return _mm512_xor_si512(bytes, _mm512_set1_epi8(-128)); }

// 64 sums to bytes. With a shift of up to 8 they may be saturated to 16 bits before it: what that
// changes is out of the range of 8 bits after the shift as well.
template <bool ShiftWords>
inline __m512i Requantise(const __m512i sums[4], __m512i shift) {
    if constexpr (ShiftWords) {
        const __m512i low = _mm512_srav_epi16(_mm512_packs_epi32(sums[0], sums[1]), shift);
        const __m512i high = _mm512_srav_epi16(_mm512_packs_epi32(sums[2], sums[3]), shift);
        return _mm512_packs_epi16(low, high);
    } else {
        // A count of 32 and more leaves the sign.
        const __m512i low = _mm512_packs_epi32(_mm512_srav_epi32(sums[0], shift),
                                               _mm512_srav_epi32(sums[1], shift));
        const __m512i high = _mm512_packs_epi32(_mm512_srav_epi32(sums[2], shift),
                                                _mm512_srav_epi32(sums[3], shift));
        return _mm512_packs_epi16(low, high);
    }
}

template <bool ShiftWords>
inline __m512i ShiftCounts(uint32_t shift) {
    return ShiftWords ? _mm512_set1_epi16(static_cast<int16_t>(shift))
                      : _mm512_set1_epi32(static_cast<int>(shift));
}

inline __m512i RequantiseBy(const __m512i sums[4], uint32_t shift) {
    return shift <= 8 ? Requantise<true>(sums, ShiftCounts<true>(shift))
                      : Requantise<false>(sums, ShiftCounts<false>(shift));
}

// Bytes by vectors of 16, 32 and 64. `some`: which bytes are loaded, stored or, in MaxOf(), the
// greater ones; the others are zero, stay as they are, or a's.
struct Bytes16 {
    using Vector = __m128i;
    static constexpr size_t kSize = 16;
    static Vector Load(const int8_t* from) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    }
    static Vector LoadSome(__mmask64 some, const int8_t* from) {
        return _mm_maskz_loadu_epi8(static_cast<__mmask16>(some), from);
    }
    static void Store(Vector bytes, int8_t* to) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
    }
    static void StoreSome(__mmask64 some, Vector bytes, int8_t* to) {
        _mm_mask_storeu_epi8(to, static_cast<__mmask16>(some), bytes);
    }
    static Vector Max(Vector a, Vector b) { return _mm_max_epi8(a, b); }
    static Vector MaxOf(__mmask64 some, Vector a, Vector b) {
        return _mm_mask_max_epi8(a, static_cast<__mmask16>(some), a, b);
    }
};
struct Bytes32 {
    using Vector = __m256i;
    static constexpr size_t kSize = 32;
    static Vector Load(const int8_t* from) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
    }
    static Vector LoadSome(__mmask64 some, const int8_t* from) {
        return _mm256_maskz_loadu_epi8(static_cast<__mmask32>(some), from);
    }
    static void Store(Vector bytes, int8_t* to) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), bytes);
    }
    static void StoreSome(__mmask64 some, Vector bytes, int8_t* to) {
        _mm256_mask_storeu_epi8(to, static_cast<__mmask32>(some), bytes);
    }
    static Vector Max(Vector a, Vector b) { return _mm256_max_epi8(a, b); }
    static Vector MaxOf(__mmask64 some, Vector a, Vector b) {
        return _mm256_mask_max_epi8(a, static_cast<__mmask32>(some), a, b);
    }
};
struct Bytes64 {
    using Vector = __m512i;
    static constexpr size_t kSize = 64;
    static Vector Load(const int8_t* from) { return _mm512_loadu_si512(from); }
    static Vector LoadSome(__mmask64 some, const int8_t* from) {
        return _mm512_maskz_loadu_epi8(some, from);
    }
    static void Store(Vector bytes, int8_t* to) { _mm512_storeu_si512(to, bytes); }
    static void StoreSome(__mmask64 some, Vector bytes, int8_t* to) {
        _mm512_mask_storeu_epi8(to, some, bytes);
    }
    static Vector Max(Vector a, Vector b) { return _mm512_max_epi8(a, b); }
    static Vector MaxOf(__mmask64 some, Vector a, Vector b) {
        return _mm512_mask_max_epi8(a, some, a, b);
    }
};

// All of a vector, or some: with a constant mask the compiler drops it.
inline __m512i LoadBytes(__mmask64 inside, const int8_t* from) {
    return ~inside == 0 ? _mm512_loadu_si512(from) : _mm512_maskz_loadu_epi8(inside, from);
}
inline void StoreBytes(__mmask64 inside, __m512i bytes, int8_t* to) {
    if (~inside == 0) {
        _mm512_storeu_si512(to, bytes);
    } else {
        _mm512_mask_storeu_epi8(to, inside, bytes);
    }
}

// Fetches a line that is about to be written: a store that has to wait for its line holds up all
// that come after it. The place need not exist.
inline void PrefetchToWrite(const int8_t* place) { __asm__ volatile("prefetchw %0" ::"m"(*place)); }

// Four times 16 bytes become 16 times four.
struct SixteenByFour {
    alignas(64) uint8_t of[64];

    constexpr SixteenByFour() : of{} {
        for (size_t i = 0; i < 64; ++i) {
            of[i] = static_cast<uint8_t>(i % 4 * 16 + i / 4);
        }
    }
};

// 16 lanes of one byte of each of four rows, of which `count` are there: 16 bytes of them, or those
// inside. Rows are inserted as they are loaded, for which there are two ports, and a permutation of
// bytes takes the place of unpacking, for which there is one.
template <bool kWhole>
inline __m512i InterleaveRows(const int8_t* at, size_t pitch, size_t count, __mmask16 inside) {
    static constexpr SixteenByFour kTogether;
    const auto row = [&](size_t i) {
        if (i >= count) {
            return _mm_setzero_si128();
        }
        return kWhole ? Bytes16::Load(at + i * pitch) : Bytes16::LoadSome(inside, at + i * pitch);
    };
    __m512i rows = _mm512_castsi128_si512(row(0));
    rows = _mm512_inserti32x4(rows, row(1), 1);
    rows = _mm512_inserti32x4(rows, row(2), 2);
    rows = _mm512_inserti32x4(rows, row(3), 3);
    return _mm512_permutexvar_epi8(_mm512_load_si512(kTogether.of), rows);
}

// Steps of four rows of up to 16 pixels, `rows` in all, one after the other to store(lanes, inside).
template <typename Store>
inline void InterleaveSteps(const int8_t* at, size_t pitch, size_t rows, size_t pixels,
                            const Store& store) {
    const __mmask16 inside = FirstBytes16(pixels);
    for (; pixels >= 16 && rows >= 4; rows -= 4, at += 4 * pitch) {
        store(InterleaveRows<true>(at, pitch, 4, inside), inside);
    }
    for (; rows >= 4; rows -= 4, at += 4 * pitch) {
        store(InterleaveRows<false>(at, pitch, 4, inside), inside);
    }
    if (rows > 0) {
        store(InterleaveRows<false>(at, pitch, rows, inside), inside);
    }
}

// In 16 bytes, what is four by four.
inline __m128i TransposeFourByFour() {
    return _mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
}

// 16 bytes of each of one to four planes. Requantising leaves 4 of each plane in each 16 bytes.
inline void StoreFourPlanes(__m512i requantised, int8_t* dst, size_t planePitch, size_t planes,
                            __mmask16 inside) {
    const __m512i byPlane = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    const __m512i bytes = _mm512_permutexvar_epi32(byPlane, requantised);
    _mm_mask_storeu_epi8(dst, inside, _mm512_castsi512_si128(bytes));
    if (planes > 1) {
        _mm_mask_storeu_epi8(dst + planePitch, inside, _mm512_extracti32x4_epi32(bytes, 1));
    }
    if (planes > 2) {
        _mm_mask_storeu_epi8(dst + 2 * planePitch, inside, _mm512_extracti32x4_epi32(bytes, 2));
    }
    if (planes > 3) {
        _mm_mask_storeu_epi8(dst + 3 * planePitch, inside, _mm512_extracti32x4_epi32(bytes, 3));
    }
}

} // namespace
} // namespace orvo
