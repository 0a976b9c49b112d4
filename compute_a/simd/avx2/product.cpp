// SPDX-License-Identifier: MIT
//
// Matrix product with AVX2; compute_a/simd/product.h has the walk.
//
// A tile is four channels by 16 pixels. A step's 64 bytes hold some rows of 16 pixels, a pixel in
// each 32-bit lane, and a step of weights is one such lane for each of the four channels:
//
//     Words   | r0 r1 | of p0  | r0 r1 | of p1  | ...  p15     16 bits each, two rows
//     Bytes   | r0 r1 r2 r3 | of p0 | r0 r1 r2 r3 | of p1 ...  8 bits each, four rows
//             '---- lane ---'
//     (of Words a step's first 32 bytes hold p0 to p7, and so they do of Bytes)
//
// Words are the general packing: two rows widened to 16 bits a lane, and vpmaddwd, which adds each
// pair of products into 32 bits: exact for bytes, whatever they are. Bytes, four rows a lane, are
// for values without a sign, which a rectifier leaves: vpmaddubsw adds two products in 16 bits, at
// most 2 * 127 * 128 = 32512, so that it never saturates. As long as the weights that a 16-bit sum
// meets add up to kMostWeight at most, it can take more of them before it is widened.
//
// Thousands of millions of products a second, 64 rows to 128 planes of 12 x 12: words 69, bytes 86,
// bytes with sums over two steps 100, over all steps 119; plain 9.
#include "compute_a/simd/product.h"

#include "compute_a/simd/avx2/lanes.h"
#include "compute_a/simd/avx2/routines.h"
#include "compute_a/simd/plain/routines.h"

