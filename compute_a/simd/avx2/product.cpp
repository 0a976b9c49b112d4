// SPDX-License-Identifier: MIT
//
// Matrix product with AVX2; compute_a/simd/product.h has the walk.
//
// A tile is four channels by 16 pixels. A step's 64 bytes hold four rows of 16 pixels, a pixel in each
// 32-bit lane, and a step of weights is one such lane for each of the four channels:
//
//     values   | r0 r1 r2 r3 | of p0 | r0 r1 r2 r3 | of p1 ...  p15     without a sign: unsigned_bytes.h
//     weights  | w0 w1 w2 w3 | of c0 | w0 w1 w2 w3 | of c1 ...  c3
//              '---- lane ---'
//     (a step's first 32 bytes hold p0 to p7)
//
// vpmaddubsw leaves a sum of two products in each half of a lane. The halves are summed in 16 bits over a
// run of steps, as long as byte_sums.h says that they fit, and then widened: vpmaddwd by ones makes the
// lane of the two. Of the networks' groups that follow a rectifier, nearly all need one run, the others two
// to five. What cannot be summed with anything else is a run of one step, or of two with half of the weights
// in each.
//
// Two instructions, a product and an addition, take 32 products, where words took 16; three ports bear 48
// products a cycle. Thousands of millions a second: 64 signed rows to 128 planes of 12 x 12 103 (67 by words),
// 128 rectified rows to 64 planes 115; plain 9.
#include "compute_a/simd/product.h"

#include "compute_a/simd/avx2/lanes.h"
#include "compute_a/simd/avx2/routines.h"
#include "compute_a/simd/byte_sums.h"
#include "compute_a/simd/plain/routines.h"

namespace orvo {
namespace {

constexpr size_t kTilePixels = 16;
constexpr size_t kNarrowPixels = 8;
constexpr size_t kVectorBytes = 32;
constexpr size_t kStepBytes = 2 * kVectorBytes;
constexpr size_t kChunkSteps = 64; // whose weights are made ready at a time
constexpr size_t kChunkRows = kChunkSteps * kStepRows;
constexpr size_t kSlabBytes = 24 * 1024; // of packed values, to stay in the first cache

// A step's rows, as they stand in the four channels' lanes.
using StepBytes = uint8_t[16];

// The values' rows, by which they lose their sign: how far below zero a row's lowest value is, and how far
// above that its highest.
struct RowRanges {
    alignas(32) StepBytes depth[kChunkSteps];
    alignas(32) StepBytes width[kChunkSteps];
};

// Steps whose products are summed in 16 bits: where their values and their weights begin.
struct Run {
    uint16_t values, weights, steps;
};

// Four channels' weights of a chunk. Where fewer than four channels are left over, the others' are zero.
struct GroupWeights {
    size_t runs;
    Run run[2 * kChunkSteps];
    alignas(32) int32_t start[kGroup][2][8]; // of the sums, for two vectors of pixels
    alignas(32) int8_t steps[2 * kChunkSteps][16];
};

struct RowExtremes {
    __m128i least, most; // each among 16 bytes
};

// Zero belongs to them. Short rows are not looked at.
RowExtremes ExtremesOf(const int8_t* row, size_t pixels) {
    if (pixels < kVectorBytes) {
        return {_mm_set1_epi8(INT8_MIN), _mm_set1_epi8(INT8_MAX)};
    }
    __m256i least = _mm256_setzero_si256();
    __m256i most = _mm256_setzero_si256();
    const auto take = [&](size_t at) {
        const __m256i values = Load32(row + at);
        least = _mm256_min_epi8(least, values);
        most = _mm256_max_epi8(most, values);
    };
    for (size_t i = 0; i + kVectorBytes <= pixels; i += kVectorBytes) {
        take(i);
    }
    take(pixels - kVectorBytes);
    return {_mm_min_epi8(_mm256_castsi256_si128(least), _mm256_extracti128_si256(least, 1)),
            _mm_max_epi8(_mm256_castsi256_si128(most), _mm256_extracti128_si256(most, 1))};
}

// What `better` leaves of each of four vectors, side by side in every lane.
template <typename Better>
inline __m128i BestOfRows(const __m128i (&rows)[kStepRows], const Better& better) {
    const __m128i rows01 =
        better(_mm_unpacklo_epi8(rows[0], rows[1]), _mm_unpackhi_epi8(rows[0], rows[1]));
    const __m128i rows23 =
        better(_mm_unpacklo_epi8(rows[2], rows[3]), _mm_unpackhi_epi8(rows[2], rows[3]));
    __m128i best = better(_mm_unpacklo_epi16(rows01, rows23), _mm_unpackhi_epi16(rows01, rows23));
    best = better(best, _mm_shuffle_epi32(best, 0x4E));
    return better(best, _mm_shuffle_epi32(best, 0xB1));
}

// Chunks share their rows' places, so that where there are several, a row may be anything. Steps are asked for two
// at a time; behind the last one stands the last row.
void FindRanges(const MatrixProduct& p, RowRanges& ranges) {
    const size_t pixels = p.inner <= kChunkRows ? p.pixels : 0;
    const size_t rows = Least(p.inner, kChunkRows);
    const size_t end = (rows + 2 * kStepRows - 1) / (2 * kStepRows) * (2 * kStepRows);
    for (size_t row = 0; row < end; row += kStepRows) {
        __m128i lowest[kStepRows], highest[kStepRows];
        for (size_t i = 0; i < kStepRows; ++i) {
            const RowExtremes found =
                ExtremesOf(p.rows + Least(row + i, rows - 1) * p.rowPitch, pixels);
            lowest[i] = found.least;
            highest[i] = found.most;
        }
        const __m128i least =
            BestOfRows(lowest, [](__m128i a, __m128i b) { return _mm_min_epi8(a, b); });
        const __m128i most =
            BestOfRows(highest, [](__m128i a, __m128i b) { return _mm_max_epi8(a, b); });
        Store16(ranges.depth[row / kStepRows], _mm_sub_epi8(_mm_setzero_si128(), least));
        Store16(ranges.width[row / kStepRows], _mm_sub_epi8(most, least));
    }
}

// What two steps can come to, one in each half.
struct TwoExtents {
    __m256i most = _mm256_setzero_si256();
    __m256i least = _mm256_setzero_si256();

