// SPDX-License-Identifier: MIT
//
// Pooling and sampling with SSE4.1. Ends of few values are left to the plain routines.
#include "compute_a/routines.h"
#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/planes_of_rows.h"
#include "compute_a/simd/pooling_16.h"
#include "compute_a/simd/sse41/routines.h"

namespace orvo {
namespace {

void MaxPoolPlane(int8_t* src, size_t width, size_t height, int8_t* dst) {
    constexpr size_t kSize = Vector16::kSize;
    const size_t columns = width - 1;
    if (columns <= 2 * kSize) {
        MaxPoolNarrowPlane(src, width, height, dst);
        return;
    }
    // A column of vectors needs the values right of it as they were, so they go from left to right, and
    // the last may overlap only the one that it goes with.
    size_t x = 0;
    for (; columns - x > 3 * kSize; x += 2 * kSize) {
        MaxPoolColumns<Vector16>(src, width, height, x, x + kSize, dst);
    }
    if (columns - x > 2 * kSize) {
        MaxPoolColumns<Vector16>(src, width, height, x, x, dst);
        x += kSize;
    }
    MaxPoolColumns<Vector16>(src, width, height, x, columns - kSize, dst);
}

inline __m128i LowBytes(__m128i first, __m128i second) {
    const __m128i mask = _mm_set1_epi16(0xFF);
    return _mm_packus_epi16(_mm_and_si128(first, mask), _mm_and_si128(second, mask));
}
inline __m128i LowBytes(__m128i words) { return LowBytes(words, words); }
inline __m128i HighBytes(__m128i first, __m128i second) {
    return _mm_packus_epi16(_mm_srli_epi16(first, 8), _mm_srli_epi16(second, 8));
}
inline __m128i HighBytes(__m128i words) { return HighBytes(words, words); }

void MaxPoolRows(const int8_t* upper, const int8_t* lower, size_t dstWidth, int8_t* dst) {
    const auto pairs = [](__m128i a, __m128i b) {
        const __m128i rows = _mm_max_epi8(a, b);
        return _mm_max_epi8(rows, _mm_srli_epi16(rows, 8));
    };
    const auto pairsAt = [&](size_t at) { return pairs(Load16(upper + at), Load16(lower + at)); };
    const auto do16 = [&](size_t x) {
        Store16(dst + x, LowBytes(pairsAt(2 * x), pairsAt(2 * x + 16)));
    };
    const auto do8 = [&](size_t x) { Store8(dst + x, LowBytes(pairsAt(2 * x))); };
    const auto do4 = [&](size_t x) {
        Store4(dst + x, LowBytes(pairs(Load8(upper + 2 * x), Load8(lower + 2 * x))));
    };
    InBlocks(dstWidth, do16, do8, do4, [&] { plain::MaxPoolRows(upper, lower, dstWidth, dst); });
}

// A row of odd length ends with a value that is sampled, so that a vector that starts with a
// sampled value would reach beyond it. All but the first vectors start one value earlier.
void SampleRow(const int8_t* src, size_t dstWidth, int8_t* dst) {
    if (dstWidth < 2) {
        plain::SampleRow(src, dstWidth, dst);
        return;
    }
    dst[0] = src[0];
    const int8_t* const from = src + 1;
    int8_t* const to = dst + 1;
    const size_t count = dstWidth - 1;
    const auto do16 = [&](size_t x) {
        Store16(to + x, HighBytes(Load16(from + 2 * x), Load16(from + 2 * x + 16)));
    };
    const auto do8 = [&](size_t x) { Store8(to + x, HighBytes(Load16(from + 2 * x))); };
    const auto do4 = [&](size_t x) { Store4(to + x, HighBytes(Load8(from + 2 * x))); };
    InBlocks(count, do16, do8, do4, [&] { plain::SampleRow(from + 1, count, to); });
}

} // namespace

void sse41::MaxPoolStride1(int8_t* src, const Planes& planes, int8_t* dst) {
    MaxPoolStride1ByPlanes<MaxPoolPlane>(src, planes, dst);
}

void sse41::MaxPoolStride2(const int8_t* src, const Planes& planes, int8_t* dst) {
    MaxPoolStride2ByRows<MaxPoolRows>(src, planes, dst);
}

void sse41::Sample(const int8_t* src, const Planes& planes, int8_t* dst) {
    SampleByRows<SampleRow>(src, planes, dst);
}

} // namespace orvo