namespace orvo {
namespace {

constexpr size_t kTilePixels = 16;
constexpr size_t kNarrowPixels = 8;
constexpr size_t kGroup = 4;
constexpr size_t kStepBytes = 64;
constexpr size_t kChunkSteps = 128; // of weights, that are made ready at a time
constexpr int kMostWeight = 258;    // 258 * 127 = 32766

struct Words {
    static constexpr size_t kRows = 2;
};
// With 16-bit sums that take so many steps; 0 stands for all.
template <size_t kTaken>
struct Bytes {
    static constexpr size_t kRows = 4;
};

template <typename Packing>
inline size_t Steps(const MatrixProduct& p) {
    return (p.inner + Packing::kRows - 1) / Packing::kRows;
}

// Four channels and the weights of up to kChunkSteps steps. Where fewer than four are left over,
// the others' weights are zero.
struct GroupWeights {
    const int8_t* weights = nullptr;
    size_t first = 0;
    size_t channels = 0;
    int32_t bias[kGroup];
    alignas(32) int8_t steps[kChunkSteps][16];
};

// Four rows from `row` on, four weights each, of fewer than four rows or channels.
__m128i LoadFewWeights(const MatrixProduct& p, const GroupWeights& group, size_t row) {
    alignas(16) int8_t weights[4][kGroup] = {};
    for (size_t k = 0; k < 4 && row + k < p.inner; ++k) {
        for (size_t c = 0; c < group.channels; ++c) {
            weights[k][c] = group.channels == kGroup ? group.weights[kGroup * (row + k) + c]
                                                     : group.weights[c * p.groupBytes + row + k];
        }
    }
    return Load16(weights);
}

// Calls take(weights) for every four rows from `row` to `end`.
template <typename Take>
inline void ForWeights(const MatrixProduct& p, const GroupWeights& group, size_t row, size_t end,
                       const Take& take) {
    if (group.channels == kGroup) {
        for (; row + 4 <= end; row += 4) {
            take(Load16(group.weights + kGroup * row));
        }
    }
    for (; row < end; row += 4) {
        take(LoadFewWeights(p, group, row));
    }
}

inline size_t ChunkEnd(const MatrixProduct& p, size_t row, size_t rowsAStep) {
    const size_t left = p.inner - row;
    return row + (left < kChunkSteps * rowsAStep ? left : kChunkSteps * rowsAStep);
}

void LoadChunk(const MatrixProduct& p, size_t row, GroupWeights& group, Words) {
    const __m128i pairs = _mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15);
    auto* to = group.steps;
    ForWeights(p, group, row, ChunkEnd(p, row, 2), [&](__m128i weights) {
        Store32(to, _mm256_cvtepi8_epi16(_mm_shuffle_epi8(weights, pairs)));
        to += 2;
    });
}

// How much weight the 16-bit sums meet at most.
struct WeightTotals {
    int twoSteps, all;
};

inline int Largest(__m128i words) {
    words = _mm_max_epu16(words, _mm_srli_si128(words, 8));
    words = _mm_max_epu16(words, _mm_srli_si128(words, 4));
    words = _mm_max_epu16(words, _mm_srli_si128(words, 2));
    return _mm_extract_epi16(words, 0);
}

WeightTotals LoadByteChunk(const MatrixProduct& p, size_t row, GroupWeights& group) {
    const __m128i transpose = _mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    __m128i most = _mm_setzero_si128();
    __m128i all = _mm_setzero_si128();
    __m128i before = _mm_setzero_si128();
    auto* to = group.steps;
    ForWeights(p, group, row, ChunkEnd(p, row, 4), [&](__m128i rows) {
        const __m128i weights = _mm_shuffle_epi8(rows, transpose);
        Store16(to++, weights);
        // As unsigned bytes the magnitudes are right for -128, too.
        const __m128i total = _mm_maddubs_epi16(_mm_abs_epi8(weights), _mm_set1_epi8(1));
        most = _mm_max_epu16(most, _mm_add_epi16(before, total));
        all = _mm_add_epi16(all, total);
        before = total;
    });
    return {Largest(most), Largest(all)};
}

template <size_t kTaken>
void LoadChunk(const MatrixProduct& p, size_t row, GroupWeights& group, Bytes<kTaken>) {
    LoadByteChunk(p, row, group);
}

// `Vectors` times 8 pixels of some rows, pixel by pixel: `row` gives the i-th row, or zeros.
template <size_t Vectors, typename Row>
inline void PackStep(const Row& row, int8_t* to, Words) {
    Store32(to, _mm256_cvtepi8_epi16(_mm_unpacklo_epi8(row(0), row(1))));
    if constexpr (Vectors == 2) {
        Store32(to + 32, _mm256_cvtepi8_epi16(_mm_unpackhi_epi8(row(0), row(1))));
    }
}

template <size_t Vectors, size_t kTaken, typename Row>
inline void PackStep(const Row& row, int8_t* to, Bytes<kTaken>) {
    const __m128i low01 = _mm_unpacklo_epi8(row(0), row(1));
    const __m128i low23 = _mm_unpacklo_epi8(row(2), row(3));
    Store16(to, _mm_unpacklo_epi16(low01, low23));
    Store16(to + 16, _mm_unpackhi_epi16(low01, low23));
    if constexpr (Vectors == 2) {
        const __m128i high01 = _mm_unpackhi_epi8(row(0), row(1));
        const __m128i high23 = _mm_unpackhi_epi8(row(2), row(3));
        Store16(to + 32, _mm_unpacklo_epi16(high01, high23));
        Store16(to + 48, _mm_unpackhi_epi16(high01, high23));
    }
}

template <size_t Vectors, typename Packing>
void PackTile(const MatrixProduct& p, size_t pixel, int8_t* to, Packing packing) {
    const int8_t* at = p.rows + pixel;
    const auto load = [](const int8_t* row) { return Vectors == 2 ? Load16(row) : Load8(row); };
    size_t k = 0;
    for (; k + Packing::kRows <= p.inner; k += Packing::kRows, to += 32 * Vectors) {
        PackStep<Vectors>([&](size_t i) { return load(at + i * p.rowPitch); }, to, packing);
        at += Packing::kRows * p.rowPitch;
    }
    if (k < p.inner) {
        const auto row = [&](size_t i) {
            return k + i < p.inner ? load(at + i * p.rowPitch) : _mm_setzero_si128();
        };
        PackStep<Vectors>(row, to, packing);
    }
}

inline __m256i BroadcastWord(const int8_t* word) {
    return _mm256_set1_epi32(LoadWord<int32_t>(word));
}

template <size_t Vectors>
using TileSums = __m256i[kGroup][Vectors];

// Adds a step to the sums, which wrap. Register plan for 2 vectors: 8 sums, 2 vectors of values, 1
// word of weights broadcast from memory, 1 product.
template <size_t Vectors>
inline void AddStep(const int8_t* weights, const int8_t* values, TileSums<Vectors>& sums) {
    __m256i value[Vectors];
#pragma GCC unroll 2
    for (size_t v = 0; v < Vectors; ++v) {
        value[v] = Load32(values + 32 * v);
    }
#pragma GCC unroll 4
    for (size_t c = 0; c < kGroup; ++c) {
        const __m256i word = BroadcastWord(weights + 4 * c);
#pragma GCC unroll 2
        for (size_t v = 0; v < Vectors; ++v) {
            sums[c][v] = _mm256_add_epi32(sums[c][v], _mm256_madd_epi16(value[v], word));
        }
    }
}

template <size_t Vectors>
inline void AddSteps(const int8_t (*weights)[16], const int8_t* values, size_t steps,
                     TileSums<Vectors>& sums, Words) {
#pragma GCC unroll 2
    for (size_t step = 0; step < steps; ++step, values += 32 * Vectors) {
        AddStep<Vectors>(weights[step], values, sums);
    }
}

inline __m256i AddHalves(__m256i sum, __m256i words) {
    return _mm256_add_epi32(sum, _mm256_madd_epi16(words, _mm256_set1_epi16(1)));
}

// One step, or two steps whose products 16 bits can take together. Register plan: 8 sums, the
// steps' values of 8 pixels, a word of weights, 2 products, ones; so that one vector of pixels goes
// after the other.
template <size_t Vectors, size_t kTaken>
inline void AddSteps(const int8_t (*weights)[16], const int8_t* values, size_t steps,
                     TileSums<Vectors>& sums, Bytes<kTaken>) {
    const auto add = [&](size_t taken) __attribute__((always_inline)) {
#pragma GCC unroll 2
        for (size_t v = 0; v < Vectors; ++v) {
            const __m256i first = Load32(values + 32 * v);
            const __m256i second = taken == 2 ? Load32(values + 32 * (Vectors + v)) : first;
#pragma GCC unroll 4
            for (size_t c = 0; c < kGroup; ++c) {
                __m256i words = _mm256_maddubs_epi16(first, BroadcastWord(weights[0] + 4 * c));
                if (taken == 2) {
                    const __m256i word = BroadcastWord(weights[1] + 4 * c);
                    words = _mm256_add_epi16(words, _mm256_maddubs_epi16(second, word));
                }
                sums[c][v] = AddHalves(sums[c][v], words);
            }
        }
    };
    for (; steps >= kTaken; steps -= kTaken, weights += kTaken) {
        add(kTaken);
        values += 32 * Vectors * kTaken;
    }
    if (kTaken == 2 && steps > 0) {
        add(1);
    }
}

// sum += words. GCC 12 copies the eight sums of a step around the intrinsic and spills two of them;
// the instruction itself it leaves in place.
inline __attribute__((always_inline)) void AddWords(__m256i& sum, __m256i words) {
    __asm__("vpaddw %1, %0, %0" : "+x"(sum) : "x"(words));
}

// All steps at once. Register plan for 2 vectors: 8 sums of 16 bits, 2 vectors of values, 1 word of
// weights, 1 product; the sums of 32 bits wait in memory.
template <size_t Vectors>
inline void AddSteps(const int8_t (*weights)[16], const int8_t* values, size_t steps,
                     TileSums<Vectors>& sums, Bytes<0>) {
    __m256i words[kGroup][Vectors] = {};
    for (size_t step = 0; step < steps; ++step, values += 32 * Vectors) {
        __m256i value[Vectors];
#pragma GCC unroll 2
        for (size_t v = 0; v < Vectors; ++v) {
            value[v] = Load32(values + 32 * v);
        }
#pragma GCC unroll 4
        for (size_t c = 0; c < kGroup; ++c) {
            const __m256i word = BroadcastWord(weights[step] + 4 * c);
#pragma GCC unroll 2
            for (size_t v = 0; v < Vectors; ++v) {
                const __m256i product = _mm256_maddubs_epi16(value[v], word);
                AddWords(words[c][v], product);
            }
        }
    }
#pragma GCC unroll 4
    for (size_t c = 0; c < kGroup; ++c) {
#pragma GCC unroll 2
        for (size_t v = 0; v < Vectors; ++v) {
            sums[c][v] = AddHalves(sums[c][v], words[c][v]);
        }
    }
}

// 8 or 16 pixels of the group's planes. Not inlined: within a larger function GCC 12 spills sums of
// the innermost loop.
template <size_t Vectors, typename Packing>
__attribute__((noinline)) void Tile(const MatrixProduct& p, GroupWeights& group,
                                    const int8_t* values, int8_t* dst, Packing packing) {
    constexpr size_t kChunkRows = kChunkSteps * Packing::kRows;
    TileSums<Vectors> sums;
#pragma GCC unroll 4
    for (size_t c = 0; c < kGroup; ++c) {
#pragma GCC unroll 2
        for (size_t v = 0; v < Vectors; ++v) {
            sums[c][v] = _mm256_set1_epi32(group.bias[c]);
        }
    }
    for (size_t row = 0; row < p.inner; row += kChunkRows) {
        if (p.inner > kChunkRows) {
            LoadChunk(p, row, group, packing);
        }
        const size_t steps =
            (ChunkEnd(p, row, Packing::kRows) - row + Packing::kRows - 1) / Packing::kRows;
        AddSteps<Vectors>(group.steps, values, steps, sums, packing);
        values += steps * 32 * Vectors;
    }
    const __m256i shift = _mm256_set1_epi32(static_cast<int>(p.shift));
    const __m256i first = Requantise<Vectors>(sums[0], sums[1], shift);
    const __m256i second = Requantise<Vectors>(sums[2], sums[3], shift);
    const __m128i planes[kGroup] = {
        _mm256_castsi256_si128(first), _mm256_extracti128_si256(first, 1),
        _mm256_castsi256_si128(second), _mm256_extracti128_si256(second, 1)};
    const size_t pitch = p.planePitch;
    const auto store = [](int8_t* to, __m128i bytes) {
        Vectors == 2 ? Store16(to, bytes) : Store8(to, bytes);
    };
    if (group.channels == kGroup) {
#pragma GCC unroll 4
        for (size_t c = 0; c < kGroup; ++c) {
            store(dst + c * pitch, planes[c]);
        }
    } else {
        for (size_t c = 0; c < group.channels; ++c) {
            store(dst + c * pitch, planes[c]);
        }
    }
}

constexpr size_t kSlabBytes = 24 * 1024; // of packed values, to stay in the first cache

template <typename Packing>
class Scheme {
  public:
    // The last tile ends with the last pixel of the product, so that it may start within the one
    // before it and write its first results once more. Up to 8 pixels left over are the rest: a
    // narrow tile, which ends there in the same way.
    struct Slab {
        const int8_t* packed;
        size_t firstPixel;
        size_t pixelCount;
        size_t tiles;
        bool hasRest;

