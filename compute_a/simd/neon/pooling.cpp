// SPDX-License-Identifier: MIT
//
// Maximum pools and sampling with NEON. What is left over at the end of a row is covered by a last
// vector that overlaps the one before it.
#include "compute_a/simd/neon/lanes.h"
#include "compute_a/simd/neon/routines.h"
#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/planes_of_rows.h"

namespace orvo {
namespace {

struct Bytes8 {
    using Vector = int8x8_t;
    static constexpr size_t kCount = 8;
    static Vector Load(const int8_t* from) { return vld1_s8(from); }
    static void Store(int8_t* to, Vector v) { vst1_s8(to, v); }
    static Vector Max(Vector a, Vector b) { return vmax_s8(a, b); }
};
struct Bytes16 {
    using Vector = int8x16_t;
    static constexpr size_t kCount = 16;
    static Vector Load(const int8_t* from) { return vld1q_s8(from); }
    static void Store(int8_t* to, Vector v) { vst1q_s8(to, v); }
    static Vector Max(Vector a, Vector b) { return vmaxq_s8(a, b); }
};

// `Vectors` vectors of columns of a row.
template <class Bytes, size_t Vectors>
struct RowOfMaxima {
    typename Bytes::Vector of[Vectors];
};

// Replaces columns by the larger of themselves and their right neighbours: those at `at` and, with
// two vectors, those `apart` columns to the right of it, which may overlap the first: both are
// loaded before either is replaced.
template <class Bytes, size_t Vectors>
inline RowOfMaxima<Bytes, Vectors> MaxOfNeighbours(int8_t* at, size_t apart) {
    RowOfMaxima<Bytes, Vectors> maxima;
#pragma GCC unroll 2
    for (size_t v = 0; v < Vectors; ++v) {
        const int8_t* from = at + v * apart;
        maxima.of[v] = Bytes::Max(Bytes::Load(from), Bytes::Load(from + 1));
    }
#pragma GCC unroll 2
    for (size_t v = 0; v < Vectors; ++v) {
        Bytes::Store(at + v * apart, maxima.of[v]);
    }
    return maxima;
}

template <class Bytes, size_t Vectors>
inline void StoreMaxOfRows(const RowOfMaxima<Bytes, Vectors>& a,
                           const RowOfMaxima<Bytes, Vectors>& b, int8_t* dst, size_t apart) {
#pragma GCC unroll 2
    for (size_t v = 0; v < Vectors; ++v) {
        Bytes::Store(dst + v * apart, Bytes::Max(a.of[v], b.of[v]));
    }
}

// Down the columns of a plane, two rows at a time, so that no row's maxima are copied: a fifth
// fewer instructions than one row at a time.
template <class Bytes, size_t Vectors>
void MaxPoolColumns(int8_t* src, size_t apart, size_t width, size_t height, int8_t* dst) {
    auto above = MaxOfNeighbours<Bytes, Vectors>(src, apart);
    size_t left = height - 1;
    for (; left >= 2; left -= 2) {
        src += width;
        const auto below = MaxOfNeighbours<Bytes, Vectors>(src, apart);
        StoreMaxOfRows(above, below, dst, apart);
        dst += width - 1;
        src += width;
        above = MaxOfNeighbours<Bytes, Vectors>(src, apart);
        StoreMaxOfRows(below, above, dst, apart);
        dst += width - 1;
    }
    if (left > 0) {
        const auto below = MaxOfNeighbours<Bytes, Vectors>(src + width, apart);
        StoreMaxOfRows(above, below, dst, apart);
    }
}

template <class Bytes>
void MaxPoolInVectors(int8_t* src, size_t width, size_t height, int8_t* dst) {
    const size_t columns = width - 1;
    size_t x = 0;
    for (; x + 2 * Bytes::kCount < columns; x += Bytes::kCount) {
        MaxPoolColumns<Bytes, 1>(src + x, 0, width, height, dst + x);
    }
    MaxPoolColumns<Bytes, 2>(src + x, columns - Bytes::kCount - x, width, height, dst + x);
}

void MaxPoolPlane(int8_t* src, size_t width, size_t height, int8_t* dst) {
    if (height == 0) {
        return;
    }
    if (width > Bytes16::kCount) {
        MaxPoolInVectors<Bytes16>(src, width, height, dst);
    } else if (width > Bytes8::kCount) {
        MaxPoolInVectors<Bytes8>(src, width, height, dst);
    } else {
        plain::MaxPoolStride1(src, width, height, dst);
    }
}

void MaxPoolRows(const int8_t* upper, const int8_t* lower, size_t dstWidth, int8_t* dst) {
    if (dstWidth < 8) {
        plain::MaxPoolRows(upper, lower, dstWidth, dst);
        return;
    }
    const auto pool = [upper, lower, dst](size_t x) {
        const int8x16_t maxima = vmaxq_s8(vld1q_s8(upper + 2 * x), vld1q_s8(lower + 2 * x));
        vst1_s8(dst + x, vpmax_s8(vget_low_s8(maxima), vget_high_s8(maxima)));
    };
    const size_t last = dstWidth - 8;
    for (size_t x = 0; x < last; x += 8) {
        pool(x);
    }
    pool(last);
}

// The last value sampled may be the last of the source, so the last vector starts one value before
// its own and takes every other.
void SampleRow(const int8_t* src, size_t dstWidth, int8_t* dst) {
    size_t x = 0;
    if (dstWidth > 16) {
        for (; x + 16 < dstWidth; x += 16) {
            vst1q_s8(dst + x, vld2q_s8(src + 2 * x).val[0]);
        }
        x = dstWidth - 16;
        vst1q_s8(dst + x, vld2q_s8(src + 2 * x - 1).val[1]);
    } else if (dstWidth > 8) {
        vst1_s8(dst, vld2_s8(src).val[0]);
        x = dstWidth - 8;
        vst1_s8(dst + x, vld2_s8(src + 2 * x - 1).val[1]);
    } else {
        plain::SampleRow(src, dstWidth, dst);
    }
}

} // namespace

void neon::MaxPoolStride1(int8_t* src, const Planes& planes, int8_t* dst) {
    MaxPoolStride1ByPlanes<MaxPoolPlane>(src, planes, dst);
}

void neon::MaxPoolStride2(const int8_t* src, const Planes& planes, int8_t* dst) {
    MaxPoolStride2ByRows<MaxPoolRows>(src, planes, dst);
}

void neon::Sample(const int8_t* src, const Planes& planes, int8_t* dst) {
    SampleByRows<SampleRow>(src, planes, dst);
}

} // namespace orvo
