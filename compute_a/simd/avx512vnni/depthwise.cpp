// SPDX-License-Identifier: MIT
//
// Depthwise 3 x 3 convolution with AVX-512 (F, BW, DQ, VL, VBMI) and VNNI.
//
// A byte permutation makes, from one row of input, three vectors of whose 32-bit lanes each holds
// four neighbours; vpdpbusd with the weights of a filter row and a zero adds three taps to 48
// outputs in three of them. Each 16 bytes of a vector are a part with 12 outputs that lie side by
// side: four parts of one row, two of each of two planes, or one of each of four. So planes of 12,
// 24, 48 and 96 columns fill the vectors. Which output a lane has is chosen so that packing the
// sums leaves a part's outputs in order.
//
// Rows are taken one at a time, and what was made of them is used for three rows of outputs. Planes
// of up to 48 values are taken whole, as they lie in memory, once for each row of the filter.
//
// For 48 outputs of one plane: the masking, 3 permutations, 9 products, 2 or 3 shifts, 3 packs and,
// for a rectifier, a maximum: 18 or 19 instructions on two ports; 24 an arrangement of 64 lanes
// took, of which planes of 24 and 12 columns filled three quarters. Loads at four successive bytes
// in place of the permutations took 1.1 to 1.3 times as long: they cross cache lines.
//
// Measured: 38 times as fast as the plain body, 1.45 times as that arrangement.
//
// Exact: the sums wrap at 32 bits like the plain ones, and what the flipped signs of the
// activations add is taken off the start, see product.cpp.
#include <immintrin.h>

#include "compute_a/routines.h"
#include "compute_a/simd/avx512vnni/lanes.h"
#include "compute_a/simd/avx512vnni/routines.h"

namespace orvo {
namespace {

constexpr size_t kVectors = 3;
constexpr size_t kParts = 4;
constexpr size_t kPartOutputs = 4 * kVectors;
constexpr __mmask16 kPartWords = 0x7; // of a part's four words, those with outputs

// Four neighbours of each of 48 outputs in one row. The output that packing brings to byte
// 16 * part + 4 * vector + i has lane 4 * part + i.
struct Neighbours {
    __m512i of[kVectors];
};

// Which bytes of an input vector they come from.
struct alignas(64) Permutations {
    uint8_t of[kVectors][64];

    Neighbours operator()(__m512i row) const {
        return {_mm512_permutexvar_epi8(_mm512_load_si512(of[0]), row),
                _mm512_permutexvar_epi8(_mm512_load_si512(of[1]), row),
                _mm512_permutexvar_epi8(_mm512_load_si512(of[2]), row)};
    }
    constexpr uint8_t& At(size_t part, size_t output, size_t tap) {
        return of[output / 4][16 * part + output % 4 * 4 + tap];
    }
};

// The filters of a vector's planes, one after the other in its lanes.
struct Filter {
    __m512i rows[3]; // three weights and a zero
    __m512i start;   // bias, less what the flipped signs add
};

// Where the weights and biases of `kPlanes` planes that share a vector come from.
template <size_t kPlanes>
struct FilterOrder {
    alignas(64) uint8_t weights[3][64];
    alignas(64) int32_t biases[16];

