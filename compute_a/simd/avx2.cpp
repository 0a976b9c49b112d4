// SPDX-License-Identifier: MIT
//
// x86-64 with AVX2.
//
// vpmaddwd multiplies pairs of 16-bit values and adds each pair into a 32-bit lane: exact for bytes
// widened to 16 bits, whatever they are, which the byte multiply of this instruction set (it
// saturates at 16 bits) is not.
#include <immintrin.h>

#include "compute_a/routines.h"
#include "compute_a/simd/plain.h"

namespace orvo {
namespace {

inline __m128i Load16(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}
inline void Store16(void* to, __m128i bytes) { _mm_storeu_si128(static_cast<__m128i*>(to), bytes); }
inline __m256i Load32(const void* from) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}
inline void Store32(void* to, __m256i bytes) {
    _mm256_storeu_si256(static_cast<__m256i*>(to), bytes);
}

template <typename Word>
inline Word LoadWord(const int8_t* from) {
    Word word;
    __builtin_memcpy(&word, from, sizeof word);
    return word;
}

// `count` bytes, 0 to 16, and zeros after them; nothing beyond them is read.
inline __m128i LoadFirst(const int8_t* from, size_t count) {
    if (count >= 16) {
        return Load16(from);
    }
    uint64_t low = 0;
    uint64_t high = 0;
    if (count >= 8) {
        low = LoadWord<uint64_t>(from);
        // The last eight bytes, less those that are in the first eight.
        high = count == 8 ? 0 : LoadWord<uint64_t>(from + count - 8) >> (8 * (16 - count));
    } else if (count >= 4) {
        low = LoadWord<uint32_t>(from);
        const uint64_t last = LoadWord<uint32_t>(from + count - 4);
        low |= last << (8 * (count - 4));
    } else {
        for (size_t i = 0; i < count; ++i) {
            low |= uint64_t{static_cast<uint8_t>(from[i])} << (8 * i);
        }
    }
    return _mm_set_epi64x(static_cast<int64_t>(high), static_cast<int64_t>(low));
}

// The first `count` bytes, 0 to 16, and nothing beyond them.
inline void StoreFirst(int8_t* to, __m128i bytes, size_t count) {
    if (count >= 16) {
        Store16(to, bytes);
        return;
    }
    alignas(16) int8_t all[16];
    Store16(all, bytes);
    if (count >= 8) {
        __builtin_memcpy(to, all, 8);
        __builtin_memcpy(to + count - 8, all + count - 8, 8);
    } else if (count >= 4) {
        __builtin_memcpy(to, all, 4);
        __builtin_memcpy(to + count - 4, all + count - 4, 4);
    } else {
        for (size_t i = 0; i < count; ++i) {
            to[i] = all[i];
        }
    }
}

// Sixteen sums to bytes: shifted, saturated.
inline __m128i Requantise16(__m256i low, __m256i high, __m128i shift) {
    const __m256i words =
        _mm256_packs_epi32(_mm256_sra_epi32(low, shift), _mm256_sra_epi32(high, shift));
    const __m256i ordered = _mm256_permute4x64_epi64(words, 0xD8);
    return _mm_packs_epi16(_mm256_castsi256_si128(ordered), _mm256_extracti128_si256(ordered, 1));
}

// ---- Matrix product ----------------------------------------------------------------------------

constexpr size_t kBlockPixels = 16;
constexpr size_t kGroup = 4;
constexpr size_t kChunkSteps = 128; // pairs of rows whose weights are widened at a time
constexpr size_t kStepBytes = 4 * kBlockPixels;

// Two rows of 16 pixels, widened: a 32-bit lane holds both values of one pixel.
inline void PackStep(__m128i row0, __m128i row1, int8_t* to) {
    Store32(to, _mm256_cvtepi8_epi16(_mm_unpacklo_epi8(row0, row1)));
    Store32(to + 32, _mm256_cvtepi8_epi16(_mm_unpackhi_epi8(row0, row1)));
}

void PackBlock(const MatrixProduct& p, size_t pixel, int8_t* block) {
    const int8_t* at = p.rows + pixel;
    size_t k = 0;
    for (; k + 2 <= p.inner; k += 2, at += 2 * p.rowPitch, block += kStepBytes) {
        PackStep(Load16(at), Load16(at + p.rowPitch), block);
    }
    if (k < p.inner) {
        PackStep(Load16(at), _mm_setzero_si128(), block);
    }
}

// Some channels' weights for up to kChunkSteps pairs of rows, each pair widened into one word.
template <size_t Channels>
struct WeightChunk {
    alignas(32) int16_t pairs[kChunkSteps][Channels][2];
};

// `weightStep` bytes lie between a channel's weights of successive rows, `channelStep` between the
// channels' weights of one row.
template <size_t Channels>
void LoadChunk(const int8_t* weights, size_t weightStep, size_t channelStep, size_t inner,
               WeightChunk<Channels>& chunk) {
    for (size_t k = 0; k < inner; ++k) {
        for (size_t c = 0; c < Channels; ++c) {
            chunk.pairs[k / 2][c][k % 2] = weights[k * weightStep + c * channelStep];
        }
    }
    if (inner % 2 != 0) {
        for (size_t c = 0; c < Channels; ++c) {
            chunk.pairs[inner / 2][c][1] = 0;
        }
    }
}

template <size_t Channels>
struct ChannelGroup {
    const int8_t* weights;
    size_t first; // channel
    bool reload;  // there are more rows than a chunk holds
    WeightChunk<Channels> chunk;