    static TwoExtents Of(__m256i weights, __m256i widths) {
        const __m256i zero = _mm256_setzero_si256();
        TwoExtents extents;
        extents.most = _mm256_maddubs_epi16(widths, _mm256_max_epi8(weights, zero));
        extents.least = _mm256_maddubs_epi16(widths, _mm256_min_epi8(weights, zero));
        return extents;
    }

    TwoExtents operator+(const TwoExtents& other) const {
        TwoExtents sum;
        sum.most = _mm256_adds_epi16(most, other.most);
        sum.least = _mm256_adds_epi16(least, other.least);
        return sum;
    }

    Extent first() const { return {_mm256_castsi256_si128(most), _mm256_castsi256_si128(least)}; }
    Extent second() const {
        return {_mm256_extracti128_si256(most, 1), _mm256_extracti128_si256(least, 1)};
    }
    bool fit() const { return (first() + second()).fits(); }
};

// Divides a group's steps into runs, two by two.
class RunWriter {
  public:
    RunWriter(GroupWeights& group, const RowRanges& ranges, size_t steps)
        : group_(group), ranges_(ranges), steps_(steps), spare_(steps + steps % 2) {
        group.runs = 0;
    }

    // Up to, but not including, `end`.
    void Put(size_t first, size_t end) { Add(first, first, Least(end, steps_) - first); }

    // Runs as long as possible.
    void Divide() {
        TwoExtents open;
        size_t first = 0;
        for (size_t step = 0; step < steps_; step += 2) {
            const TwoExtents two =
                TwoExtents::Of(Load32(group_.steps[step]), Load32(ranges_.width[step]));
            const TwoExtents sum = open + two;
            if (sum.fit()) {
                open = sum;
                continue;
            }
            if (first < step) {
                Put(first, step);
            }
            if (two.fit()) {
                open = two;
                first = step;
                continue;
            }
            PutSingle(step, two.first());
            PutSingle(step + 1, two.second());
            open = TwoExtents();
            first = step + 2;
        }
        if (first < steps_) {
            Put(first, steps_);
        }
    }

  private:
    void PutSingle(size_t step, const Extent& extent) {
        if (step >= steps_) {
            return;
        }
        if (!extent.fits()) {
            const __m128i weights = Load16(group_.steps[step]);
            const __m128i half = HalfOf(weights);
            Store16(group_.steps[step], half);
            Store16(group_.steps[spare_], _mm_sub_epi8(weights, half));
            Add(step, spare_++, 1);
        }
        Add(step, step, 1);
    }