    constexpr FilterOrder() : weights{}, biases{} {
        for (size_t i = 0; i < 64; ++i) {
            for (size_t row = 0; row < 3; ++row) {
                weights[row][i] = static_cast<uint8_t>(i * kPlanes / 64 * 9 + 3 * row + i % 4);
            }
            biases[i / 4] = static_cast<int32_t>(i * kPlanes / 64);
        }
    }
};

// The three weights of a filter's rows in every lane: broadcast as they are loaded.
inline void LoadRows(const int8_t* weights, __m512i rows[3]) {
    const auto fourFrom = [weights](size_t first) {
        int32_t four;
        __builtin_memcpy(&four, weights + first, sizeof four);
        return _mm512_set1_epi32(four);
    };
    const __m512i three = _mm512_set1_epi32(0xFFFFFF);
    rows[0] = _mm512_and_si512(fourFrom(0), three);
    rows[1] = _mm512_and_si512(fourFrom(3), three);
    rows[2] = _mm512_srli_epi32(fourFrom(5), 8);
}

template <size_t kPlanes>
inline Filter LoadFilter(const DepthwisePlanes& p, size_t channel, size_t count) {
    Filter f;
    __m512i biases;
    if constexpr (kPlanes == 1) {
        LoadRows(p.weights + 9 * channel, f.rows);
        biases = _mm512_set1_epi32(p.bias[channel]);
    } else {
        static constexpr FilterOrder<kPlanes> kOrder;
        constexpr __mmask64 kThreeOfFour = 0x7777777777777777;
        const __m512i weights =
            _mm512_maskz_loadu_epi8(FirstBytes(9 * count), p.weights + 9 * channel);
        for (size_t i = 0; i < 3; ++i) {
            f.rows[i] = _mm512_maskz_permutexvar_epi8(
                kThreeOfFour, _mm512_load_si512(kOrder.weights[i]), weights);
        }
        biases = _mm512_permutexvar_epi32(
            _mm512_load_si512(kOrder.biases),
            _mm512_maskz_loadu_epi32(FirstBytes16(count), p.bias + channel));
    }
    __m512i added = _mm512_setzero_si512();
    for (size_t i = 0; i < 3; ++i) {
        DotAccumulate(added, FlipSign(_mm512_setzero_si512()), f.rows[i]);
    }
    f.start = _mm512_sub_epi32(biases, added);
    return f;
}

// ---- Rows --------------------------------------------------------------------------------------

// One statement, since GCC 12 copies vectors between the products otherwise.
template <bool ShiftWords>
inline __attribute__((always_inline)) __m512i ConvolveRows(const Neighbours& upper,
                                                           const Neighbours& middle,
                                                           const Neighbours& lower, const Filter& f,
                                                           __m512i shift) {
    __m512i sums[4] = {f.start, f.start, f.start};
    __asm__(
        "vpdpbusd %[f0], %[u0], %[s0]\n\t"
        "vpdpbusd %[f0], %[u1], %[s1]\n\t"
        "vpdpbusd %[f0], %[u2], %[s2]\n\t"
        "vpdpbusd %[f1], %[m0], %[s0]\n\t"
        "vpdpbusd %[f1], %[m1], %[s1]\n\t"
        "vpdpbusd %[f1], %[m2], %[s2]\n\t"
        "vpdpbusd %[f2], %[l0], %[s0]\n\t"
        "vpdpbusd %[f2], %[l1], %[s1]\n\t"
        "vpdpbusd %[f2], %[l2], %[s2]"
        : [s0] "+&v"(sums[0]), [s1] "+&v"(sums[1]), [s2] "+&v"(sums[2])
        : [f0] "v"(f.rows[0]), [f1] "v"(f.rows[1]), [f2] "v"(f.rows[2]), [u0] "v"(upper.of[0]),
          [u1] "v"(upper.of[1]), [u2] "v"(upper.of[2]), [m0] "v"(middle.of[0]),
          [m1] "v"(middle.of[1]), [m2] "v"(middle.of[2]), [l0] "v"(lower.of[0]),
          [l1] "v"(lower.of[1]), [l2] "v"(lower.of[2]));
    sums[3] = sums[2];
    return Requantise<ShiftWords>(sums, shift);
}

// The same columns of one plane, two or four: 48, 24 or 12, or as many as there are. An input
// vector has a piece of each plane, which begins with the column before the first output.
template <size_t kPlanes>
struct StripShape {
    static constexpr size_t kPiece = 64 / kPlanes;
    static constexpr size_t kPlaneParts = kParts / kPlanes;
    static constexpr size_t kColumns = kPlaneParts * kPartOutputs;

    size_t width, height, planeBytes;
    size_t x, columns;
    size_t count;                  // planes there are
    __m512i insideBytes;           // which bytes of an input vector are the planes'
    __mmask64 inside[kPlanes];     // the same by plane
    __mmask16 partOutputs[kParts]; // which bytes of a part are outputs
    __mmask16 lastWords;           // what of the last part is stored with whole parts