        size_t pixels() const { return pixelCount; }
    };

    explicit Scheme(const MatrixProduct& p) : p_(p), tileBytes_(kStepBytes * Steps<Packing>(p)) {
        // From a vector's boundary on where there is room for that: values that straddle two cache
        // lines take twice as long to load.
        const size_t toBoundary = (32 - reinterpret_cast<uintptr_t>(p.scratch) % 32) % 32;
        const size_t skip = tileBytes_ + toBoundary <= p.scratchBytes ? toBoundary : 0;
        packed_ = p.scratch + skip;
        const size_t room = Least(p.scratchBytes - skip, kSlabBytes);
        mostTiles_ = tileBytes_ == 0 || room < tileBytes_ ? 1 : room / tileBytes_;
    }

    // Whether there are pixels and scratch for a tile.
    bool Fits() const { return p_.pixels >= kTilePixels && tileBytes_ <= p_.scratchBytes; }

    size_t GroupChannels() const { return kGroup; }

    Slab SlabFrom(size_t pixel) const {
        const size_t left = p_.pixels - pixel;
        const size_t tiles = (left + kTilePixels - 1) / kTilePixels;
        const size_t taken = TilesOfSlab(tiles, mostTiles_);
        const size_t count = Least(left, taken * kTilePixels);
        const size_t overWhole = count % kTilePixels;
        const bool hasRest = overWhole > 0 && overWhole <= kNarrowPixels;
        return {packed_, pixel, count, hasRest ? taken - 1 : taken, hasRest};
    }