    void Add(size_t values, size_t weights, size_t steps) {
        group_.run[group_.runs++] = {static_cast<uint16_t>(values), static_cast<uint16_t>(weights),
                                     static_cast<uint16_t>(steps)};
    }

    GroupWeights& group_;
    const RowRanges& ranges_;
    size_t steps_;
    size_t spare_; // the next place behind the steps, for the other half of one
};

// The chunk of rows that begins with `firstRow`; the first one's start has the bias. Halves of equal
// length are preferred to runs as long as possible: what all groups have in common, branches are foretold by.
void LoadChunk(const MatrixProduct& p, const ChannelGroup& from, size_t firstRow,
               const RowRanges& ranges, GroupWeights& group) {
    const __m256i byChannel = _mm256_broadcastsi128_si256(ByChannel());
    const size_t rows = Least(p.inner - firstRow, kChunkRows);
    const size_t steps = (rows + kStepRows - 1) / kStepRows;
    const size_t whole = from.channels == kGroup ? rows / kStepRows : 0;
    const int8_t* const weights = from.weights + kGroup * firstRow;
    __m256i below = _mm256_setzero_si256(); // what the values' lowest come to, its sign changed
    TwoExtents half;
    const auto take = [&](size_t step, __m256i twoSteps) __attribute__((always_inline)) {
        const __m256i lanes = _mm256_shuffle_epi8(twoSteps, byChannel);
        Store32(group.steps[step], lanes);
        half = half + TwoExtents::Of(lanes, Load32(ranges.width[step]));
        // Two products of up to 128 times -128 to 127: not beyond 16 bits.
        const __m256i words = _mm256_maddubs_epi16(Load32(ranges.depth[step]), lanes);
        below = _mm256_add_epi32(below, _mm256_madd_epi16(words, _mm256_set1_epi16(1)));
    };
    const auto load = [&](size_t step) {
        return step < whole ? Load16(weights + 16 * step)
                            : LoadFewWeights(p, from, firstRow + kStepRows * step);
    };
    size_t step = 0;
    const auto takeUntil = [&](size_t end) __attribute__((always_inline)) {
        half = TwoExtents();
        for (; step < end && step + 2 <= whole; step += 2) {
            take(step, Load32(weights + 16 * step));
        }
        for (; step < end; step += 2) {
            take(step, _mm256_set_m128i(load(step + 1), load(step)));
        }
        return half;
    };
    const size_t middle = (steps + 3) / 4 * 2;
    const TwoExtents left = takeUntil(middle);
    const TwoExtents right = takeUntil(steps);
    RunWriter writer(group, ranges, steps);
    if ((left + right).fit()) {
        writer.Put(0, steps);
    } else if (left.fit() && right.fit()) {
        writer.Put(0, middle);
        writer.Put(middle, steps);
    } else {
        writer.Divide();
    }
    alignas(16) uint32_t lowest[kGroup];
    Store16(lowest,
            _mm_add_epi32(_mm256_castsi256_si128(below), _mm256_extracti128_si256(below, 1)));
    for (size_t c = 0; c < kGroup; ++c) {
        const bool hasBias = firstRow == 0 && c < from.channels;
        const uint32_t bias = hasBias ? static_cast<uint32_t>(p.bias[from.first + c]) : 0;
        const __m256i start = _mm256_set1_epi32(static_cast<int32_t>(bias - lowest[c]));
        Store32(group.start[c][0], start);
        Store32(group.start[c][1], start);
    }
}

// `Vectors` times 8 pixels of some rows, pixel by pixel: `row` gives the i-th row, or zeros.
template <size_t Vectors, typename Row>
inline void PackStep(const Row& row, __m128i depths, int8_t* to) {
    const auto store = [depths, to](size_t i, __m128i values) {
        Store16(to + 16 * i, _mm_add_epi8(values, depths));
    };
    const __m128i low01 = _mm_unpacklo_epi8(row(0), row(1));
    const __m128i low23 = _mm_unpacklo_epi8(row(2), row(3));
    store(0, _mm_unpacklo_epi16(low01, low23));
    store(1, _mm_unpackhi_epi16(low01, low23));
    if constexpr (Vectors == 2) {
        const __m128i high01 = _mm_unpackhi_epi8(row(0), row(1));
        const __m128i high23 = _mm_unpackhi_epi8(row(2), row(3));
        store(2, _mm_unpacklo_epi16(high01, high23));
        store(3, _mm_unpackhi_epi16(high01, high23));
    }
}

template <size_t Vectors>
void PackTile(const MatrixProduct& p, size_t pixel, const RowRanges& ranges, int8_t* to) {
    const int8_t* at = p.rows + pixel;
    const auto load = [](const int8_t* row) { return Vectors == 2 ? Load16(row) : Load8(row); };
    const auto depths = [&ranges](size_t k) {
        return Load16(ranges.depth[k / kStepRows % kChunkSteps]);
    };
    size_t k = 0;
    for (; k + kStepRows <= p.inner; k += kStepRows, to += kVectorBytes * Vectors) {
        PackStep<Vectors>([&](size_t i) { return load(at + i * p.rowPitch); }, depths(k), to);
        at += kStepRows * p.rowPitch;
    }
    if (k < p.inner) {
        const auto row = [&](size_t i) {
            return k + i < p.inner ? load(at + i * p.rowPitch) : _mm_setzero_si128();
        };
        PackStep<Vectors>(row, depths(k), to);
    }
}

template <size_t Vectors>
using TileSums = __m256i[kGroup][Vectors];

// One step's products of 16 pixels become the sums of a run, or are added to them.
#define ORVO_CHANNEL_BEGUN(weights, sum0, sum1) \
    "vpbroadcastd " weights                     \
    "(%[weights]), %[w]\n"                      \
    "vpmaddubsw %[w], %[a], %[" sum0            \
    "]\n"                                       \
    "vpmaddubsw %[w], %[b], %[" sum1 "]\n"
#define ORVO_CHANNEL_ADDED(weights, sum0, sum1) \
    "vpbroadcastd " weights                     \
    "(%[weights]), %[w]\n"                      \
    "vpmaddubsw %[w], %[a], %[product]\n"       \
    "vpmaddubsw %[w], %[b], %[w]\n"             \
    "vpaddw %[product], %[" sum0 "], %[" sum0   \
    "]\n"                                       \
    "vpaddw %[w], %[" sum1 "], %[" sum1 "]\n"

// The products of a run, in 16 bits. GCC 12 copies the sums around every run and keeps some in memory, which
// costs a tenth; so that is assembly. Register plan: 8 sums, 2 vectors of values, 1 word of weights, 1 product.
inline __attribute__((always_inline)) void SumRun(const int8_t* weights, const int8_t* values,
                                                  size_t steps, TileSums<2>& sums) {
    __m256i a, b, w, product;
    __asm__("vmovdqu (%[values]), %[a]\n"
            "vmovdqu 32(%[values]), %[b]\n" //
            ORVO_CHANNEL_BEGUN("0", "sum0", "sum1") ORVO_CHANNEL_BEGUN("4", "sum2", "sum3")
            ORVO_CHANNEL_BEGUN("8", "sum4", "sum5") ORVO_CHANNEL_BEGUN("12", "sum6", "sum7")
            "dec %[steps]\n"
            "jz 2f\n"
            ".p2align 4\n"
            "1:\n"
            "add $64, %[values]\n"
            "add $16, %[weights]\n"
            "vmovdqu (%[values]), %[a]\n"
            "vmovdqu 32(%[values]), %[b]\n" //
            ORVO_CHANNEL_ADDED("0", "sum0", "sum1") ORVO_CHANNEL_ADDED("4", "sum2", "sum3")
            ORVO_CHANNEL_ADDED("8", "sum4", "sum5") ORVO_CHANNEL_ADDED("12", "sum6", "sum7")
            "dec %[steps]\n"
            "jnz 1b\n"
            "2:"
            : [sum0] "=&x"(sums[0][0]), [sum1] "=&x"(sums[0][1]), [sum2] "=&x"(sums[1][0]),
              [sum3] "=&x"(sums[1][1]), [sum4] "=&x"(sums[2][0]), [sum5] "=&x"(sums[2][1]),
              [sum6] "=&x"(sums[3][0]), [sum7] "=&x"(sums[3][1]), [a] "=&x"(a), [b] "=&x"(b),
              [w] "=&x"(w), [product] "=&x"(product), [values] "+&r"(values),
              [weights] "+&r"(weights), [steps] "+&r"(steps)
            :
            : "cc", "memory");
}
#undef ORVO_CHANNEL_BEGUN
#undef ORVO_CHANNEL_ADDED

// The same of 8 pixels.
inline void SumRun(const int8_t* weights, const int8_t* values, size_t steps, TileSums<1>& sums) {
    for (size_t c = 0; c < kGroup; ++c) {
        sums[c][0] = _mm256_setzero_si256();
    }
    for (; steps > 0; --steps, weights += 16, values += kVectorBytes) {
        const __m256i value = Load32(values);
#pragma GCC unroll 4
        for (size_t c = 0; c < kGroup; ++c) {
            const __m256i word = _mm256_set1_epi32(LoadWord<int32_t>(weights + 4 * c));
            sums[c][0] = _mm256_add_epi16(sums[c][0], _mm256_maddubs_epi16(value, word));
        }
    }
}

using StoredSums = int32_t[kGroup][2][8];

template <size_t Vectors>
inline void StoreSums(const TileSums<Vectors>& sums, StoredSums& to) {
#pragma GCC unroll 4
    for (size_t c = 0; c < kGroup; ++c) {
#pragma GCC unroll 2
        for (size_t v = 0; v < Vectors; ++v) {
            Store32(to[c][v], sums[c][v]);
        }
    }
}

// All runs of a chunk, added to `from`, which wraps. Sums wait in `stored` while the registers hold a run's.
template <size_t Vectors>
inline void SumChunk(const GroupWeights& group, const int8_t* values, const StoredSums* from,
                     StoredSums& stored, TileSums<Vectors>& sums) {
    const Run* run = group.run;
    for (const Run* const last = run + group.runs - 1;; ++run) {
        SumRun(group.steps[run->weights], values + run->values * kVectorBytes * Vectors, run->steps,
               sums);
        const __m256i ones = _mm256_set1_epi16(1);
#pragma GCC unroll 4
        for (size_t c = 0; c < kGroup; ++c) {
#pragma GCC unroll 2
            for (size_t v = 0; v < Vectors; ++v) {
                sums[c][v] =
                    _mm256_add_epi32(_mm256_madd_epi16(sums[c][v], ones), Load32((*from)[c][v]));
            }
        }
        if (run == last) {
            return;
        }
        StoreSums<Vectors>(sums, stored);
        from = &stored;
    }
}

// A product of several chunks: their weights are made ready for each tile anew.
template <size_t Vectors>
inline void SumChunks(const MatrixProduct& p, const ChannelGroup& channels, const RowRanges& ranges,
                      GroupWeights& group, const int8_t* values, TileSums<Vectors>& sums) {
    alignas(32) StoredSums stored;
    alignas(32) StoredSums before = {};
    size_t row = 0;
    do {
        LoadChunk(p, channels, row, ranges, group);
        for (size_t c = 0; c < kGroup; ++c) {
            for (size_t v = 0; v < Vectors; ++v) {
                Store32(group.start[c][v],
                        _mm256_add_epi32(Load32(group.start[c][v]), Load32(before[c][v])));
            }
        }
        SumChunk<Vectors>(group, values, &group.start, stored, sums);
        StoreSums<Vectors>(sums, before);
        values += kChunkSteps * kVectorBytes * Vectors;
        row += kChunkRows;
    } while (row < p.inner);
}

template <size_t Vectors>
inline void StoreTile(const MatrixProduct& p, const ChannelGroup& channels,
                      const TileSums<Vectors>& sums, int8_t* dst) {
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
    if (channels.channels == kGroup) {
#pragma GCC unroll 4
        for (size_t c = 0; c < kGroup; ++c) {
            store(dst + c * pitch, planes[c]);
        }
    } else {
        for (size_t c = 0; c < channels.channels; ++c) {
            store(dst + c * pitch, planes[c]);
        }
    }
}

// Tiles one after the other, of which the last ends with the last pixel. Not inlined: within a larger function
// GCC 12 spills sums.
template <size_t Vectors, bool kHasChunks>
__attribute__((noinline)) void MultiplyTiles(const MatrixProduct& p, const ChannelGroup& channels,
                                             [[maybe_unused]] const RowRanges& ranges,
                                             GroupWeights& group, const int8_t* values,
                                             size_t tiles, size_t pixel) {
    const size_t tileBytes = (p.inner + kStepRows - 1) / kStepRows * kVectorBytes * Vectors;
    const size_t last = p.pixels - kNarrowPixels * Vectors;
    int8_t* const outputs = p.dst + channels.first * p.planePitch;
    [[maybe_unused]] alignas(32) StoredSums stored;
    for (; tiles > 0; --tiles, values += tileBytes, pixel += kTilePixels) {
        TileSums<Vectors> sums;
        if constexpr (kHasChunks) {
            SumChunks<Vectors>(p, channels, ranges, group, values, sums);
        } else {
            SumChunk<Vectors>(group, values, &group.start, stored, sums);
        }
        StoreTile<Vectors>(p, channels, sums, outputs + Least(pixel, last));
    }
}

class Scheme {
  public:
    // The last tile ends with the last pixel of the product, so that it may start within the one
    // before it and write its first results once more. Up to 8 pixels left over are the rest: a
    // narrow tile, which ends there in the same way.
    struct Slab {
        size_t firstPixel;
        size_t pixelCount;
        size_t tiles;
        bool hasRest;

