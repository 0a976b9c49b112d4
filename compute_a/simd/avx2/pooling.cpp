// SPDX-License-Identifier: MIT
//
// Pooling and sampling with AVX2. Ends of few values are left to the plain routines.
#include "compute_a/routines.h"
#include "compute_a/simd/avx2/lanes.h"
#include "compute_a/simd/avx2/routines.h"
#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/planes_of_rows.h"
#include "compute_a/simd/pooling_16.h"

namespace orvo {
namespace {

struct Vector32 {
    static constexpr size_t kSize = 32;
    static __m256i Load(const int8_t* from) { return Load32(from); }
    static void Store(int8_t* to, __m256i bytes) { Store32(to, bytes); }
    static __m256i Max(__m256i a, __m256i b) { return _mm256_max_epi8(a, b); }
};

void MaxPoolPlane(int8_t* src, size_t width, size_t height, int8_t* dst) {
    const size_t columns = width - 1;
    if (columns < Vector32::kSize) {
        MaxPoolNarrowPlane(src, width, height, dst);
    } else {
        // A column of vectors needs the values right of it as they were, so they go from left to
        // right, and the last may overlap only the one that it goes with.
        size_t x = 0;
        for (; x + 2 * Vector32::kSize < columns; x += Vector32::kSize) {
            MaxPoolColumns<Vector32>(src, width, height, x, x, dst);
        }
        MaxPoolColumns<Vector32>(src, width, height, x, columns - Vector32::kSize, dst);
    }
}

// The low bytes of 8 or 16 words.
inline __m128i LowBytes(__m128i words) {
    const __m128i low = _mm_and_si128(words, _mm_set1_epi16(0xFF));
    return _mm_packus_epi16(low, low);
}
inline __m128i LowBytes(__m256i words) {
    const __m256i low = _mm256_and_si256(words, _mm256_set1_epi16(0xFF));
    return _mm_packus_epi16(_mm256_castsi256_si128(low), _mm256_extracti128_si256(low, 1));
}

void MaxPoolRows(const int8_t* upper, const int8_t* lower, size_t dstWidth, int8_t* dst) {
    const auto do16 = [&](size_t x) {
        const __m256i rows = _mm256_max_epi8(Load32(upper + 2 * x), Load32(lower + 2 * x));
        Store16(dst + x, LowBytes(_mm256_max_epi8(rows, _mm256_srli_epi16(rows, 8))));
    };
    const auto pairs = [](__m128i a, __m128i b) {
        const __m128i rows = _mm_max_epi8(a, b);
        return LowBytes(_mm_max_epi8(rows, _mm_srli_epi16(rows, 8)));
    };
    const auto do8 = [&](size_t x) {
        Store8(dst + x, pairs(Load16(upper + 2 * x), Load16(lower + 2 * x)));
    };
    const auto do4 = [&](size_t x) {
        Store4(dst + x, pairs(Load8(upper + 2 * x), Load8(lower + 2 * x)));
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
        Store16(to + x, LowBytes(_mm256_srli_epi16(Load32(from + 2 * x), 8)));
    };
    const auto do8 = [&](size_t x) {
        Store8(to + x, LowBytes(_mm_srli_epi16(Load16(from + 2 * x), 8)));
    };
    const auto do4 = [&](size_t x) {
        Store4(to + x, LowBytes(_mm_srli_epi16(Load8(from + 2 * x), 8)));
    };
    InBlocks(count, do16, do8, do4, [&] { plain::SampleRow(from + 1, count, to); });
}

} // namespace

void avx2::MaxPoolStride1(int8_t* src, const Planes& planes, int8_t* dst) {
    MaxPoolStride1ByPlanes<MaxPoolPlane>(src, planes, dst);
}

void avx2::MaxPoolStride2(const int8_t* src, const Planes& planes, int8_t* dst) {
    MaxPoolStride2ByRows<MaxPoolRows>(src, planes, dst);
}

void avx2::Sample(const int8_t* src, const Planes& planes, int8_t* dst) {
    SampleByRows<SampleRow>(src, planes, dst);
}

} // namespace orvo