    void Pack(const Slab& slab) const {
        int8_t* to = packed_;
        for (size_t i = 0; i < slab.tiles; ++i, to += tileBytes_) {
            PackTile<2>(p_, TileAt(slab, i), to, Packing{});
        }
        if (slab.hasRest) {
            PackTile<1>(p_, p_.pixels - kNarrowPixels, to, Packing{});
        }
    }

    void MakeReady(const ChannelGroup& group) {
        ready_.weights = group.weights;
        ready_.first = group.first;
        ready_.channels = group.channels;
        for (size_t c = 0; c < kGroup; ++c) {
            ready_.bias[c] = c < group.channels ? p_.bias[group.first + c] : 0;
        }
        LoadFirstChunk(Packing{});
    }

    void MultiplyTiles(const ChannelGroup&, const Slab& slab) {
        Widened([&](auto packing) {
            const int8_t* values = slab.packed;
            for (size_t i = 0; i < slab.tiles; ++i, values += tileBytes_) {
                Tile<2>(p_, ready_, values, Outputs() + TileAt(slab, i), packing);
            }
        });
    }

    void MultiplyRest(const ChannelGroup&, const Slab& slab) {
        if (slab.hasRest) {
            const int8_t* values = slab.packed + slab.tiles * tileBytes_;
            int8_t* dst = Outputs() + p_.pixels - kNarrowPixels;
            Widened([&](auto packing) { Tile<1>(p_, ready_, values, dst, packing); });
        }
    }