    void Load(const MatrixProduct& p, size_t row) {
        const size_t left = p.inner - row;
        const size_t rows = left < 2 * kChunkSteps ? left : 2 * kChunkSteps;
        constexpr bool kInterleaved = Channels == kGroup;
        const size_t weightStep = kInterleaved ? kGroup : 1;
        LoadChunk(weights + row * weightStep, weightStep, kInterleaved ? 1 : p.groupBytes, rows,
                  chunk);
    }
};

// `Channels` planes of one block. Register plan for 4 channels: 8 sums, 2 vectors of values, 1 pair
// of weights broadcast from memory, 1 product.
template <size_t Channels>
void Tile(const MatrixProduct& p, ChannelGroup<Channels>& group, const int8_t* values,
          int8_t* dst) {
    __m256i sums[Channels][2];
#pragma GCC unroll 4
    for (size_t c = 0; c < Channels; ++c) {
        sums[c][0] = sums[c][1] = _mm256_set1_epi32(p.bias[group.first + c]);
    }
    for (size_t k = 0; k < p.inner; k += 2 * kChunkSteps) {
        if (group.reload) {
            group.Load(p, k);
        }
        const size_t left = (p.inner - k + 1) / 2;
        const size_t steps = left < kChunkSteps ? left : kChunkSteps;
        for (size_t step = 0; step < steps; ++step, values += kStepBytes) {
            const __m256i low = Load32(values);
            const __m256i high = Load32(values + 32);
#pragma GCC unroll 4
            for (size_t c = 0; c < Channels; ++c) {
                const __m256i pair = _mm256_set1_epi32(
                    LoadWord<int32_t>(reinterpret_cast<const int8_t*>(group.chunk.pairs[step][c])));
                sums[c][0] = _mm256_add_epi32(sums[c][0], _mm256_madd_epi16(low, pair));
                sums[c][1] = _mm256_add_epi32(sums[c][1], _mm256_madd_epi16(high, pair));
            }
        }
    }
    const __m128i shift = _mm_cvtsi32_si128(static_cast<int>(p.shift));
#pragma GCC unroll 4
    for (size_t c = 0; c < Channels; ++c) {
        Store16(dst + c * p.planePitch, Requantise16(sums[c][0], sums[c][1], shift));
    }
}

// Blocks whose packed values lie one after the other. The last may start before the end of the one
// before it, so that it ends with the last pixel; its first results are then written twice.
struct Blocks {
    const int8_t* values;
    size_t firstPixel;
    size_t count;
    size_t lastPixel; // of the last block, its first pixel
    size_t blockBytes;
};

template <size_t Channels>
void MultiplyGroup(const MatrixProduct& p, const Blocks& blocks, const int8_t* weights,
                   size_t channel) {
    ChannelGroup<Channels> group;
    group.weights = weights;
    group.first = channel;
    group.reload = p.inner > 2 * kChunkSteps;
    if (!group.reload) {
        group.Load(p, 0);
    }
    int8_t* dst = p.dst + channel * p.planePitch;
    for (size_t i = 0; i < blocks.count; ++i) {
        const size_t pixel =
            i + 1 < blocks.count ? blocks.firstPixel + i * kBlockPixels : blocks.lastPixel;
        Tile<Channels>(p, group, blocks.values + i * blocks.blockBytes, dst + pixel);
    }
}

void MultiplyBlocks(const MatrixProduct& p, const Blocks& blocks) {
    const int8_t* weights = p.weights;
    size_t channel = 0;
    for (; channel + kGroup <= p.channels; channel += kGroup, weights += p.groupBytes) {
        MultiplyGroup<kGroup>(p, blocks, weights, channel);
    }
    for (; channel < p.channels; ++channel, weights += p.groupBytes) {
        MultiplyGroup<1>(p, blocks, weights, channel);
    }
}

constexpr size_t kPackedBytes = 16 * 1024; // of packed values at a time, to stay in the first cache

void Multiply(const MatrixProduct& p) {
    const size_t blockBytes = kStepBytes * ((p.inner + 1) / 2);
    if (p.pixels < kBlockPixels || blockBytes > p.scratchBytes) {
        plain::Multiply(p); // there is no room for a block, or not enough for it to do
        return;
    }
    const size_t room = p.scratchBytes < kPackedBytes ? p.scratchBytes : kPackedBytes;
    const size_t most = blockBytes == 0 || room < blockBytes ? 1 : room / blockBytes;
    const size_t lastStart = p.pixels - kBlockPixels;
    for (size_t pixel = 0; pixel < p.pixels;) {
        Blocks blocks{p.scratch, pixel, 0, 0, blockBytes};
        for (; blocks.count < most && pixel < p.pixels; ++blocks.count, pixel += kBlockPixels) {
            blocks.lastPixel = pixel < lastStart ? pixel : lastStart;
            PackBlock(p, blocks.lastPixel, p.scratch + blocks.count * blockBytes);
        }
        MultiplyBlocks(p, blocks);
    }
}

// ---- Depthwise ---------------------------------------------------------------------------------
//
// Two rows, widened and interleaved, hold pairs of values of one column in 32-bit lanes. The four
// rows that two output rows need are two such pairs, and each pair gives both output rows two or
// one of their three taps of a column. The neighbouring columns are the same pairs, read one lane
// further on.

constexpr size_t kStripOutputs = 64;

// The pairs of two rows, from the column before the strip's first output to the one after its last.
// The columns after the first come in whole vectors of 16, and 16 zeros follow them.
constexpr size_t kPairColumns = 1 + (kStripOutputs + 1 + 15) / 16 * 16 + 16;
struct PairRow {
    alignas(32) int32_t columns[kPairColumns];
};

struct DepthwiseFilter {
    // By filter column, for the upper and the lower output row: weights of the upper pair of rows
    // (rows 0 and 1 of the four) and of the lower pair (rows 2 and 3).
    __m256i upperFirst[3], upperSecond[3], lowerFirst[3], lowerSecond[3];
    __m256i bias;
    __m128i shift, lowest;
};

inline __m256i WeightPair(int first, int second) {
    return _mm256_set1_epi32(static_cast<int>(static_cast<uint32_t>(first & 0xFFFF) |
                                              static_cast<uint32_t>(second) << 16));
}

DepthwiseFilter LoadFilter(const int8_t* w, int32_t bias, const DepthwisePlanes& p) {
    DepthwiseFilter filter;
    for (size_t kx = 0; kx < 3; ++kx) {
        filter.upperFirst[kx] = WeightPair(w[kx], w[3 + kx]);
        filter.upperSecond[kx] = WeightPair(w[6 + kx], 0);
        filter.lowerFirst[kx] = WeightPair(0, w[kx]);
        filter.lowerSecond[kx] = WeightPair(w[3 + kx], w[6 + kx]);
    }
    filter.bias = _mm256_set1_epi32(bias);
    filter.shift = _mm_cvtsi32_si128(static_cast<int>(p.shift));
    filter.lowest = _mm_set1_epi8(p.lowest);
    return filter;
}

// Columns of a plane: from the first output's to the one after the last output, as far as there are
// any.
struct Strip {
    const int8_t* plane;
    size_t width, height;
    size_t first, outputs;