    StripShape(const DepthwisePlanes& p, size_t firstColumn, size_t planes)
        : width(p.width),
          height(p.height),
          planeBytes(width * height),
          x(firstColumn),
          columns(width < kColumns ? width : kColumns),
          count(planes) {
        // The column before the first one, and the one after the last if they are in the plane.
        const __mmask64 piece =
            FirstBytes(width - x < kPiece ? width - x + 1 : kPiece) & ~__mmask64{x == 0};
        __mmask64 allInside = 0;
        for (size_t i = 0; i < kPlanes; ++i) {
            inside[i] = i < count ? piece << (i * kPiece) : 0;
            allInside |= inside[i];
        }
        insideBytes = _mm512_movm_epi8(allInside);
        for (size_t i = 0; i < kParts; ++i) {
            const size_t before = i % kPlaneParts * kPartOutputs;
            const size_t outputs =
                i / kPlaneParts < count && columns > before ? columns - before : 0;
            partOutputs[i] = FirstBytes16(outputs < kPartOutputs ? outputs : kPartOutputs);
        }
        lastWords = isOneOfSeveral() ? kPartWords : 0xF;
    }

    // Then what is stored must end with the columns.
    bool isOneOfSeveral() const { return columns < width; }

    // How many rows of a plane have `bytes` bytes before `end`, the first one's being at `from`.
    size_t RowsWithin(size_t from, size_t bytes, size_t end) const {
        if (from + (height - 1) * width + bytes <= end) {
            return height;
        }
        return from + bytes <= end ? (end - from - bytes) / width + 1 : 0;
    }

    // How many rows of outputs can be made from whole pieces and stored by whole parts: their row
    // below is in the plane, unless they are the last, and its pieces in the tensor; and what is
    // stored beyond the columns is replaced by the next row or the next planes. `last` is the place
    // of the last plane's first output, `end` the end of the tensor; of fewer planes it lies behind
    // that, and no row is whole.
    size_t WholeRows(size_t last, size_t end) const {
        const size_t loaded = RowsWithin(last, kPiece - 1, end);
        const size_t stored = isOneOfSeveral() ? height
                                               : RowsWithin(last, kColumns + 4,
                                                            kPlanes > 1 ? last + planeBytes : end);
        const bool lastToo = kPlanes == 1 ? stored == height : columns == kColumns;
        if (loaded == height && stored + 1 >= height && lastToo) {
            return height;
        }
        return loaded > stored ? stored : loaded > 0 ? loaded - 1 : 0;
    }

    // Row y of the input as a vector, signs flipped; each plane's piece is loaded by a mask.
    __m512i Row(const int8_t* src, size_t y, __m512i flip) const {
        const int8_t* at = src + y * width - 1;
        __m512i row = _mm512_maskz_loadu_epi8(inside[0], at);
#pragma GCC unroll 3
        for (size_t i = 1; i < kPlanes; ++i) {
            at += planeBytes - kPiece;
            row = _mm512_mask_loadu_epi8(row, inside[i], at);
        }
        return _mm512_xor_si512(row, flip);
    }

