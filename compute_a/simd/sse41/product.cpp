// SPDX-License-Identifier: MIT
//
// Matrix product with SSE4.1; compute_a/simd/product.h has the walk.
//
// A tile is four channels by 8 pixels. A step's 32 bytes hold four rows of 8 pixels, a pixel in each
// 32-bit lane, and a step of weights is such a lane for each of the four channels, repeated in a
// vector:
//
//     values   | r0 r1 r2 r3 | of p0 | r0 r1 r2 r3 | of p1 ...  p7      without a sign: unsigned_bytes.h
//     weights  | w0 w1 w2 w3 | of c0 | w0 w1 w2 w3 | of c0 ...  then c1, c2 and c3
//              '---- lane ---'
//
// pmaddubsw multiplies a vector of values by one of weights and leaves a sum of two products in each
// half of a lane. The halves are summed in 16 bits over a run of steps, as long as the weights allow,
// and then widened: pmaddwd by ones makes the lane of the two. Where a pair of weights is too large
// even for a run of one step, the step stands in two runs, with half of the weights in each.
#include "compute_a/simd/product.h"

#include "compute_a/simd/byte_sums.h"
#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/sse41/lanes.h"
#include "compute_a/simd/sse41/routines.h"
#include "compute_a/simd/unsigned_bytes.h"

namespace orvo {
namespace {

constexpr size_t kTilePixels = 8;
constexpr size_t kNarrowPixels = 4;
constexpr size_t kVectorBytes = 16;
constexpr size_t kStepBytes = 2 * kVectorBytes;
constexpr size_t kMaxSteps = 64;         // of which the weights fit the stack
constexpr size_t kSlabBytes = 20 * 1024; // of packed values, to stay in the first cache

// Steps whose products are summed in 16 bits.
struct Run {
    uint16_t firstStep; // of the values
    uint16_t steps;
};

// Up to four channels. Where fewer are left over, the others' weights are zero.
struct GroupWeights {
    size_t runs;
    int32_t bias[kGroup];
    Run run[2 * kMaxSteps];
    alignas(16) int8_t steps[2 * kMaxSteps][kGroup][kVectorBytes];
};

// Four weights of a channel side by side, channel after channel.
inline __m128i LoadWeights(const MatrixProduct& p, const ChannelGroup& group, size_t row) {
    const bool isWhole = group.channels == kGroup && row + kStepRows <= p.inner;
    return _mm_shuffle_epi8(
        isWhole ? Load16(group.weights + kGroup * row) : LoadFewWeights(p, group, row),
        ByChannel());
}

inline void RepeatWeights(__m128i weights, int8_t (*to)[kVectorBytes]) {
    Store16(to[0], _mm_shuffle_epi32(weights, 0x00));
    Store16(to[1], _mm_shuffle_epi32(weights, 0x55));
    Store16(to[2], _mm_shuffle_epi32(weights, 0xAA));
    Store16(to[3], _mm_shuffle_epi32(weights, 0xFF));
}

// The values' rows, step by step, by which they lose their sign: how far below zero a row's lowest value
// is, and how far above that its highest.
struct RowRanges {
    alignas(16) uint8_t depth[kMaxSteps][kStepRows];
    alignas(16) uint8_t width[kMaxSteps][kStepRows];
};

inline __m128i RepeatRows(const uint8_t (&rows)[kStepRows]) {
    int32_t lane;
    __builtin_memcpy(&lane, rows, sizeof lane);
    return _mm_set1_epi32(lane);
}

// Puts steps of weights one after the other and divides them into runs.
class RunWriter {
  public:
    explicit RunWriter(GroupWeights& group) : group_(group) { group.runs = 0; }

    void Put(size_t step, __m128i weights, __m128i widths) {
        const Extent extent = Extent::Of(weights, widths);
        const Extent sum = extent_ + extent;
        if (group_.runs > 0 && sum.fits()) {
            extent_ = sum;
        } else if (extent.fits()) {
            Begin(step, extent);
        } else {
            return PutInHalves(step, weights, widths);
        }
        Append(weights);
    }