  private:
    // How many steps the sums of 16 bits may take.
    enum class Taken { kOne, kTwo, kAll };

    size_t TileAt(const Slab& slab, size_t i) const {
        return Least(slab.firstPixel + i * kTilePixels, p_.pixels - kTilePixels);
    }

    int8_t* Outputs() const { return p_.dst + ready_.first * p_.planePitch; }

    void LoadFirstChunk(Words words) { LoadChunk(p_, 0, ready_, words); }

    // As many steps in 16 bits as the weights allow. Those of a later chunk may be larger.
    void LoadFirstChunk(Bytes<1>) {
        const WeightTotals totals = LoadByteChunk(p_, 0, ready_);
        const bool areAll = p_.inner <= kChunkSteps * Bytes<1>::kRows;
        taken_ = !areAll                          ? Taken::kOne
                 : totals.all <= kMostWeight      ? Taken::kAll
                 : totals.twoSteps <= kMostWeight ? Taken::kTwo
                                                  : Taken::kOne;
    }

    // Calls multiply(packing), the packing saying when sums are widened.
    template <typename Multiply>
    void Widened(const Multiply& multiply) const {
        if constexpr (Packing::kRows == Words::kRows) {
            multiply(Words{});
        } else if (taken_ == Taken::kAll) {
            multiply(Bytes<0>{});
        } else if (taken_ == Taken::kTwo) {
            multiply(Bytes<2>{});
        } else {
            multiply(Bytes<1>{});
        }
    }

    const MatrixProduct& p_;
    const size_t tileBytes_;
    size_t mostTiles_;
    int8_t* packed_;
    Taken taken_ = Taken::kOne;
    GroupWeights ready_;
};

template <typename Packing>
void MultiplyBy(const MatrixProduct& p) {
    Scheme<Packing> scheme(p);
    if (!scheme.Fits() || !MultiplyBySlabs(p, scheme)) {
        plain::Multiply(p);
    }
}

bool IsRectified(const MatrixProduct& p) {
    for (size_t k = 0; k < p.inner; ++k) {
        const int8_t* row = p.rows + k * p.rowPitch;
        __m256i all = _mm256_setzero_si256();
        size_t i = 0;
        for (; i + 32 <= p.pixels; i += 32) {
            all = _mm256_or_si256(all, Load32(row + i));
        }
        int signs = _mm256_movemask_epi8(all);
        for (; i < p.pixels; ++i) {
            signs |= row[i] < 0;
        }
        if (signs != 0) {
            return false;
        }
    }
    return true;
}

} // namespace

void avx2::Multiply(const MatrixProduct& p) {
    if (IsRectified(p)) {
        MultiplyBy<Bytes<1>>(p);
    } else {
        MultiplyBy<Words>(p);
    }
}

int32_t avx2::Dot(const int8_t* a, const int8_t* b, size_t count) {
    __m256i sum = _mm256_setzero_si256();
    size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        sum = _mm256_add_epi32(sum, _mm256_madd_epi16(_mm256_cvtepi8_epi16(Load16(a + i)),
                                                      _mm256_cvtepi8_epi16(Load16(b + i))));
    }
    __m128i half = _mm_add_epi32(_mm256_castsi256_si128(sum), _mm256_extracti128_si256(sum, 1));
    half = _mm_add_epi32(half, _mm_shuffle_epi32(half, 0x4E));
    half = _mm_add_epi32(half, _mm_shuffle_epi32(half, 0xB1));
    const uint32_t rest = static_cast<uint32_t>(plain::Dot(a + i, b + i, count - i));
    return static_cast<int32_t>(static_cast<uint32_t>(_mm_cvtsi128_si32(half)) + rest);
}

} // namespace orvo