    template <int kPart>
    void StorePart(int8_t* dst, size_t y, __m512i bytes) const {
        int8_t* to =
            dst + y * width + kPart / kPlaneParts * planeBytes + kPart % kPlaneParts * kPartOutputs;
        _mm_mask_storeu_epi8(to, partOutputs[kPart], _mm512_extracti32x4_epi32(bytes, kPart));
    }
    // The outputs of row y, and nothing else.
    void Store(int8_t* dst, size_t y, __m512i bytes) const {
        StorePart<0>(dst, y, bytes);
        StorePart<1>(dst, y, bytes);
        StorePart<2>(dst, y, bytes);
        StorePart<3>(dst, y, bytes);
    }
};

// ---- Rows by threes ----------------------------------------------------------------------------

// What all strips of a layer have in common, as the statement below reads it.
struct LayerConstants {
    Permutations permutations;
    __m512i shift, lowest, flip;
};

// Three rows of outputs, whose input rows take turns in the registers, so that none has to be moved
// to another one. All in one statement: GCC 12 keeps rows and constants in memory otherwise, and
// extracts parts to registers before it stores them, which takes a port that the products need.
//
// Register plan: the 9 vectors of three rows; zmm17 to zmm19 the permutations, zmm20 to zmm22 the
// filter, zmm23 what the sums start from, zmm24 the shift, zmm25 the lowest value, zmm26 the signs
// to flip; zmm27 a row of input, zmm28 to zmm30 the sums.
// clang-format off
#define ORVO_DW_CONSTANTS                                                                         \
    "vmovdqa64 (%[layer]), %%zmm17\n\t"                                                           \
    "vmovdqa64 64(%[layer]), %%zmm18\n\t"                                                         \
    "vmovdqa64 128(%[layer]), %%zmm19\n\t"                                                        \
    "vmovdqa64 (%[filter]), %%zmm20\n\t"                                                          \
    "vmovdqa64 64(%[filter]), %%zmm21\n\t"                                                        \
    "vmovdqa64 128(%[filter]), %%zmm22\n\t"                                                       \
    "vmovdqa64 192(%[filter]), %%zmm23\n\t"                                                       \
    "vmovdqa64 192(%[layer]), %%zmm24\n\t"                                                        \
    "vmovdqa64 256(%[layer]), %%zmm25\n\t"                                                        \
    "vmovdqa64 320(%[layer]), %%zmm26\n\t"

// A row of input.
#define ORVO_DW_LOAD_1                                                                            \
    "vmovdqu64 (%[src]), %%zmm27\n\t"
#define ORVO_DW_LOAD_2                                                                            \
    "vmovdqu64 (%[src]), %%ymm27\n\t"                                                             \
    "vinserti64x4 $1, (%[src],%[plane]), %%zmm27, %%zmm27\n\t"
#define ORVO_DW_LOAD_4                                                                            \
    "vmovdqu64 (%[src]), %%xmm27\n\t"                                                             \
    "vinserti32x4 $1, (%[src],%[plane]), %%zmm27, %%zmm27\n\t"                                    \
    "vinserti32x4 $2, (%[src],%[plane],2), %%zmm27, %%zmm27\n\t"                                  \
    "vinserti32x4 $3, (%[src],%[plane3]), %%zmm27, %%zmm27\n\t"
#define ORVO_DW_ROW(planes, row)                                                                  \
    ORVO_DW_LOAD_##planes                                                                         \
    "add %[width], %[src]\n\t"                                                                    \
    "vpternlogq $0x6a, %%zmm26, %[inside], %%zmm27\n\t"                                           \
    "vpermb %%zmm27, %%zmm17, %[" #row "0]\n\t"                                                   \
    "vpermb %%zmm27, %%zmm18, %[" #row "1]\n\t"                                                   \
    "vpermb %%zmm27, %%zmm19, %[" #row "2]\n\t"

// Their sums: of the rows above and beside the outputs, then of one more.
#define ORVO_DW_PRODUCTS(row, filter)                                                             \
    "vpdpbusd %%" #filter ", %[" #row "0], %%zmm28\n\t"                                           \
    "vpdpbusd %%" #filter ", %[" #row "1], %%zmm29\n\t"                                           \
    "vpdpbusd %%" #filter ", %[" #row "2], %%zmm30\n\t"
#define ORVO_DW_SUMS(upper, middle)                                                               \
    "vmovdqa64 %%zmm23, %%zmm28\n\t"                                                              \
    "vmovdqa64 %%zmm23, %%zmm29\n\t"                                                              \
    "vmovdqa64 %%zmm23, %%zmm30\n\t"                                                              \
    ORVO_DW_PRODUCTS(upper, zmm20)                                                                \
    ORVO_DW_PRODUCTS(middle, zmm21)
#define ORVO_DW_OUTSIDE                                                                           \
    "vpdpbusd %%zmm22, %%zmm26, %%zmm28\n\t"                                                      \
    "vpdpbusd %%zmm22, %%zmm26, %%zmm29\n\t"                                                      \
    "vpdpbusd %%zmm22, %%zmm26, %%zmm30\n\t"

// And what becomes of them: whether words or longs are shifted, and whether there is a rectifier.
#define ORVO_DW_PACK_WORDS                                                                        \
    "vpackssdw %%zmm29, %%zmm28, %%zmm28\n\t"                                                     \
    "vpackssdw %%zmm30, %%zmm30, %%zmm30\n\t"                                                     \
    "vpsravw %%zmm24, %%zmm28, %%zmm28\n\t"                                                       \
    "vpsravw %%zmm24, %%zmm30, %%zmm30\n\t"
#define ORVO_DW_PACK_LONGS                                                                        \
    "vpsravd %%zmm24, %%zmm28, %%zmm28\n\t"                                                       \
    "vpsravd %%zmm24, %%zmm29, %%zmm29\n\t"                                                       \
    "vpsravd %%zmm24, %%zmm30, %%zmm30\n\t"                                                       \
    "vpackssdw %%zmm29, %%zmm28, %%zmm28\n\t"                                                     \
    "vpackssdw %%zmm30, %%zmm30, %%zmm30\n\t"
#define ORVO_DW_PACK_WORDS_RECTIFIED ORVO_DW_PACK_WORDS
#define ORVO_DW_PACK_LONGS_RECTIFIED ORVO_DW_PACK_LONGS
#define ORVO_DW_LEAST "vpmaxsb %%zmm25, %%zmm28, %%zmm28\n\t"
#define ORVO_DW_LEAST_WORDS
#define ORVO_DW_LEAST_LONGS
#define ORVO_DW_LEAST_WORDS_RECTIFIED ORVO_DW_LEAST
#define ORVO_DW_LEAST_LONGS_RECTIFIED ORVO_DW_LEAST
#define ORVO_DW_BYTES(pack)                                                                       \
    ORVO_DW_PACK_##pack                                                                           \
    "vpacksswb %%zmm30, %%zmm28, %%zmm28\n\t"                                                     \
    ORVO_DW_LEAST_##pack

// `words`: which are stored of a part. A plane's last row may not go beyond the columns where the
// plane behind it has been stored before; where planes are stored one by one that does not matter.
#define ORVO_DW_ALL
#define ORVO_DW_PART "%{%[partWords]%}"
#define ORVO_DW_STORE_1(words)                                                                    \
    "vmovdqu32 %%xmm28, (%[dst])\n\t"                                                             \
    "vextracti32x4 $1, %%zmm28, 12(%[dst])\n\t"                                                   \
    "vextracti32x4 $2, %%zmm28, 24(%[dst])\n\t"                                                   \
    "vextracti32x4 $3, %%zmm28, 36(%[dst])%{%[lastWords]%}\n\t"
#define ORVO_DW_STORE_2(words)                                                                    \
    "vmovdqu32 %%xmm28, (%[dst])" words "\n\t"                                                    \
    "vextracti32x4 $1, %%zmm28, 12(%[dst])" words "\n\t"                                          \
    "vextracti32x4 $2, %%zmm28, (%[dst],%[plane])" words "\n\t"                                   \
    "vextracti32x4 $3, %%zmm28, 12(%[dst],%[plane])" words "\n\t"
#define ORVO_DW_STORE_4(words)                                                                    \
    "vmovdqu32 %%xmm28, (%[dst])" words "\n\t"                                                    \
    "vextracti32x4 $1, %%zmm28, (%[dst],%[plane])" words "\n\t"                                   \
    "vextracti32x4 $2, %%zmm28, (%[dst],%[plane],2)" words "\n\t"                                 \
    "vextracti32x4 $3, %%zmm28, (%[dst],%[plane3])" words "\n\t"

#define ORVO_DW_OUTPUTS(planes, pack, upper, middle, lower)                                       \
    ORVO_DW_SUMS(upper, middle)                                                                   \
    ORVO_DW_PRODUCTS(lower, zmm22)                                                                \
    ORVO_DW_BYTES(pack)                                                                           \
    ORVO_DW_STORE_##planes(ORVO_DW_ALL)                                                           \
    "add %[width], %[dst]\n\t"
#define ORVO_DW_LAST(planes, pack)                                                                \
    ORVO_DW_SUMS(a, b)                                                                            \
    ORVO_DW_OUTSIDE                                                                               \
    ORVO_DW_BYTES(pack)                                                                           \
    ORVO_DW_STORE_##planes(ORVO_DW_PART)

// Nothing above the first row.
#define ORVO_DW_BEGIN(upper, middle)                                                              \
    "vmovdqa64 %%zmm26, %[" #upper "0]\n\t"                                                       \
    "vmovdqa64 %%zmm26, %[" #upper "1]\n\t"                                                       \
    "vmovdqa64 %%zmm26, %[" #upper "2]\n\t"                                                       \
    "vpermb %[first], %%zmm17, %[" #middle "0]\n\t"                                               \
    "vpermb %[first], %%zmm18, %[" #middle "1]\n\t"                                               \
    "vpermb %[first], %%zmm19, %[" #middle "2]\n\t"

// Begins with one, two or three rows, so that a and b are the last two in the end.
#define ORVO_DW_WHOLE(planes, pack)                                                               \
    __asm__ volatile(                                                                             \
        ORVO_DW_CONSTANTS                                                                         \
        "cmp $1, %[begin]\n\t"                                                                    \
        "je 5f\n\t"                                                                               \
        "ja 4f\n\t"                                                                               \
        ORVO_DW_BEGIN(a, b)                                                                       \
        "1:\n\t" ORVO_DW_ROW(planes, c) ORVO_DW_OUTPUTS(planes, pack, a, b, c)                    \
        "2:\n\t" ORVO_DW_ROW(planes, a) ORVO_DW_OUTPUTS(planes, pack, b, c, a)                    \
        "3:\n\t" ORVO_DW_ROW(planes, b) ORVO_DW_OUTPUTS(planes, pack, c, a, b)                    \
        "dec %[turns]\n\t"                                                                        \
        "jnz 1b\n\t"                                                                              \
        "jmp 6f\n"                                                                                \
        "4:\n\t" ORVO_DW_BEGIN(b, c)                                                              \
        "jmp 2b\n"                                                                                \
        "5:\n\t" ORVO_DW_BEGIN(c, a)                                                              \
        "jmp 3b\n"                                                                                \
        "6:\n\t"                                                                                  \
        "test %[last], %[last]\n\t"                                                               \
        "jz 7f\n\t"                                                                               \
        ORVO_DW_LAST(planes, pack)                                                                \
        "7:"                                                                                      \
        : [a0] "=&v"(a.of[0]), [a1] "=&v"(a.of[1]), [a2] "=&v"(a.of[2]),                          \
          [b0] "=&v"(b.of[0]), [b1] "=&v"(b.of[1]), [b2] "=&v"(b.of[2]),                          \
          [c0] "=&v"(c.of[0]), [c1] "=&v"(c.of[1]), [c2] "=&v"(c.of[2]),                          \
          [src] "+&r"(src), [dst] "+&r"(dst), [turns] "+&r"(turns)                                \
        : [begin] "r"(rows % 3), [last] "r"(last), [first] "v"(first), [layer] "r"(&layer),       \
          [filter] "r"(&filter), [inside] "v"(shape.insideBytes), [width] "r"(shape.width),       \
          [plane] "r"(shape.planeBytes), [plane3] "r"(3 * shape.planeBytes),                      \
          [lastWords] "Yk"(shape.lastWords), [partWords] "Yk"(partWords)                          \
        : "xmm17", "xmm18", "xmm19", "xmm20", "xmm21", "xmm22", "xmm23", "xmm24", "xmm25",        \
          "xmm26", "xmm27", "xmm28", "xmm29", "xmm30", "cc", "memory")

#define ORVO_DW_WHOLE_OF_KIND(planes)                                                             \
    if constexpr (ShiftWords && kRectifies) {                                                     \
        ORVO_DW_WHOLE(planes, WORDS_RECTIFIED);                                                   \
    } else if constexpr (ShiftWords) {                                                            \
        ORVO_DW_WHOLE(planes, WORDS);                                                             \
    } else if constexpr (kRectifies) {                                                            \
        ORVO_DW_WHOLE(planes, LONGS_RECTIFIED);                                                   \
    } else {                                                                                      \
        ORVO_DW_WHOLE(planes, LONGS);                                                             \
    }
// clang-format on

// The first rows of outputs, of which there is at least one with a row below, from the first row
// and those after it; a and b become the two before the next outputs.
template <size_t kPlanes, bool ShiftWords, bool kRectifies>
inline void ConvolveWhole(const StripShape<kPlanes>& shape, const LayerConstants& layer,
                          const Filter& filter, const int8_t* src, int8_t* dst, __m512i first,
                          size_t wholeRows, Neighbours& a, Neighbours& b) {
    src += shape.width - 1;
    const size_t last = wholeRows == shape.height;
    const size_t rows = wholeRows - last;
    const __mmask16 partWords = kPartWords;
    size_t turns = (rows + 2) / 3;
    Neighbours c;
    if constexpr (kPlanes == 1) {
        ORVO_DW_WHOLE_OF_KIND(1);
    } else if constexpr (kPlanes == 2) {
        ORVO_DW_WHOLE_OF_KIND(2);
    } else {
        ORVO_DW_WHOLE_OF_KIND(4);
    }
}

// A strip from the places of its first output in input and output on.
template <size_t kPlanes, bool ShiftWords, bool kRectifies>
inline void ConvolveStrip(const StripShape<kPlanes>& shape, const LayerConstants& layer,
                          const Filter& filter, size_t wholeRows, const int8_t* src, int8_t* dst) {
    const __m512i first = shape.Row(src, 0, layer.flip);
    const Neighbours outside{layer.flip, layer.flip, layer.flip};
    Neighbours a = outside;
    Neighbours b;
    if (wholeRows > 0 && shape.height > 1) {
        ConvolveWhole<kPlanes, ShiftWords, kRectifies>(shape, layer, filter, src, dst, first,
                                                       wholeRows, a, b);
    } else {
        wholeRows = 0;
        b = layer.permutations(first);
    }
    for (size_t y = wholeRows; y < shape.height; ++y) {
        const Neighbours c =
            y + 1 < shape.height ? layer.permutations(shape.Row(src, y + 1, layer.flip)) : outside;
        const __m512i bytes = ConvolveRows<ShiftWords>(a, b, c, filter, layer.shift);
        shape.Store(dst, y, _mm512_max_epi8(bytes, layer.lowest));
        a = b;
        b = c;
    }
}

template <size_t kPlanes>
constexpr Permutations StripPermutations() {
    using S = StripShape<kPlanes>;
    Permutations permutations{};
    for (size_t part = 0; part < kParts; ++part) {
        const size_t from =
            part / S::kPlaneParts * S::kPiece + part % S::kPlaneParts * kPartOutputs;
        for (size_t output = 0; output < kPartOutputs; ++output) {
            for (size_t tap = 0; tap < 4; ++tap) {
                permutations.At(part, output, tap) = static_cast<uint8_t>(from + output + tap);
            }
        }
    }
    return permutations;
}

template <size_t kPlanes, bool ShiftWords, bool kRectifies>
void DepthwiseByStrips(const DepthwisePlanes& p) {
    static constexpr Permutations kPermutations = StripPermutations<kPlanes>();
    constexpr size_t kColumns = StripShape<kPlanes>::kColumns;
    const LayerConstants layer{kPermutations, ShiftCounts<ShiftWords>(p.shift),
                               _mm512_set1_epi8(p.lowest), _mm512_set1_epi8(-128)};
    StripShape<kPlanes> shape(p, 0, kPlanes);
    const size_t plane = p.width * p.height;
    const size_t end = p.channels * plane;
    for (size_t channel = 0; channel < p.channels; channel += kPlanes) {
        const size_t left = p.channels - channel;
        const size_t count = left < kPlanes ? left : kPlanes;
        const Filter filter = count == kPlanes ? LoadFilter<kPlanes>(p, channel, kPlanes)
                                               : LoadFilter<kPlanes>(p, channel, count);
        for (size_t x = 0; x < p.width; x += kColumns) {
            // The last of several strips begins early enough to end with the row.
            const size_t from = x > 0 && p.width - x < kColumns ? p.width - kColumns : x;
            if (from != shape.x || count != shape.count) {
                shape = StripShape<kPlanes>(p, from, count);
            }
            const size_t at = channel * plane + from;
            ConvolveStrip<kPlanes, ShiftWords, kRectifies>(
                shape, layer, filter, shape.WholeRows(at + (kPlanes - 1) * plane, end), p.src + at,
                p.dst + at);
        }
    }
}

// ---- Small planes ------------------------------------------------------------------------------

constexpr size_t kSmallPlane = kParts * kPartOutputs;

// How a plane that lies in the first bytes of a vector becomes the neighbours in a row of all its
// outputs. The vector's last byte is a zero.
Permutations SmallPermutations(const DepthwisePlanes& p) {
    Permutations permutations;
    __builtin_memset(permutations.of, 63, sizeof permutations.of);
    size_t at = 0;
    for (size_t y = 0; y < p.height; ++y) {
        for (size_t x = 0; x < p.width; ++x, ++at) {
            for (size_t tap = 0; tap < 3; ++tap) {
                if (x + tap >= 1 && x + tap <= p.width) {
                    permutations.At(at / kPartOutputs, at % kPartOutputs, tap) =
                        static_cast<uint8_t>(at + tap - 1);
                }
            }
        }
    }
    return permutations;
}

// The outputs of a vector's parts side by side.
struct PartsInOrder {
    alignas(64) uint8_t of[64];

