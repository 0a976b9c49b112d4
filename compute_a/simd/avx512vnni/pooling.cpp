// SPDX-License-Identifier: MIT
//
// Pooling and sampling with AVX-512 (F, BW, DQ, VL, VBMI).
//
// Planes are taken as they lie in memory, across the ends of their rows; what a vector has too much
// is stored, too, where the next one replaces it. Masked loads and stores, which take several times
// as long, are left to the ends.
#include <immintrin.h>

#include "compute_a/routines.h"
#include "compute_a/simd/avx512vnni/lanes.h"
#include "compute_a/simd/avx512vnni/routines.h"
#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/planes_of_rows.h"

namespace orvo {
namespace {

// ---- Maximum with stride 1 ---------------------------------------------------------------------
//
// Planes of up to 64 columns: a vector a row, whose bytes beyond the columns that have a right
// neighbour stay as they are in the input and are replaced in the output by the next row. A row is
// loaded before the one above it is stored, since a load that meets a store on its way waits for
// it; so planes are taken as one sequence of rows.
//
// Registers: the maxima of two neighbours of this row and the next. Measured: 7 to 14 times as fast
// as the plain body, 1.1 to 1.4 times as two vectors of half the size a row; fetching the lines of
// the outputs early makes a tenth of that.
constexpr size_t kAhead = 384; // bytes, of the outputs whose lines are fetched

template <typename Bytes>
void MaxPoolByRow(int8_t* src, const Planes& planes, int8_t* dst) {
    using Vector = typename Bytes::Vector;
    const size_t width = planes.width;
    const size_t columns = width - 1;
    const __mmask64 pooled = FirstBytes(columns);
    const __mmask64 row = FirstBytes(width);
    const auto horizontal = [&](const int8_t* from) {
        return Bytes::MaxOf(pooled, Bytes::Load(from), Bytes::Load(from + 1));
    };
    int8_t* const lastRow = src + planes.bytes() - width; // behind it nothing may be touched
    const auto lastHorizontal = [&] {
        return Bytes::MaxOf(pooled, Bytes::LoadSome(row, lastRow),
                            Bytes::LoadSome(pooled, lastRow + 1));
    };
    Vector here = src < lastRow ? horizontal(src) : lastHorizontal();
    size_t left = planes.height; // rows of this plane, this one and those below
    for (int8_t* next = src + width; next <= lastRow; next += width, --left) {
        const Vector below = next < lastRow ? horizontal(next) : lastHorizontal();
        Bytes::Store(here, next - width);
        PrefetchToWrite(dst + kAhead);
        if (left == 1) {
            left = planes.height + 1;
        } else if (next < lastRow) {
            Bytes::Store(Bytes::Max(here, below), dst);
            dst += columns;
        } else {
            Bytes::StoreSome(pooled, Bytes::Max(here, below), dst);
        }
        here = below;
    }
    Bytes::StoreSome(row, here, lastRow);
}

// Planes of so few columns that several rows, of which a plane has a whole number of times as many,
// fit a vector. Such a block's outputs are brought together by a byte permutation. A plane's last
// block makes a row too much, of the next plane's first one, which is replaced. Here, too, a block is
// loaded before the one above it is stored. Measured: 1.3 to 1.7 times as fast as a vector a row.
struct RowsOfVector {
    size_t width, rows;
    __mmask64 hasRight; // which bytes have a right neighbour
    __m512i together;   // where a block's outputs come from

