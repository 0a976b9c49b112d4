// SPDX-License-Identifier: MIT
//
// Matrix product and dot product with VNNI on vectors of 32 bytes; compute_a/simd/product.h has the walk.
//
// As in the AVX-512 path, activations have their sign flipped and 128 times the sum of the weights is taken
// off the bias: exact, since everything wraps at 32 bits.
//
// A step is four rows: four values of a pixel in each 32-bit lane, to be met by four weights of a channel.
// A tile is four channels by 24 pixels, three vectors of eight, of which the first two share their pixels
// so that packing the sums leaves them in order:
//
//     vector 0: p0-3 p8-11    vector 1: p4-7 p12-15    vector 2: p16-23
//
// The last tile ends with the last pixel, so that it may start within the one before it and write its
// first results once more; the rest has one or two vectors and ends there in the same way.
#include "compute_a/simd/product.h"

#include "compute_a/simd/avx2/lanes.h"
#include "compute_a/simd/avxvnni/instructions.h"
#include "compute_a/simd/avxvnni/routines.h"
#include "compute_a/simd/plain/routines.h"

namespace orvo {
namespace {

constexpr size_t kGroup = 4; // channels
constexpr size_t kVectorPixels = 8;
constexpr size_t kTileVectors = 3;
constexpr size_t kTilePixels = kTileVectors * kVectorPixels;
constexpr size_t kMostSteps = 256;       // of four rows
constexpr size_t kSlabBytes = 24 * 1024; // at a time, to stay in the first cache

// The weights of four channels as the tiles read them, and what the sums start from: the bias, less
// what the flipped signs of the activations add. Channels and rows that are not there have weights of zero.
struct GroupWeights {
    alignas(16) int32_t start[kGroup];
    int32_t words[kMostSteps][kGroup]; // a step's four weights, right behind the start
};

inline __m128i TransposeFourByFour() {
    return _mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
}

// Four rows from `row` on of a group, where fewer rows or channels are left.
__m128i LoadFewWeights(const MatrixProduct& p, const ChannelGroup& group, size_t row) {
    alignas(16) int8_t weights[4][kGroup] = {};
    for (size_t k = 0; k < 4 && row + k < p.inner; ++k) {
        for (size_t c = 0; c < group.channels; ++c) {
            weights[k][c] = group.channels == kGroup ? group.weights[kGroup * (row + k) + c]
                                                     : group.weights[c * p.groupBytes + row + k];
        }
    }
    return Load16(weights);
}

void LoadGroup(const MatrixProduct& p, const ChannelGroup& group, GroupWeights& ready) {
    __m256i added = _mm256_setzero_si256();       // in the lower half
    const __m256i signs = _mm256_set1_epi8(-128); // 128, read without a sign
    for (size_t k = 0; k < p.inner; k += 4) {
        const bool isWhole = group.channels == kGroup && k + 4 <= p.inner;
        const __m128i rows =
            isWhole ? Load16(group.weights + kGroup * k) : LoadFewWeights(p, group, k);
        const __m128i words = _mm_shuffle_epi8(rows, TransposeFourByFour());
        Store16(ready.words[k / 4], words);
        DotAccumulate(added, signs, _mm256_castsi128_si256(words));
    }
    alignas(16) int32_t bias[kGroup] = {};
    for (size_t c = 0; c < group.channels; ++c) {
        bias[c] = p.bias[group.first + c];
    }
    Store16(ready.start, _mm_sub_epi32(Load16(bias), _mm256_castsi256_si128(added)));
}

// Four rows of 8 or 16 pixels.
template <typename Row>
inline void PackStep(const Row& row, size_t vectors, int8_t* to) {
    const __m128i signs = _mm_set1_epi8(-128);
    const auto put = [&](size_t part, __m128i words) {
        Store16(to + 16 * part, _mm_xor_si128(words, signs));
    };
    const __m128i low01 = _mm_unpacklo_epi8(row(0), row(1));
    const __m128i low23 = _mm_unpacklo_epi8(row(2), row(3));
    put(0, _mm_unpacklo_epi16(low01, low23));
    if (vectors == 1) {
        put(1, _mm_unpackhi_epi16(low01, low23));
        return;
    }
    const __m128i high01 = _mm_unpackhi_epi8(row(0), row(1));
    const __m128i high23 = _mm_unpackhi_epi8(row(2), row(3));
    put(2, _mm_unpackhi_epi16(low01, low23));
    put(1, _mm_unpacklo_epi16(high01, high23));
    put(3, _mm_unpackhi_epi16(high01, high23));
}

template <size_t kVectors>
void PackTile(const MatrixProduct& p, size_t pixel, int8_t* to) {
    constexpr size_t kPairPixels = 2 * kVectorPixels;
    for (size_t k = 0; k < p.inner; k += 4, to += 32 * kVectors) {
        // A row that is not there meets weights of zero.
        const int8_t* rows[4];
        for (size_t i = 0; i < 4; ++i) {
            rows[i] = p.rows + Least(k + i, p.inner - 1) * p.rowPitch + pixel;
        }
        if constexpr (kVectors > 1) {
            PackStep([&](size_t i) { return Load16(rows[i]); }, 2, to);
        }
        if constexpr (kVectors != 2) {
            constexpr size_t kBefore = kVectors == 1 ? 0 : kPairPixels;
            PackStep([&](size_t i) { return Load8(rows[i] + kBefore); }, 1, to + 4 * kBefore);
        }
    }
}

// The tile: four channels by V vectors, in one assembly statement; see instructions.h.
//
// Register plan: 4 V sums; ymm12 to ymm14 the values; ymm15 one channel's weights. A step takes 4 V
// products on two ports; its V + 4 loads and few scalar instructions have others. The words stand 16
// bytes behind the starts.
// clang-format off
#define ORVO_TILE_START(c, v) "vpbroadcastd 4*" #c "-16(%[words]), %[s" #c #v "]\n\t"
#define ORVO_TILE_STARTS_1(c) ORVO_TILE_START(c, 0)
#define ORVO_TILE_STARTS_2(c) ORVO_TILE_STARTS_1(c) ORVO_TILE_START(c, 1)
#define ORVO_TILE_STARTS_3(c) ORVO_TILE_STARTS_2(c) ORVO_TILE_START(c, 2)
#define ORVO_TILE_VALUES_1 "vmovdqu (%[values]), %%ymm12\n\t"
#define ORVO_TILE_VALUES_2 ORVO_TILE_VALUES_1 "vmovdqu 32(%[values]), %%ymm13\n\t"
#define ORVO_TILE_VALUES_3 ORVO_TILE_VALUES_2 "vmovdqu 64(%[values]), %%ymm14\n\t"
#define ORVO_TILE_PRODUCT(c, v, values)                                                           \
    ORVO_VNNI_PREFIX "vpdpbusd %%ymm15, %%" #values ", %[s" #c #v "]\n\t"
#define ORVO_TILE_ROW_1(c)                                                                        \
    "vpbroadcastd 4*" #c "(%[words]), %%ymm15\n\t"                                                \
    ORVO_TILE_PRODUCT(c, 0, ymm12)
#define ORVO_TILE_ROW_2(c) ORVO_TILE_ROW_1(c) ORVO_TILE_PRODUCT(c, 1, ymm13)
#define ORVO_TILE_ROW_3(c) ORVO_TILE_ROW_2(c) ORVO_TILE_PRODUCT(c, 2, ymm14)
#define ORVO_TILE_SUMS_OF(v)                                                                      \
    [s0##v] "=&x"(sums[0][v]), [s1##v] "=&x"(sums[1][v]), [s2##v] "=&x"(sums[2][v]),              \
    [s3##v] "=&x"(sums[3][v])
#define ORVO_TILE_SUMS_1 ORVO_TILE_SUMS_OF(0)
#define ORVO_TILE_SUMS_2 ORVO_TILE_SUMS_1, ORVO_TILE_SUMS_OF(1)
#define ORVO_TILE_SUMS_3 ORVO_TILE_SUMS_2, ORVO_TILE_SUMS_OF(2)
#define ORVO_TILE(V)                                                                              \
    __asm__ volatile(                                                                             \
        ORVO_TILE_STARTS_##V(0) ORVO_TILE_STARTS_##V(1)                                           \
        ORVO_TILE_STARTS_##V(2) ORVO_TILE_STARTS_##V(3)                                           \
        "1:\n\t"                                                                                  \
        ORVO_TILE_VALUES_##V                                                                      \
        ORVO_TILE_ROW_##V(0) ORVO_TILE_ROW_##V(1)                                                 \
        ORVO_TILE_ROW_##V(2) ORVO_TILE_ROW_##V(3)                                                 \
        "add $32*" #V ", %[values]\n\t"                                                           \
        "add $16, %[words]\n\t"                                                                   \
        "dec %[steps]\n\t"                                                                        \
        "jnz 1b"                                                                                  \
        : ORVO_TILE_SUMS_##V, [values] "+r"(values), [words] "+r"(words), [steps] "+r"(steps)     \
        :                                                                                         \
        : "xmm12", "xmm13", "xmm14", "xmm15", "cc", "memory")
// clang-format on

template <size_t V>
inline __attribute__((always_inline)) void SumTile(const GroupWeights& group, const int8_t* values,
                                                   size_t steps, __m256i sums[kGroup][V]) {
    const int32_t* words = group.words[0];
    if constexpr (V == 1) {
        ORVO_TILE(1);
    } else if constexpr (V == 2) {
        ORVO_TILE(2);
    } else {
        ORVO_TILE(3);
    }
}

// Where a tile's results go.
struct TileOutput {
    int8_t* dst;
    size_t planePitch;
    size_t channels; // up to 4
    __m256i shift;   // a count of 32 and more leaves the sign
};

inline __m256i PackWords(__m256i low, __m256i high, __m256i shift) {
    return _mm256_packs_epi32(_mm256_srav_epi32(low, shift), _mm256_srav_epi32(high, shift));
}

// The first two vectors of two channels: 16 bytes of each.
template <size_t V>
inline void StorePair(const __m256i sums[kGroup][V], size_t c, const TileOutput& out) {
    const __m256i bytes = _mm256_permute4x64_epi64(
        _mm256_packs_epi16(PackWords(sums[c][0], sums[c][1], out.shift),
                           PackWords(sums[c + 1][0], sums[c + 1][1], out.shift)),
        0xD8);
    int8_t* const to = out.dst + c * out.planePitch;
    if (c < out.channels) {
        Store16(to, _mm256_castsi256_si128(bytes));
    }
    if (c + 1 < out.channels) {
        Store16(to + out.planePitch, _mm256_extracti128_si256(bytes, 1));
    }
}

// The last vector of all channels: 8 bytes of each.
template <size_t V>
inline void StoreLast(const __m256i sums[kGroup][V], const TileOutput& out) {
    const __m256i words = _mm256_packs_epi16(PackWords(sums[0][V - 1], sums[1][V - 1], out.shift),
                                             PackWords(sums[2][V - 1], sums[3][V - 1], out.shift));
    const __m256i bytes =
        _mm256_permutevar8x32_epi32(words, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
    const __m128i pairs[2] = {_mm256_castsi256_si128(bytes), _mm256_extracti128_si256(bytes, 1)};
    int8_t* to = out.dst + (V - 1) * kVectorPixels;
#pragma GCC unroll 4
    for (size_t c = 0; c < kGroup; ++c, to += out.planePitch) {
        if (c < out.channels) {
            Store8(to, c % 2 == 0 ? pairs[c / 2] : _mm_unpackhi_epi64(pairs[c / 2], pairs[c / 2]));
        }
    }
}

template <size_t V>
void Tile(const GroupWeights& group, const int8_t* values, size_t steps, const TileOutput& out) {
    __m256i sums[kGroup][V];
    SumTile<V>(group, values, steps, sums);
    if constexpr (V > 1) {
        StorePair<V>(sums, 0, out);
        StorePair<V>(sums, 2, out);
    }
    if constexpr (V != 2) {
        StoreLast<V>(sums, out);
    }
}

class Scheme {
  public:
    struct Slab {
        int8_t* packed;
        size_t firstPixel;
        size_t pixelCount;
        size_t tiles;
        size_t restVectors; // up to two

        size_t pixels() const { return pixelCount; }
    };

    explicit Scheme(const MatrixProduct& p)
        : p_(p), steps_((p.inner + 3) / 4), tileBytes_(32 * kTileVectors * steps_) {
        // From a vector's boundary on where there is room for that: values that straddle two cache
        // lines take twice as long to load.
        const size_t needed = Least(p.pixels, kTilePixels) / kVectorPixels * 32 * steps_;
        const size_t toBoundary = (32 - reinterpret_cast<uintptr_t>(p.scratch) % 32) % 32;
        const size_t skip = needed + toBoundary <= p.scratchBytes ? toBoundary : 0;
        packed_ = p.scratch + skip;
        fits_ = p.pixels >= kVectorPixels && steps_ > 0 && steps_ <= kMostSteps &&
                needed <= p.scratchBytes - skip;
        const size_t room = Least(p.scratchBytes - skip, kSlabBytes);
        mostTiles_ = tileBytes_ == 0 || room < tileBytes_ ? 1 : room / tileBytes_;
    }

    bool Fits() const { return fits_; }

    size_t GroupChannels() const { return kGroup; }

    Slab SlabFrom(size_t pixel) const {
        const size_t left = p_.pixels - pixel;
        const size_t taken = TilesOfSlab((left + kTilePixels - 1) / kTilePixels, mostTiles_);
        // Of fewer pixels than a tile whole vectors come first, then a rest that reaches back into them.
        const size_t most = p_.pixels < kTilePixels ? p_.pixels / kVectorPixels * kVectorPixels
                                                    : taken * kTilePixels;
        const size_t count = Least(left, most);
        const size_t restVectors = (count % kTilePixels + kVectorPixels - 1) / kVectorPixels;
        const bool isWhole = restVectors == 0 || restVectors == kTileVectors;
        return {packed_, pixel, count, isWhole ? taken : taken - 1, isWhole ? 0 : restVectors};
    }

    void Pack(const Slab& slab) const {
        int8_t* to = slab.packed;
        for (size_t i = 0; i < slab.tiles; ++i, to += tileBytes_) {
            PackTile<3>(p_, TileAt(slab, i), to);
        }
        if (slab.restVectors == 1) {
            PackTile<1>(p_, RestAt(slab), to);
        } else if (slab.restVectors == 2) {
            PackTile<2>(p_, RestAt(slab), to);
        }
    }

    void MakeReady(const ChannelGroup& group) { LoadGroup(p_, group, ready_); }

    void MultiplyTiles(const ChannelGroup& group, const Slab& slab) const {
        const int8_t* values = slab.packed;
        for (size_t i = 0; i < slab.tiles; ++i, values += tileBytes_) {
            Tile<3>(ready_, values, steps_, OutputOf(group, TileAt(slab, i)));
        }
    }

    void MultiplyRest(const ChannelGroup& group, const Slab& slab) const {
        const int8_t* values = slab.packed + slab.tiles * tileBytes_;
        if (slab.restVectors == 1) {
            Tile<1>(ready_, values, steps_, OutputOf(group, RestAt(slab)));
        } else if (slab.restVectors == 2) {
            Tile<2>(ready_, values, steps_, OutputOf(group, RestAt(slab)));
        }
    }

  private:
    size_t TileAt(const Slab& slab, size_t i) const {
        return Least(slab.firstPixel + i * kTilePixels, p_.pixels - kTilePixels);
    }

    size_t RestAt(const Slab& slab) const {
        return slab.firstPixel + slab.pixelCount - slab.restVectors * kVectorPixels;
    }

    TileOutput OutputOf(const ChannelGroup& group, size_t pixel) const {
        return {p_.dst + group.first * p_.planePitch + pixel, p_.planePitch, group.channels,
                _mm256_set1_epi32(static_cast<int>(p_.shift))};
    }

    const MatrixProduct& p_;
    const size_t steps_;
    const size_t tileBytes_;
    size_t mostTiles_;
    int8_t* packed_;
    bool fits_;
    GroupWeights ready_;
};

} // namespace

void ORVO_VNNI_PATH::Multiply(const MatrixProduct& p) {
    Scheme scheme(p);
    if (!scheme.Fits()) {
        return plain::Multiply(p);
    }
    MultiplyBySlabs(p, scheme);
}

// Two sums: of the products with flipped signs, and of the weights that the flipping multiplies by 128.
int32_t ORVO_VNNI_PATH::Dot(const int8_t* a, const int8_t* b, size_t count) {
    const __m256i ones = _mm256_set1_epi8(1);
    __m256i sum = _mm256_setzero_si256();
    __m256i weightSum = _mm256_setzero_si256();
    size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m256i weights = Load32(b + i);
        DotAccumulate(sum, FlipSign(Load32(a + i)), weights);
        DotAccumulate(weightSum, ones, weights);
    }
    const __m256i lanes = _mm256_sub_epi32(sum, _mm256_slli_epi32(weightSum, 7));
    __m128i half = _mm_add_epi32(_mm256_castsi256_si128(lanes), _mm256_extracti128_si256(lanes, 1));
    half = _mm_add_epi32(half, _mm_shuffle_epi32(half, 0x4E));
    half = _mm_add_epi32(half, _mm_shuffle_epi32(half, 0xB1));
    const uint32_t rest = static_cast<uint32_t>(plain::Dot(a + i, b + i, count - i));
    return static_cast<int32_t>(static_cast<uint32_t>(_mm_cvtsi128_si32(half)) + rest);
}

} // namespace orvo