    // The row, or zeros outside the plane, `count` values from `column`.
    __m128i Values(size_t y, size_t column, size_t count) const {
        return y < height ? LoadFirst(plane + y * width + column, count) : _mm_setzero_si128();
    }

    void LoadPairs(size_t y, PairRow& pairs) const {
        const size_t end = first + outputs + 1 < width ? first + outputs + 1 : width;
        pairs.columns[0] = 0;
        if (first > 0) {
            const auto value = [&](size_t row) {
                return row < height ? plane[row * width + first - 1] : int8_t{0};
            };
            pairs.columns[0] = static_cast<int32_t>(
                static_cast<uint32_t>(value(y) & 0xFFFF) |
                static_cast<uint32_t>(static_cast<int32_t>(value(y + 1))) << 16);
        }
        int32_t* to = pairs.columns + 1;
        for (size_t column = first; column < end; column += 16, to += 16) {
            const size_t left = end - column;
            const __m128i a = Values(y, column, left);
            const __m128i b = Values(y + 1, column, left);
            Store32(to, _mm256_cvtepi8_epi16(_mm_unpacklo_epi8(a, b)));
            Store32(to + 8, _mm256_cvtepi8_epi16(_mm_unpackhi_epi8(a, b)));
        }
        Store32(to, _mm256_setzero_si256()); // what a vector of outputs may reach beyond the end
        Store32(to + 8, _mm256_setzero_si256());
    }
};

struct RowSums {
    __m256i upper, lower;
};

inline RowSums Convolve8(const int32_t* first, const int32_t* second, const DepthwiseFilter& f) {
    RowSums sums{f.bias, f.bias};
#pragma GCC unroll 3
    for (size_t kx = 0; kx < 3; ++kx) {
        const __m256i a = Load32(first + kx);
        const __m256i b = Load32(second + kx);
        const auto taps = [&](const __m256i& wa, const __m256i& wb) {
            return _mm256_add_epi32(_mm256_madd_epi16(a, wa), _mm256_madd_epi16(b, wb));
        };
        sums.upper = _mm256_add_epi32(sums.upper, taps(f.upperFirst[kx], f.upperSecond[kx]));
        sums.lower = _mm256_add_epi32(sums.lower, taps(f.lowerFirst[kx], f.lowerSecond[kx]));
    }
    return sums;
}

void DepthwiseStrip(const Strip& strip, const DepthwiseFilter& f, int8_t* dst) {
    PairRow rows[2];
    PairRow* first = &rows[0];
    PairRow* second = &rows[1];
    strip.LoadPairs(static_cast<size_t>(0) - 1, *first); // row -1 wraps to a huge one, outside
    for (size_t y = 0; y < strip.height; y += 2) {
        strip.LoadPairs(y + 1, *second);
        int8_t* to = dst + y * strip.width;
        for (size_t x = 0; x < strip.outputs; x += 16) {
            const RowSums low = Convolve8(first->columns + x, second->columns + x, f);
            const RowSums high = Convolve8(first->columns + x + 8, second->columns + x + 8, f);
            const size_t count = strip.outputs - x;
            StoreFirst(to + x, _mm_max_epi8(Requantise16(low.upper, high.upper, f.shift), f.lowest),
                       count);
            if (y + 1 < strip.height) {
                StoreFirst(to + strip.width + x,
                           _mm_max_epi8(Requantise16(low.lower, high.lower, f.shift), f.lowest),
                           count);
            }
        }
        PairRow* const used = first;
        first = second;
        second = used;
    }
}

void Depthwise(const DepthwisePlanes& p) {
    const size_t plane = p.width * p.height;
    for (size_t c = 0; c < p.channels; ++c) {
        const DepthwiseFilter filter = LoadFilter(p.weights + 9 * c, p.bias[c], p);
        for (size_t x = 0; x < p.width; x += kStripOutputs) {
            const size_t left = p.width - x;
            const Strip strip{p.src + c * plane, p.width, p.height, x,
                              left < kStripOutputs ? left : kStripOutputs};
            DepthwiseStrip(strip, filter, p.dst + c * plane + x);
        }
    }
}

// ---- Dot product, pooling, sampling, element-wise ----------------------------------------------
//
// Ends of fewer than 16 or 32 values are left to the plain routines.

int32_t Dot(const int8_t* a, const int8_t* b, size_t count) {
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

// dst[i] = max(a[i], b[i]) in ascending order; dst may be a, with b one further on.
inline void MaxRow(const int8_t* a, const int8_t* b, size_t count, int8_t* dst) {
    size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        Store32(dst + i, _mm256_max_epi8(Load32(a + i), Load32(b + i)));
    }
    for (; i < count; i += 16) {
        const size_t left = count - i;
        StoreFirst(dst + i, _mm_max_epi8(LoadFirst(a + i, left), LoadFirst(b + i, left)), left);
    }
}

void MaxPoolStride1(int8_t* src, size_t width, size_t height, int8_t* dst) {
    const size_t columns = width - 1;
    for (size_t y = 0; y < height; ++y) {
        int8_t* row = src + y * width;
        MaxRow(row, row + 1, columns, row);
        if (y > 0) {
            MaxRow(row - width, row, columns, dst + (y - 1) * columns);
        }
    }
}

// The low bytes of sixteen words.
inline __m128i LowBytes(__m256i words) {
    const __m256i bytes = _mm256_packus_epi16(_mm256_and_si256(words, _mm256_set1_epi16(0xFF)),
                                              _mm256_setzero_si256());
    return _mm256_castsi256_si128(_mm256_permute4x64_epi64(bytes, 0xD8));
}

void MaxPoolRows(const int8_t* upper, const int8_t* lower, size_t dstWidth, int8_t* dst) {
    size_t x = 0;
    for (; x + 16 <= dstWidth; x += 16) {
        const __m256i rows = _mm256_max_epi8(Load32(upper + 2 * x), Load32(lower + 2 * x));
        Store16(dst + x, LowBytes(_mm256_max_epi8(rows, _mm256_srli_epi16(rows, 8))));
    }
    plain::MaxPoolRows(upper + 2 * x, lower + 2 * x, dstWidth - x, dst + x);
}

void SampleRow(const int8_t* src, size_t dstWidth, int8_t* dst) {
    size_t x = 0;
    // A row has an odd length where the last value is sampled: 31 values may be all there are.
    for (; x + 17 <= dstWidth; x += 16) {
        Store16(dst + x, LowBytes(Load32(src + 2 * x)));
    }
    plain::SampleRow(src + 2 * x, dstWidth - x, dst + x);
}

void Rectify(const int8_t* src, int8_t* dst, size_t count) {
    size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        Store32(dst + i, _mm256_max_epi8(Load32(src + i), _mm256_setzero_si256()));
    }
    plain::Rectify(src + i, dst + i, count - i);
}