    RowsOfVector(size_t columns, size_t count) : width(columns), rows(count), hasRight(0) {
        alignas(64) uint8_t from[64] = {};
        uint8_t* to = from;
        for (size_t at = 0; at < 64; ++at) {
            const bool isLast = at % width == width - 1;
            hasRight |= __mmask64{!isLast} << at;
            if (!isLast && at < rows * width) {
                *to++ = static_cast<uint8_t>(at);
            }
        }
        together = _mm512_load_si512(from);
    }
    size_t bytes() const { return rows * width; }
};

// How many rows are taken at once, or 0. What is stored must not reach beyond the next block.
size_t RowsAtOnce(const Planes& planes) {
    size_t rows = 64 / planes.width;
    while (planes.height % rows != 0) {
        --rows;
    }
    return rows > 1 && 2 * rows * planes.width >= 64 ? rows : 0;
}

struct PooledRows {
    __m512i horizontal, both;
};

// load(from): 64 bytes, or as many as there are.
template <typename Load>
inline PooledRows PoolRows(const RowsOfVector& r, const int8_t* src, const Load& load) {
    const __m512i here = load(src);
    const __m512i horizontal = Bytes64::MaxOf(r.hasRight, here, load(src + 1));
    const __m512i below = Bytes64::Max(load(src + r.width), load(src + r.width + 1));
    return {horizontal, _mm512_permutexvar_epi8(r.together, Bytes64::Max(horizontal, below))};
}

void MaxPoolByRows(int8_t* src, const Planes& planes, int8_t* dst, size_t rows) {
    const RowsOfVector r(planes.width, rows);
    const size_t columns = planes.width - 1;
    const size_t blocks = planes.height / rows; // of a plane
    const int8_t* const srcEnd = src + planes.bytes();
    const int8_t* const dstEnd = dst + planes.channels * (planes.height - 1) * columns;
    const auto some = [&](const int8_t* from) {
        return Bytes64::LoadSome(from < srcEnd ? FirstBytes(static_cast<size_t>(srcEnd - from)) : 0,
                                 from);
    };
    const size_t reach = r.width + 1 + 64; // of a block's loads
    PooledRows here = PoolRows(r, src, some);
    size_t left = blocks; // of this plane, this one and those below
    const auto advance = [&](int8_t* next, const PooledRows& below) {
        src = next;
        here = below;
        --left;
        dst += columns * (left > 0 ? rows : rows - 1);
        left = left > 0 ? left : blocks;
    };
    for (int8_t* next = src + r.bytes(); static_cast<size_t>(srcEnd - src) >= r.bytes() + reach &&
                                         static_cast<size_t>(dstEnd - dst) >= 64;
         next += r.bytes()) {
        const PooledRows below = PoolRows(r, next, Bytes64::Load);
        PrefetchToWrite(dst + kAhead);
        Bytes64::Store(here.horizontal, src);
        Bytes64::Store(here.both, dst);
        advance(next, below);
    }
    // The rest with nothing read or written outside of the planes.
    while (src < srcEnd) {
        int8_t* const next = src + r.bytes();
        const PooledRows below = next < srcEnd ? PoolRows(r, next, some) : here;
        Bytes64::StoreSome(FirstBytes(r.bytes()), here.horizontal, src);
        Bytes64::StoreSome(FirstBytes(static_cast<size_t>(dstEnd - dst)), here.both, dst);
        advance(next, below);
    }
}

template <typename Second>
struct HorizontalMaxima {
    __m512i first;
    typename Second::Vector second;
};

// Planes of more than 64 columns: a whole vector a row and one that ends with it, of half the size
// where that reaches. Maxima that are taken twice are the same both times, because a row is loaded as
// a whole before any of it is replaced. Measured: 5 times as fast as the plain body; half a
// vector in place of a whole one 1.05 times.
template <typename Second>
void MaxPoolByTwoVectors(int8_t* src, size_t width, size_t height, int8_t* dst) {
    using Maxima = HorizontalMaxima<Second>;
    const size_t columns = width - 1;
    const size_t at = columns - Second::kSize;
    const auto horizontal = [&](const int8_t* row) {
        return Maxima{
            Bytes64::Max(Bytes64::Load(row), Bytes64::Load(row + 1)),
            Second::Max(Second::Load(row + at), Second::Load(row + at + 1)),
        };
    };
    const auto store = [&](const Maxima& maxima, int8_t* row) {
        Bytes64::Store(maxima.first, row);
        Second::Store(maxima.second, row + at);
    };
    Maxima here = horizontal(src);
    for (size_t y = 1; y < height; ++y, src += width, dst += columns) {
        const Maxima next = horizontal(src + width);
        PrefetchToWrite(dst + kAhead);
        PrefetchToWrite(dst + kAhead + 64);
        store(here, src);
        store({Bytes64::Max(here.first, next.first), Second::Max(here.second, next.second)}, dst);
        here = next;
    }
    store(here, src);
}

} // namespace

void avx512vnni::MaxPoolStride1(int8_t* src, const Planes& planes, int8_t* dst) {
    const size_t rows = planes.width > 1 && planes.width <= 32 ? RowsAtOnce(planes) : 0;
    // Of narrower planes a row's vector would be stored beyond the next row.
    if (rows > 0) {
        MaxPoolByRows(src, planes, dst, rows);
    } else if (planes.width > 8 && planes.width <= 16) {
        MaxPoolByRow<Bytes16>(src, planes, dst);
    } else if (planes.width > 16 && planes.width <= 32) {
        MaxPoolByRow<Bytes32>(src, planes, dst);
    } else if (planes.width > 32 && planes.width <= 64) {
        MaxPoolByRow<Bytes64>(src, planes, dst);
    } else if (planes.width > 64 && planes.width <= 97) {
        MaxPoolStride1ByPlanes<MaxPoolByTwoVectors<Bytes32>>(src, planes, dst);
    } else if (planes.width > 64 && planes.width <= 129) {
        MaxPoolStride1ByPlanes<MaxPoolByTwoVectors<Bytes64>>(src, planes, dst);
    } else {
        MaxPoolStride1ByPlanes<plain::MaxPoolStride1>(src, planes, dst);
    }
}

namespace {

// ---- Every second value of every second row ----------------------------------------------------
//
// A vector of input begins at an output's row and column and holds the input of several rows of
// outputs, of one, or of 32 outputs of a row. A byte permutation brings the outputs together.

// One row of input for each row of outputs.
struct EveryRow {
    static constexpr size_t kRows = 1;
    static __m512i Load(const int8_t* at, size_t /*width*/) { return _mm512_loadu_si512(at); }
    static __m512i LoadSome(const int8_t* at, size_t /*width*/, __mmask64 inside) {
        return _mm512_maskz_loadu_epi8(inside, at);
    }
};

// Two, whose maxima are brought to the even bytes.
struct MaximaOfPairs {
    static constexpr size_t kRows = 2;
    static __m512i Maxima(__m512i upper, __m512i lower) {
        const __m512i rows = _mm512_max_epi8(upper, lower);
        return _mm512_max_epi8(rows, _mm512_srli_epi16(rows, 8));
    }
    static __m512i Load(const int8_t* at, size_t width) {
        return Maxima(_mm512_loadu_si512(at), _mm512_loadu_si512(at + width));
    }
    static __m512i LoadSome(const int8_t* at, size_t width, __mmask64 inside) {
        return Maxima(_mm512_maskz_loadu_epi8(inside, at),
                      _mm512_maskz_loadu_epi8(inside, at + width));
    }
};

// The planes and what becomes of them.
struct Halving {
    size_t width, dstWidth, dstHeight;
    size_t columns;   // of outputs that a vector makes
    size_t rows;      // and rows of them, where it makes them whole
    __m512i together; // where its outputs come from