    constexpr PartsInOrder() : of{} {
        for (size_t i = 0; i < kSmallPlane; ++i) {
            of[i] = static_cast<uint8_t>(i / kPartOutputs * 16 + i % kPartOutputs);
        }
    }
};

template <bool ShiftWords>
void DepthwiseSmall(const DepthwisePlanes& p) {
    static constexpr PartsInOrder kInOrder;
    const Permutations permutations = SmallPermutations(p);
    const __m512i inOrder = _mm512_load_si512(kInOrder.of);
    const __m512i shift = ShiftCounts<ShiftWords>(p.shift);
    const __m512i lowest = _mm512_set1_epi8(p.lowest);
    const size_t plane = p.width * p.height;
    const __mmask64 whole = FirstBytes(plane);
    const __mmask64 upper =
        whole & ~FirstBytes(p.width); // row by row, from the one above the plane
    const __mmask64 lower = FirstBytes(plane - p.width);
    const int8_t* src = p.src;
    int8_t* dst = p.dst;
    for (size_t channel = 0; channel < p.channels; ++channel, src += plane, dst += plane) {
        const auto rows = [&](__mmask64 inside, const int8_t* from) {
            return permutations(FlipSign(_mm512_maskz_loadu_epi8(inside, from)));
        };
        const Filter filter = LoadFilter<1>(p, channel, 1);
        const __m512i packed =
            ConvolveRows<ShiftWords>(rows(upper, src - p.width), rows(whole, src),
                                     rows(lower, src + p.width), filter, shift);
        const __m512i bytes = _mm512_max_epi8(_mm512_permutexvar_epi8(inOrder, packed), lowest);
        _mm512_mask_storeu_epi8(dst, whole, bytes);
    }
}

template <bool ShiftWords, bool kRectifies>
void DepthwiseByWidth(const DepthwisePlanes& p) {
    if (p.width * p.height <= kSmallPlane) {
        DepthwiseSmall<ShiftWords>(p);
    } else if (p.width <= StripShape<4>::kColumns) {
        DepthwiseByStrips<4, ShiftWords, kRectifies>(p);
    } else if (p.width <= StripShape<2>::kColumns) {
        DepthwiseByStrips<2, ShiftWords, kRectifies>(p);
    } else {
        DepthwiseByStrips<1, ShiftWords, kRectifies>(p);
    }
}

} // namespace

void avx512vnni::Depthwise(const DepthwisePlanes& p) {
    if (p.width == 0 || p.height == 0) {
        return;
    }
    const bool rectifies = p.lowest != INT8_MIN;
    if (p.shift <= 8) {
        rectifies ? DepthwiseByWidth<true, true>(p) : DepthwiseByWidth<true, false>(p);
    } else {
        rectifies ? DepthwiseByWidth<false, true>(p) : DepthwiseByWidth<false, false>(p);
    }
}

} // namespace orvo