        size_t pixels() const { return pixelCount; }
    };

    explicit Scheme(const MatrixProduct& p)
        : p_(p), tileBytes_(kStepBytes * ((p.inner + kStepRows - 1) / kStepRows)) {
        // From a vector's boundary on where there is room for that: values that straddle two cache
        // lines take twice as long to load.
        const size_t toBoundary =
            (kVectorBytes - reinterpret_cast<uintptr_t>(p.scratch) % kVectorBytes) % kVectorBytes;
        const size_t skip = tileBytes_ + toBoundary <= p.scratchBytes ? toBoundary : 0;
        packed_ = p.scratch + skip;
        const size_t room = Least(p.scratchBytes - skip, kSlabBytes);
        mostTiles_ = tileBytes_ == 0 || room < tileBytes_ ? 1 : room / tileBytes_;
    }

    // Whether there are steps, pixels and scratch for a tile.
    bool Fits() const {
        return tileBytes_ > 0 && p_.pixels >= kTilePixels && tileBytes_ <= p_.scratchBytes;
    }

    void FindRanges() { orvo::FindRanges(p_, ranges_); }

    static size_t GroupChannels() { return kGroup; }

    Slab SlabFrom(size_t pixel) const {
        const size_t left = p_.pixels - pixel;
        const size_t tiles = (left + kTilePixels - 1) / kTilePixels;
        const size_t taken = TilesOfSlab(tiles, mostTiles_);
        const size_t count = Least(left, taken * kTilePixels);
        const size_t overWhole = count % kTilePixels;
        const bool hasRest = overWhole > 0 && overWhole <= kNarrowPixels;
        return {pixel, count, hasRest ? taken - 1 : taken, hasRest};
    }