    Halving(const Planes& planes, size_t outputColumns, size_t outputRows)
        : width(planes.width),
          dstWidth(outputColumns),
          dstHeight(outputRows),
          columns(32),
          rows(1) {
        if (width <= 64) {
            columns = dstWidth;
            rows = (64 - width) / (2 * width) + 1;
        }
        alignas(64) uint8_t from[64] = {};
        uint8_t* to = from;
        for (size_t y = 0; y < rows; ++y) {
            for (size_t x = 0; x < columns; ++x) {
                *to++ = static_cast<uint8_t>(2 * (y * width + x));
            }
        }
        together = _mm512_load_si512(from);
    }
};

inline void StoreFirst(Bytes16, __m512i bytes, int8_t* to) {
    Bytes16::Store(_mm512_castsi512_si128(bytes), to);
}
inline void StoreFirst(Bytes32, __m512i bytes, int8_t* to) {
    Bytes32::Store(_mm512_castsi512_si256(bytes), to);
}

// One vector's outputs, in memory that goes on behind them.
template <typename Input, typename Stored>
inline void HalveWhole(const Halving& h, const int8_t* src, int8_t* dst) {
    StoreFirst(Stored{}, _mm512_permutexvar_epi8(h.together, Input::Load(src, h.width)), dst);
}

template <typename Input, typename Stored>
inline void HalveWholePlane(const Halving& h, const int8_t* src, int8_t* dst) {
    for (size_t y = 0; y < h.dstHeight; y += h.rows) {
        HalveWhole<Input, Stored>(h, src, dst);
        for (size_t x = h.columns; x < h.dstWidth; x += h.columns) {
            HalveWhole<Input, Stored>(h, src + 2 * x, dst + x);
        }
        src += 2 * h.rows * h.width;
        dst += h.rows * h.dstWidth;
    }
}

// The same with nothing read or written outside of the plane.
template <typename Input>
void HalvePlane(const Halving& h, const int8_t* src, int8_t* dst) {
    for (size_t y = 0; y < h.dstHeight; y += h.rows) {
        const size_t rows = h.dstHeight - y < h.rows ? h.dstHeight - y : h.rows;
        for (size_t x = 0; x < h.dstWidth; x += h.columns) {
            const size_t columns = h.dstWidth - x < h.columns ? h.dstWidth - x : h.columns;
            const size_t outputs = (rows - 1) * h.dstWidth + columns;
            const size_t inputs = 2 * ((rows - 1) * h.width + columns) - (2 - Input::kRows);
            const __m512i bytes =
                Input::LoadSome(src + 2 * (y * h.width + x), h.width, FirstBytes(inputs));
            _mm512_mask_storeu_epi8(dst + y * h.dstWidth + x, FirstBytes(outputs),
                                    _mm512_permutexvar_epi8(h.together, bytes));
        }
    }
}

template <typename Input, typename Stored>
void Halve(const int8_t* src, const Planes& planes, const Halving& h, int8_t* dst) {
    const size_t dstPlane = h.dstWidth * h.dstHeight;
    // So many planes at the end do not go on for a vector.
    const size_t last = dstPlane > 0 ? 64 / dstPlane + 1 : planes.channels;
    for (size_t c = planes.channels; c > 0; --c, src += planes.planeBytes(), dst += dstPlane) {
        if (c > last) {
            HalveWholePlane<Input, Stored>(h, src, dst);
        } else {
            HalvePlane<Input>(h, src, dst);
        }
    }
}

template <typename Input>
void HalveBySize(const int8_t* src, const Planes& planes, const Halving& h, int8_t* dst) {
    if (h.rows * h.columns <= Bytes16::kSize) {
        Halve<Input, Bytes16>(src, planes, h, dst);
    } else {
        Halve<Input, Bytes32>(src, planes, h, dst);
    }
}

} // namespace

// Measured: 6 to 10 times as fast as the plain body, 2.3 to 5.7 times as one row at a time.
void avx512vnni::MaxPoolStride2(const int8_t* src, const Planes& planes, int8_t* dst) {
    if (planes.width >= 2) {
        const Halving halving(planes, planes.width / 2, planes.height / 2);
        HalveBySize<MaximaOfPairs>(src, planes, halving, dst);
    }
}

// Measured: 1.6 to 8 times as fast as the plain body, 1.2 to 3.4 times as one row at a time.
void avx512vnni::Sample(const int8_t* src, const Planes& planes, int8_t* dst) {
    const Halving halving(planes, (planes.width + 1) / 2, (planes.height + 1) / 2);
    HalveBySize<EveryRow>(src, planes, halving, dst);
}

} // namespace orvo
