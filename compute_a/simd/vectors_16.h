// SPDX-License-Identifier: MIT
//
// Loads and stores of up to 16 bytes on x86-64, for what is compiled for SSE4.1 or more.
#pragma once

#include <smmintrin.h>

#include <cstddef>
#include <cstdint>

namespace orvo {
namespace { // nothing that a file for another instruction set could share

inline __m128i Load16(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}
inline void Store16(void* to, __m128i bytes) { _mm_storeu_si128(static_cast<__m128i*>(to), bytes); }

template <typename Word>
inline Word LoadWord(const int8_t* from) {
    Word word;
    __builtin_memcpy(&word, from, sizeof word);
    return word;
}

inline __m128i Load8(const int8_t* from) { return _mm_cvtsi64_si128(LoadWord<int64_t>(from)); }
inline void Store8(int8_t* to, __m128i bytes) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), bytes);
}
inline __m128i Load4(const int8_t* from) { return _mm_cvtsi32_si128(LoadWord<int32_t>(from)); }
inline void Store4(int8_t* to, __m128i bytes) {
    const int32_t word = _mm_cvtsi128_si32(bytes);
    __builtin_memcpy(to, &word, sizeof word);
}

} // namespace
} // namespace orvo