  private:
    void PutInHalves(size_t step, __m128i weights, __m128i widths) {
        const __m128i half = HalfOf(weights);
        const __m128i rest = _mm_sub_epi8(weights, half);
        Begin(step, Extent::Of(half, widths));
        Append(half);
        Begin(step, Extent::Of(rest, widths));
        Append(rest);
    }

    void Begin(size_t step, const Extent& extent) {
        group_.run[group_.runs++] = {static_cast<uint16_t>(step), 0};
        extent_ = extent;
    }

    void Append(__m128i weights) {
        RepeatWeights(weights, group_.steps[written_++]);
        ++group_.run[group_.runs - 1].steps;
    }

    GroupWeights& group_;
    Extent extent_ = {_mm_setzero_si128(), _mm_setzero_si128()};
    size_t written_ = 0;
};

void LoadGroup(const MatrixProduct& p, const ChannelGroup& from, const RowRanges& ranges,
               GroupWeights& group) {
    RunWriter writer(group);
    __m128i lowest = _mm_setzero_si128(); // what the values' lowest come to, its sign changed
    for (size_t row = 0, step = 0; row < p.inner; row += kStepRows, ++step) {
        const __m128i weights = LoadWeights(p, from, row);
        // Two products of up to 128 times -128 to 127: not beyond 16 bits.
        const __m128i words = _mm_maddubs_epi16(RepeatRows(ranges.depth[step]), weights);
        lowest = _mm_add_epi32(lowest, _mm_madd_epi16(words, _mm_set1_epi16(1)));
        writer.Put(step, weights, RepeatRows(ranges.width[step]));
    }
    alignas(16) uint32_t below[kGroup];
    Store16(below, lowest);
    for (size_t c = 0; c < kGroup; ++c) {
        const int32_t bias = c < from.channels ? p.bias[from.first + c] : 0;
        group.bias[c] = static_cast<int32_t>(static_cast<uint32_t>(bias) - below[c]);
    }
}

// `Vectors` times 4 pixels of some rows, pixel by pixel: `row` gives the i-th row, or zeros.
template <size_t Vectors, typename Row>
inline void PackStep(const Row& row, __m128i depths, int8_t* to) {
    const __m128i rows01 = _mm_unpacklo_epi8(row(0), row(1));
    const __m128i rows23 = _mm_unpacklo_epi8(row(2), row(3));
    Store16(to, _mm_add_epi8(_mm_unpacklo_epi16(rows01, rows23), depths));
    if constexpr (Vectors == 2) {
        Store16(to + kVectorBytes, _mm_add_epi8(_mm_unpackhi_epi16(rows01, rows23), depths));
    }
}

template <size_t Vectors>
void PackTile(const MatrixProduct& p, size_t pixel, const RowRanges& ranges, int8_t* to) {
    const int8_t* at = p.rows + pixel;
    const auto load = [](const int8_t* row) { return Vectors == 2 ? Load8(row) : Load4(row); };
    size_t k = 0;
    const uint8_t(*depths)[kStepRows] = ranges.depth;
    for (; k + kStepRows <= p.inner; k += kStepRows, ++depths, to += Vectors * kVectorBytes) {
        PackStep<Vectors>([&](size_t i) { return load(at + i * p.rowPitch); }, RepeatRows(*depths),
                          to);
        at += kStepRows * p.rowPitch;
    }
    if (k < p.inner) {
        const auto row = [&](size_t i) {
            return k + i < p.inner ? load(at + i * p.rowPitch) : _mm_setzero_si128();
        };
        PackStep<Vectors>(row, RepeatRows(*depths), to);
    }
}

// GCC 12 copies the sums of a step around the intrinsics; the instructions themselves it leaves in place.
inline __attribute__((always_inline)) void AddWords(__m128i& sum, __m128i words) {
    __asm__("paddw %1, %0" : "+x"(sum) : "x"(words));
}
// Bytes without a sign become the sums of their products with `weights`.
inline __attribute__((always_inline)) void MultiplyBytes(__m128i& values, const int8_t* weights) {
    const auto& vector = *reinterpret_cast<const __m128i*>(weights);
    __asm__("pmaddubsw %1, %0" : "+x"(values) : "m"(vector));
}
inline __attribute__((always_inline)) void MultiplyWords(__m128i& values, __m128i words) {
    __asm__("pmaddwd %1, %0" : "+x"(values) : "x"(words));
}

// Adds a run's products to the sums. Register plan for 2 vectors: 8 sums of 16 bits, 2 vectors of
// values, a product, ones; the sums of 32 bits wait in memory.
template <size_t Vectors>
inline void AddRun(const int8_t (*weights)[kGroup][kVectorBytes], const int8_t* values,
                   size_t steps, __m128i (&sums)[kGroup][Vectors]) {
    __m128i words[kGroup][Vectors];
#pragma GCC unroll 4
    for (size_t c = 0; c < kGroup; ++c) {
#pragma GCC unroll 2
        for (size_t v = 0; v < Vectors; ++v) {
            words[c][v] = Load16(values + kVectorBytes * v);
            MultiplyBytes(words[c][v], weights[0][c]);
        }
    }
    for (size_t step = 1; step < steps; ++step) {
        ++weights;
        values += Vectors * kVectorBytes;
        __m128i value[Vectors];
#pragma GCC unroll 2
        for (size_t v = 0; v < Vectors; ++v) {
            value[v] = Load16(values + kVectorBytes * v);
        }
#pragma GCC unroll 4
        for (size_t c = 0; c < kGroup; ++c) {
#pragma GCC unroll 2
            for (size_t v = 0; v < Vectors; ++v) {
                __m128i product = value[v];
                MultiplyBytes(product, weights[0][c]);
                AddWords(words[c][v], product);
            }
        }
    }
    const __m128i ones = _mm_set1_epi16(1);
#pragma GCC unroll 4
    for (size_t c = 0; c < kGroup; ++c) {
#pragma GCC unroll 2
        for (size_t v = 0; v < Vectors; ++v) {
            MultiplyWords(words[c][v], ones);
            sums[c][v] = _mm_add_epi32(sums[c][v], words[c][v]);
        }
    }
}

// 4 or 8 pixels of the group's planes. Not inlined: within a larger function GCC 12 spills sums of
// the innermost loop.
template <size_t Vectors>
__attribute__((noinline)) void Tile(const MatrixProduct& p, const ChannelGroup& channels,
                                    const GroupWeights& group, const int8_t* values, int8_t* dst) {
    __m128i sums[kGroup][Vectors];
#pragma GCC unroll 4
    for (size_t c = 0; c < kGroup; ++c) {
#pragma GCC unroll 2
        for (size_t v = 0; v < Vectors; ++v) {
            sums[c][v] = _mm_set1_epi32(group.bias[c]);
        }
    }
    const auto* weights = group.steps;
    for (size_t i = 0; i < group.runs; ++i) {
        const Run run = group.run[i];
        AddRun<Vectors>(weights, values + run.firstStep * Vectors * kVectorBytes, run.steps, sums);
        weights += run.steps;
    }
    const __m128i shift = _mm_cvtsi32_si128(static_cast<int>(p.shift));
    const auto words = [&](size_t c) {
        return _mm_packs_epi32(_mm_sra_epi32(sums[c][0], shift),
                               _mm_sra_epi32(sums[c][Vectors - 1], shift));
    };
    const __m128i planes01 = _mm_packs_epi16(words(0), words(1));
    const __m128i planes23 = _mm_packs_epi16(words(2), words(3));
    const __m128i planes[kGroup] = {planes01, _mm_srli_si128(planes01, 8), planes23,
                                    _mm_srli_si128(planes23, 8)};
    const size_t pitch = p.planePitch;
    const auto store = [](int8_t* to, __m128i bytes) {
        Vectors == 2 ? Store8(to, bytes) : Store4(to, bytes);
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

class Scheme {
  public:
    // The last tile ends with the last pixel of the product, so that it may start within the one
    // before it and write its first results once more. Up to 4 pixels left over are the rest: a
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
        const size_t toBoundary =
            (kVectorBytes - reinterpret_cast<uintptr_t>(p.scratch) % kVectorBytes) % kVectorBytes;
        const size_t skip = tileBytes_ + toBoundary <= p.scratchBytes ? toBoundary : 0;
        packed_ = p.scratch + skip;
        const size_t room = Least(p.scratchBytes - skip, kSlabBytes);
        mostTiles_ = tileBytes_ == 0 || room < tileBytes_ ? 1 : room / tileBytes_;
    }

    // Whether there are steps, pixels and scratch for a tile.
    bool Fits() const {
        return tileBytes_ > 0 && tileBytes_ <= kMaxSteps * kStepBytes && p_.pixels >= kTilePixels &&
               tileBytes_ <= p_.scratchBytes;
    }

    void FindRanges() {
        for (size_t k = 0; k < tileBytes_ / kStepBytes * kStepRows; ++k) {
            const Range range = k < p_.inner ? RangeOf(p_.rows + k * p_.rowPitch) : Range{};
            ranges_.depth[k / kStepRows][k % kStepRows] = static_cast<uint8_t>(-range.lowest);
            ranges_.width[k / kStepRows][k % kStepRows] = static_cast<uint8_t>(range.width());
        }
    }

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
        for (size_t i = 0; i < slab.tiles; ++i, to += tileBytes_) {
            PackTile<2>(p_, TileAt(slab, i), ranges_, to);
        }
        if (slab.hasRest) {
            PackTile<1>(p_, p_.pixels - kNarrowPixels, ranges_, to);
        }
    }

    void MakeReady(const ChannelGroup& group) { LoadGroup(p_, group, ranges_, ready_); }

    void MultiplyTiles(const ChannelGroup& group, const Slab& slab) const {
        const int8_t* values = packed_;
        for (size_t i = 0; i < slab.tiles; ++i, values += tileBytes_) {
            Tile<2>(p_, group, ready_, values, Outputs(group) + TileAt(slab, i));
        }
    }

    void MultiplyRest(const ChannelGroup& group, const Slab& slab) const {
        if (slab.hasRest) {
            Tile<1>(p_, group, ready_, packed_ + slab.tiles * tileBytes_,
                    Outputs(group) + p_.pixels - kNarrowPixels);
        }
    }

  private:
    Range RangeOf(const int8_t* row) const {
        if (p_.pixels < 16) {
            return kAnyValue;
        }
        return orvo::RangeOf<ByteVectors>(row, p_.pixels);
    }

    size_t TileAt(const Slab& slab, size_t i) const {
        return Least(slab.firstPixel + i * kTilePixels, p_.pixels - kTilePixels);
    }

    int8_t* Outputs(const ChannelGroup& group) const {
        return p_.dst + group.first * p_.planePitch;
    }

    const MatrixProduct& p_;
    const size_t tileBytes_;
    size_t mostTiles_;
    int8_t* packed_;
    RowRanges ranges_;
    GroupWeights ready_;
};

} // namespace

void sse41::Multiply(const MatrixProduct& p) {
    Scheme scheme(p);
    if (!scheme.Fits()) {
        return plain::Multiply(p);
    }
    scheme.FindRanges();
    MultiplyBySlabs(p, scheme);
}

int32_t sse41::Dot(const int8_t* a, const int8_t* b, size_t count) {
    __m128i sum = _mm_setzero_si128();
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        sum = _mm_add_epi32(
            sum, _mm_madd_epi16(_mm_cvtepi8_epi16(Load8(a + i)), _mm_cvtepi8_epi16(Load8(b + i))));
    }
    sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0x4E));
    sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0xB1));
    const uint32_t rest = static_cast<uint32_t>(plain::Dot(a + i, b + i, count - i));
    return static_cast<int32_t>(static_cast<uint32_t>(_mm_cvtsi128_si32(sum)) + rest);
}

} // namespace orvo