    void Pack(const Slab& slab) const {
        int8_t* to = packed_;
        const size_t last = p_.pixels - kTilePixels;
        for (size_t i = 0; i < slab.tiles; ++i, to += tileBytes_) {
            PackTile<2>(p_, Least(slab.firstPixel + i * kTilePixels, last), ranges_, to);
        }
        if (slab.hasRest) {
            PackTile<1>(p_, p_.pixels - kNarrowPixels, ranges_, to);
        }
    }

    void MakeReady(const ChannelGroup& group) {
        if (!hasChunks()) {
            LoadChunk(p_, group, 0, ranges_, ready_);
        }
    }

    void MultiplyTiles(const ChannelGroup& group, const Slab& slab) {
        Multiply<2>(group, packed_, slab.tiles, slab.firstPixel);
    }

    void MultiplyRest(const ChannelGroup& group, const Slab& slab) {
        if (slab.hasRest) {
            Multiply<1>(group, packed_ + slab.tiles * tileBytes_, 1, p_.pixels - kNarrowPixels);
        }
    }

  private:
    bool hasChunks() const { return p_.inner > kChunkRows; }

    template <size_t Vectors>
    void Multiply(const ChannelGroup& group, const int8_t* values, size_t tiles, size_t pixel) {
        const auto multiply =
            hasChunks() ? orvo::MultiplyTiles<Vectors, true> : orvo::MultiplyTiles<Vectors, false>;
        multiply(p_, group, ranges_, ready_, values, tiles, pixel);
    }

    const MatrixProduct& p_;
    const size_t tileBytes_;
    size_t mostTiles_;
    int8_t* packed_;
    RowRanges ranges_;
    GroupWeights ready_;
};

} // namespace

void avx2::Multiply(const MatrixProduct& p) {
    Scheme scheme(p);
    if (!scheme.Fits()) {
        return plain::Multiply(p);
    }
    scheme.FindRanges();
    MultiplyBySlabs(p, scheme);
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
