// SPDX-License-Identifier: MIT
//
// Pooling and sampling with WebAssembly's vectors. Ends of few values are left to the plain routines.
#include "compute_a/simd/planes_of_rows.h"

#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/wasm/lanes.h"
#include "compute_a/simd/wasm/routines.h"

namespace orvo {
namespace {

// Bytes by vectors of 16 and 8.
struct Bytes16 {
    static constexpr size_t kSize = 16;
    static Vector Load(const int8_t* from) { return wasm_v128_load(from); }
    static void Store(int8_t* to, Vector bytes) { wasm_v128_store(to, bytes); }
};
struct Bytes8 {
    static constexpr size_t kSize = 8;
    static Vector Load(const int8_t* from) { return wasm_v128_load64_zero(from); }
    static void Store(int8_t* to, Vector bytes) { wasm_v128_store64_lane(to, bytes, 0); }
};

// The columns at `first` and as many at `second`, from the top of the plane to its bottom. The two
// may overlap: in each row both are read before either is written. Register plan: the horizontal
// maxima of this row and of the next, for each of the two.
template <typename Bytes>
void MaxPoolColumns(int8_t* src, size_t width, size_t height, size_t first, size_t second,
                    int8_t* dst) {
    const auto horizontal = [](const int8_t* at) {
        return wasm_i8x16_max(Bytes::Load(at), Bytes::Load(at + 1));
    };
    Vector here1 = horizontal(src + first);
    Vector here2 = horizontal(src + second);
    for (size_t y = 1; y < height; ++y, src += width, dst += width - 1) {
        const Vector next1 = horizontal(src + width + first);
        const Vector next2 = horizontal(src + width + second);
        Bytes::Store(src + first, here1);
        Bytes::Store(src + second, here2);
        Bytes::Store(dst + first, wasm_i8x16_max(here1, next1));
        Bytes::Store(dst + second, wasm_i8x16_max(here2, next2));
        here1 = next1;
        here2 = next2;
    }
    Bytes::Store(src + first, here1);
    Bytes::Store(src + second, here2);
}

void MaxPoolPlane(int8_t* src, size_t width, size_t height, int8_t* dst) {
    const size_t columns = width - 1;
    if (columns < Bytes8::kSize) {
        plain::MaxPoolStride1(src, width, height, dst);
    } else if (columns < Bytes16::kSize) {
        MaxPoolColumns<Bytes8>(src, width, height, 0, columns - Bytes8::kSize, dst);
    } else {
        // Columns of vectors need the values right of them as they were, so they go from left to
        // right, and the last may overlap only the one that it goes with.
        size_t x = 0;
        for (; x + 2 * Bytes16::kSize < columns; x += 2 * Bytes16::kSize) {
            if (columns - x <= 3 * Bytes16::kSize) {
                MaxPoolColumns<Bytes16>(src, width, height, x, x, dst);
                x += Bytes16::kSize;
                break;
            }
            MaxPoolColumns<Bytes16>(src, width, height, x, x + Bytes16::kSize, dst);
        }
        MaxPoolColumns<Bytes16>(src, width, height, x, columns - Bytes16::kSize, dst);
    }
}

// The low bytes of 16 words.
inline Vector LowBytes(Vector first, Vector second) {
    const Vector low = wasm_i16x8_splat(0xFF);
    return wasm_u8x16_narrow_i16x8(wasm_v128_and(first, low), wasm_v128_and(second, low));
}

// Calls do16(x) or do8(x) until all of `count` results are made. The last call may repeat some.
template <typename Do16, typename Do8, typename DoRest>
inline void InBlocks(size_t count, const Do16& do16, const Do8& do8, const DoRest& doRest) {
    if (count >= 16) {
        for (size_t x = 0; x < count - 16; x += 16) {
            do16(x);
        }
        do16(count - 16);
    } else if (count >= 8) {
        do8(0);
        do8(count - 8);
    } else {
        doRest();
    }
}

// The larger of each pair of neighbours, as words of which the upper bytes mean nothing.
inline Vector MaxOfPairs(const int8_t* upper, const int8_t* lower) {
    const Vector rows = wasm_i8x16_max(wasm_v128_load(upper), wasm_v128_load(lower));
    return wasm_i8x16_max(rows, wasm_u16x8_shr(rows, 8));
}

void MaxPoolRows(const int8_t* upper, const int8_t* lower, size_t dstWidth, int8_t* dst) {
    const auto do16 = [&](size_t x) {
        wasm_v128_store(dst + x, LowBytes(MaxOfPairs(upper + 2 * x, lower + 2 * x),
                                          MaxOfPairs(upper + 2 * x + 16, lower + 2 * x + 16)));
    };
    const auto do8 = [&](size_t x) {
        const Vector words = MaxOfPairs(upper + 2 * x, lower + 2 * x);
        wasm_v128_store64_lane(dst + x, LowBytes(words, words), 0);
    };
    InBlocks(dstWidth, do16, do8, [&] { plain::MaxPoolRows(upper, lower, dstWidth, dst); });
}

// A row of odd length ends with a value that is sampled, so that a vector that starts with a sampled
// value would reach beyond it. All but the first vectors start one value earlier.
void SampleRow(const int8_t* src, size_t dstWidth, int8_t* dst) {
    dst[0] = src[0];
    const int8_t* const from = src + 1;
    int8_t* const to = dst + 1;
    const auto upperBytes = [](const int8_t* at) { return wasm_u16x8_shr(wasm_v128_load(at), 8); };
    const auto do16 = [&](size_t x) {
        wasm_v128_store(to + x, wasm_u8x16_narrow_i16x8(upperBytes(from + 2 * x),
                                                        upperBytes(from + 2 * x + 16)));
    };
    const auto do8 = [&](size_t x) {
        const Vector words = upperBytes(from + 2 * x);
        wasm_v128_store64_lane(to + x, wasm_u8x16_narrow_i16x8(words, words), 0);
    };
    InBlocks(dstWidth - 1, do16, do8, [&] { plain::SampleRow(src, dstWidth, dst); });
}

} // namespace

void wasm::MaxPoolStride1(int8_t* src, const Planes& planes, int8_t* dst) {
    MaxPoolStride1ByPlanes<MaxPoolPlane>(src, planes, dst);
}

void wasm::MaxPoolStride2(const int8_t* src, const Planes& planes, int8_t* dst) {
    MaxPoolStride2ByRows<MaxPoolRows>(src, planes, dst);
}

void wasm::Sample(const int8_t* src, const Planes& planes, int8_t* dst) {
    SampleByRows<SampleRow>(src, planes, dst);
}

} // namespace orvo
