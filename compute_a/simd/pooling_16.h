// SPDX-License-Identifier: MIT
//
// What pooling and sampling share on x86-64, for what is compiled for SSE4.1 or more.
#pragma once

#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/vectors_16.h"

namespace orvo {
namespace {

// Bytes by vectors of 16, 8 and 4.
struct Vector16 {
    static constexpr size_t kSize = 16;
    static __m128i Load(const int8_t* from) { return Load16(from); }
    static void Store(int8_t* to, __m128i bytes) { Store16(to, bytes); }
    static __m128i Max(__m128i a, __m128i b) { return _mm_max_epi8(a, b); }
};
struct Vector8 : Vector16 {
    static constexpr size_t kSize = 8;
    static __m128i Load(const int8_t* from) { return Load8(from); }
    static void Store(int8_t* to, __m128i bytes) { Store8(to, bytes); }
};
struct Vector4 : Vector16 {
    static constexpr size_t kSize = 4;
    static __m128i Load(const int8_t* from) { return Load4(from); }
    static void Store(int8_t* to, __m128i bytes) { Store4(to, bytes); }
};

// The columns at `first` and as many at `second`, from the top of the plane to its bottom. The two
// may overlap: in each row both are read before either is written. Register plan: the horizontal
// maxima of this row and of the next, for each of the two.
template <typename Vector>
void MaxPoolColumns(int8_t* src, size_t width, size_t height, size_t first, size_t second,
                    int8_t* dst) {
    const auto horizontal = [](const int8_t* at) {
        return Vector::Max(Vector::Load(at), Vector::Load(at + 1));
    };
    auto here1 = horizontal(src + first);
    auto here2 = horizontal(src + second);
    for (size_t y = 1; y < height; ++y, src += width, dst += width - 1) {
        const auto next1 = horizontal(src + width + first);
        const auto next2 = horizontal(src + width + second);
        Vector::Store(src + first, here1);
        Vector::Store(src + second, here2);
        Vector::Store(dst + first, Vector::Max(here1, next1));
        Vector::Store(dst + second, Vector::Max(here2, next2));
        here1 = next1;
        here2 = next2;
    }
    Vector::Store(src + first, here1);
    Vector::Store(src + second, here2);
}

// Planes of up to 32 columns of results.
inline void MaxPoolNarrowPlane(int8_t* src, size_t width, size_t height, int8_t* dst) {
    const size_t columns = width - 1;
    if (columns < Vector4::kSize) {
        plain::MaxPoolStride1(src, width, height, dst);
    } else if (columns < Vector8::kSize) {
        MaxPoolColumns<Vector4>(src, width, height, 0, columns - Vector4::kSize, dst);
    } else if (columns < Vector16::kSize) {
        MaxPoolColumns<Vector8>(src, width, height, 0, columns - Vector8::kSize, dst);
    } else {
        MaxPoolColumns<Vector16>(src, width, height, 0, columns - Vector16::kSize, dst);
    }
}

// Calls do16(x), do8(x) or do4(x) until all of `count` results are made. The last call may repeat
// some.
template <typename Do16, typename Do8, typename Do4, typename DoRest>
inline void InBlocks(size_t count, const Do16& do16, const Do8& do8, const Do4& do4,
                     const DoRest& doRest) {
    if (count >= 16) {
        for (size_t x = 0; x < count - 16; x += 16) {
            do16(x);
        }
        do16(count - 16);
    } else if (count >= 8) {
        do8(0);
        do8(count - 8);
    } else if (count >= 4) {
        do4(0);
        do4(count - 4);
    } else {
        doRest();
    }
}

} // namespace
} // namespace orvo