void FlipSign(uint8_t* data, size_t count) {
    size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        Store32(data + i, _mm256_xor_si256(Load32(data + i), _mm256_set1_epi8(-128)));
    }
    plain::FlipSign(data + i, count - i);
}

void Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count, const AddShifts& s) {
    const __m128i shift1 = _mm_cvtsi32_si128(static_cast<int>(s.in1));
    const __m128i shift2 = _mm_cvtsi32_si128(static_cast<int>(s.in2));
    const __m128i shiftOut = _mm_cvtsi32_si128(static_cast<int>(s.out));
    const __m256i half = _mm256_set1_epi16(static_cast<int16_t>(s.out == 0 ? 0 : 1 << (s.out - 1)));
    const auto widen = [](const int8_t* values, __m128i shift) {
        return _mm256_sll_epi16(_mm256_cvtepi8_epi16(Load16(values)), shift);
    };
    size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        __m256i sum = _mm256_add_epi16(widen(in1 + i, shift1), half);
        if (in2 != nullptr) {
            sum = _mm256_add_epi16(sum, widen(in2 + i, shift2));
        }
        const __m256i shifted = _mm256_sra_epi16(sum, shiftOut);
        Store16(dst + i, _mm_packs_epi16(_mm256_castsi256_si128(shifted),
                                         _mm256_extracti128_si256(shifted, 1)));
    }
    plain::Add(in1 + i, in2 == nullptr ? nullptr : in2 + i, dst + i, count - i, s);
}

} // namespace

const Routines kAvx2Routines{"avx2",      Multiply,  Depthwise, Dot,      MaxPoolStride1,
                             MaxPoolRows, SampleRow, Rectify,   FlipSign, Add};

} // namespace orvo
