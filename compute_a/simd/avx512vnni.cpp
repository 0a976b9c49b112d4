// SPDX-License-Identifier: MIT
//
// x86-64 with AVX-512 (F, BW, DQ, VL, VBMI) and VNNI.
//
// vpdpbusd multiplies four unsigned by four signed bytes into a 32-bit lane, wrapping. Activations
// are signed, so their sign bit is flipped (which adds 128 to each) and 128 times the sum of the
// weights is taken off the bias: exact, since everything wraps at 32 bits.
#include <immintrin.h>

#include "compute_a/routines.h"
#include "compute_a/simd/plain.h"

namespace orvo {
namespace {

// sum += four products a lane. GCC 12 copies and spills the accumulators of a tile around the
// intrinsic, which costs more than half of the tile's speed; the instruction itself does not.
inline __attribute__((always_inline)) void DotAccumulate(__m512i& sum, __m512i values,
                                                         __m512i weights) {
    __asm__("vpdpbusd %2, %1, %0" : "+v"(sum) : "v"(values), "v"(weights));
}

inline __mmask64 FirstBytes(size_t count) {
    return count >= 64 ? ~__mmask64{0} : (__mmask64{1} << count) - 1;
}
inline __mmask16 FirstBytes16(size_t count) {
    return static_cast<__mmask16>(count >= 16 ? 0xFFFFu : (1u << count) - 1);
}

// The sums of the four 128-bit parts, lane by lane, wrapping.
inline __m128i AddParts(__m512i lanes) {
    const __m256i halves =
        _mm256_add_epi32(_mm512_castsi512_si256(lanes), _mm512_extracti64x4_epi64(lanes, 1));
    return _mm_add_epi32(_mm256_castsi256_si128(halves), _mm256_extracti128_si256(halves, 1));
}

inline __m512i FlipSign(__m512i bytes) { return _mm512_xor_si512(bytes, _mm512_set1_epi8(-128)); }

// Bytes by vectors of 16, 32 and 64, with masks.
struct Bytes16 {
    using Vector = __m128i;
    static constexpr size_t kSize = 16;
    static Vector Load(__mmask64 inside, const int8_t* from) {
        return _mm_maskz_loadu_epi8(static_cast<__mmask16>(inside), from);
    }
    static void Store(__mmask64 inside, Vector bytes, int8_t* to) {
        _mm_mask_storeu_epi8(to, static_cast<__mmask16>(inside), bytes);
    }
    static Vector Max(Vector a, Vector b) { return _mm_max_epi8(a, b); }
};
struct Bytes32 {
    using Vector = __m256i;
    static constexpr size_t kSize = 32;
    static Vector Load(__mmask64 inside, const int8_t* from) {
        return _mm256_maskz_loadu_epi8(static_cast<__mmask32>(inside), from);
    }
    static void Store(__mmask64 inside, Vector bytes, int8_t* to) {
        _mm256_mask_storeu_epi8(to, static_cast<__mmask32>(inside), bytes);
    }
    static Vector Max(Vector a, Vector b) { return _mm256_max_epi8(a, b); }
};
struct Bytes64 {
    using Vector = __m512i;
    static constexpr size_t kSize = 64;
    static Vector Load(__mmask64 inside, const int8_t* from) {
        return _mm512_maskz_loadu_epi8(inside, from);
    }
    static void Store(__mmask64 inside, Vector bytes, int8_t* to) {
        _mm512_mask_storeu_epi8(to, inside, bytes);
    }
    static Vector Max(Vector a, Vector b) { return _mm512_max_epi8(a, b); }
};

// ---- Matrix product ----------------------------------------------------------------------------

constexpr size_t kBlockPixels = 64; // pixels whose values are packed and then met by every channel
constexpr size_t kGroup = 4;
constexpr size_t kChunkSteps = 64; // steps of four rows whose weights are transposed at a time

// Four rows of 64 pixels become four vectors whose 32-bit lanes hold the four values of one pixel.
// The pixels come in the order that unpacking leaves them, 4 of each 16; packing the sums undoes
// it.
inline void PackStep64(const __m512i row[4], uint8_t* to) {
    const __m512i lo01 = _mm512_unpacklo_epi8(row[0], row[1]);
    const __m512i hi01 = _mm512_unpackhi_epi8(row[0], row[1]);
    const __m512i lo23 = _mm512_unpacklo_epi8(row[2], row[3]);
    const __m512i hi23 = _mm512_unpackhi_epi8(row[2], row[3]);
    _mm512_storeu_si512(to, FlipSign(_mm512_unpacklo_epi16(lo01, lo23)));
    _mm512_storeu_si512(to + 64, FlipSign(_mm512_unpackhi_epi16(lo01, lo23)));
    _mm512_storeu_si512(to + 128, FlipSign(_mm512_unpacklo_epi16(hi01, hi23)));
    _mm512_storeu_si512(to + 192, FlipSign(_mm512_unpackhi_epi16(hi01, hi23)));
}

void PackBlock64(const MatrixProduct& p, size_t pixel, uint8_t* block) {
    const __m512i zero = _mm512_setzero_si512();
    for (size_t k = 0; k < p.inner; k += 4, block += 4 * kBlockPixels) {
        const int8_t* at = p.rows + k * p.rowPitch + pixel;
        __m512i row[4];
        for (size_t i = 0; i < 4; ++i) {
            row[i] = k + i < p.inner ? _mm512_loadu_si512(at + i * p.rowPitch) : zero;
        }
        PackStep64(row, block);
    }
}

// Up to 16 pixels of four rows, in pixel order.
inline __m512i PackStep16(const __m128i row[4]) {
    const __m128i lo01 = _mm_unpacklo_epi8(row[0], row[1]);
    const __m128i hi01 = _mm_unpackhi_epi8(row[0], row[1]);
    const __m128i lo23 = _mm_unpacklo_epi8(row[2], row[3]);
    const __m128i hi23 = _mm_unpackhi_epi8(row[2], row[3]);
    __m512i packed = _mm512_castsi128_si512(_mm_unpacklo_epi16(lo01, lo23));
    packed = _mm512_inserti32x4(packed, _mm_unpackhi_epi16(lo01, lo23), 1);
    packed = _mm512_inserti32x4(packed, _mm_unpacklo_epi16(hi01, hi23), 2);
    packed = _mm512_inserti32x4(packed, _mm_unpackhi_epi16(hi01, hi23), 3);
    return FlipSign(packed);
}

// The last pixels, fewer than 64, in pixel order and without gaps: 4 bytes a pixel and step.
void PackBlockTail(const MatrixProduct& p, size_t pixel, size_t count, uint8_t* block) {
    for (size_t k = 0; k < p.inner; k += 4) {
        const int8_t* at = p.rows + k * p.rowPitch + pixel;
        for (size_t done = 0; done < count; done += 16) {
            const __mmask16 inside = FirstBytes16(count - done);
            __m128i row[4];
            for (size_t i = 0; i < 4; ++i) {
                row[i] = k + i < p.inner ? _mm_maskz_loadu_epi8(inside, at + i * p.rowPitch + done)
                                         : _mm_setzero_si128();
            }
            _mm512_mask_storeu_epi32(block + 4 * done, inside, PackStep16(row));
        }
        block += 4 * count;
    }
}

// Some channels' weights for up to kChunkSteps steps, one 32-bit word a step and channel, and what
// the flipped signs of the activations take off the sums.
template <size_t Channels>
struct WeightChunk {
    alignas(64) int32_t words[kChunkSteps][Channels];
    int32_t correction[Channels];
};

// 16 bytes hold four rows of four channels; transposed they are four words, one a channel.
void LoadChunk(const int8_t* weights, size_t /*channelBytes*/, size_t inner,
               WeightChunk<4>& chunk) {
    const __m512i transpose =
        _mm512_broadcast_i32x4(_mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15));
    const __m512i ones = _mm512_set1_epi8(1);
    __m512i sums = _mm512_setzero_si512();
    for (size_t k = 0; k < inner; k += 16) {
        const __m512i loaded =
            _mm512_maskz_loadu_epi8(FirstBytes(4 * (inner - k)), weights + 4 * k);
        const __m512i words = _mm512_shuffle_epi8(loaded, transpose);
        _mm512_store_si512(chunk.words[k / 4], words);
        DotAccumulate(sums, ones, words);
    }
    const __m128i sum = AddParts(sums);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(chunk.correction),
                     _mm_sub_epi32(_mm_setzero_si128(), _mm_slli_epi32(sum, 7)));
}

// A leftover channel's weights stand in row order already.
template <size_t Channels>
void LoadChunk(const int8_t* weights, size_t channelBytes, size_t inner,
               WeightChunk<Channels>& chunk) {
    for (size_t c = 0; c < Channels; ++c, weights += channelBytes) {
        int32_t sum = 0;
        for (size_t k = 0; k < inner; k += 4) {
            int8_t word[4] = {};
            for (size_t i = 0; i < 4 && k + i < inner; ++i) {
                word[i] = weights[k + i];
                sum += word[i];
            }
            __builtin_memcpy(&chunk.words[k / 4][c], word, 4);
        }
        chunk.correction[c] = -128 * sum;
    }
}

// One packed block of pixels.
struct Block {
    const uint8_t* values;
    size_t stepBytes;
    __mmask16 last; // pixels in the last vector
};

template <size_t Vectors>
inline void StoreBlock64(const __m512i sums[Vectors], int8_t* dst) {
    static_assert(Vectors == 4);
    const __m512i low = _mm512_packs_epi32(sums[0], sums[1]);
    const __m512i high = _mm512_packs_epi32(sums[2], sums[3]);
    _mm512_storeu_si512(dst, _mm512_packs_epi16(low, high));
}

template <size_t Vectors>
inline void StoreTail(const __m512i sums[Vectors], __mmask16 last, int8_t* dst) {
#pragma GCC unroll 4
    for (size_t v = 0; v < Vectors; ++v) {
        const __mmask16 mask = v + 1 < Vectors ? __mmask16{0xFFFF} : last;
        _mm_mask_storeu_epi8(dst + 16 * v, mask, _mm512_cvtsepi32_epi8(sums[v]));
    }
}

// Some channels of a product: where their weights stand, and the weights themselves as the tiles
// read them. They are loaded once for all the blocks at hand, unless there are more rows than a
// chunk holds.
template <size_t Channels>
struct ChannelGroup {
    const int8_t* weights;
    size_t first; // channel
    bool reload;
    WeightChunk<Channels> chunk;
    int32_t
        start[Channels]; // what the sums start from: the bias, and the correction if loaded once

    void Load(const MatrixProduct& p, size_t row) {
        const size_t left = p.inner - row;
        const size_t rows = left < 4 * kChunkSteps ? left : 4 * kChunkSteps;
        LoadChunk(weights + (Channels == kGroup ? kGroup * row : row), p.groupBytes, rows, chunk);
    }
};

// `Channels` planes of one block. Register plan for 4 channels and 4 vectors: 16 sums, 4 vectors of
// values, 1 word of weights broadcast from memory for four products at a time.
template <size_t Channels, size_t Vectors, bool Full>
void Tile(const MatrixProduct& p, ChannelGroup<Channels>& group, const Block& block, int8_t* dst) {
    __m512i sums[Channels][Vectors];
    const auto addToAll = [&](const int32_t values[Channels], bool start) {
#pragma GCC unroll 4
        for (size_t c = 0; c < Channels; ++c) {
            const __m512i value = _mm512_set1_epi32(values[c]);
#pragma GCC unroll 4
            for (size_t v = 0; v < Vectors; ++v) {
                sums[c][v] = start ? value : _mm512_add_epi32(sums[c][v], value);
            }
        }
    };
    addToAll(group.start, true);
    const uint8_t* values = block.values;
    for (size_t k = 0; k < p.inner; k += 4 * kChunkSteps) {
        if (group.reload) {
            group.Load(p, k);
            addToAll(group.chunk.correction, false);
        }
        const size_t left = (p.inner - k + 3) / 4;
        const size_t steps = left < kChunkSteps ? left : kChunkSteps;
        for (size_t step = 0; step < steps; ++step, values += block.stepBytes) {
            __m512i value[Vectors];
#pragma GCC unroll 4
            for (size_t v = 0; v < Vectors; ++v) {
                value[v] = Full || v + 1 < Vectors
                               ? _mm512_loadu_si512(values + 64 * v)
                               : _mm512_maskz_loadu_epi32(block.last, values + 64 * v);
            }
#pragma GCC unroll 4
            for (size_t c = 0; c < Channels; ++c) {
                const __m512i word = _mm512_set1_epi32(group.chunk.words[step][c]);
#pragma GCC unroll 4
                for (size_t v = 0; v < Vectors; ++v) {
                    DotAccumulate(sums[c][v], value[v], word);
                }
            }
        }
    }
    const __m512i shift = _mm512_set1_epi32(static_cast<int>(p.shift));
#pragma GCC unroll 4
    for (size_t c = 0; c < Channels; ++c) {
#pragma GCC unroll 4
        for (size_t v = 0; v < Vectors; ++v) {
            // A count of 32 and more leaves the sign.
            sums[c][v] = _mm512_srav_epi32(sums[c][v], shift);
        }
        int8_t* plane = dst + c * p.planePitch;
        if constexpr (Full) {
            StoreBlock64<Vectors>(sums[c], plane);
        } else {
            StoreTail<Vectors>(sums[c], block.last, plane);
        }
    }
}

// Blocks whose packed values lie one after the other: full ones, then perhaps a shorter one.
struct Blocks {
    const uint8_t* values;
    size_t firstPixel;
    size_t fullCount;
    size_t tailPixels; // 0 to 63
    size_t steps;
};

template <size_t Channels>
void TailTile(const MatrixProduct& p, ChannelGroup<Channels>& group, const Block& block,
              size_t vectors, int8_t* dst) {
    switch (vectors) {
        case 1:
            return Tile<Channels, 1, false>(p, group, block, dst);
        case 2:
            return Tile<Channels, 2, false>(p, group, block, dst);
        case 3:
            return Tile<Channels, 3, false>(p, group, block, dst);
        default:
            return Tile<Channels, 4, false>(p, group, block, dst);
    }
}

template <size_t Channels>
void MultiplyGroup(const MatrixProduct& p, const Blocks& blocks, const int8_t* weights,
                   size_t channel) {
    ChannelGroup<Channels> group;
    group.weights = weights;
    group.first = channel;
    group.reload = p.inner > 4 * kChunkSteps;
    if (!group.reload) {
        group.Load(p, 0);
    }
    for (size_t c = 0; c < Channels; ++c) {
        const int32_t correction = group.reload ? 0 : group.chunk.correction[c];
        group.start[c] = static_cast<int32_t>(static_cast<uint32_t>(p.bias[channel + c]) +
                                              static_cast<uint32_t>(correction));
    }
    const uint8_t* values = blocks.values;
    int8_t* dst = p.dst + channel * p.planePitch + blocks.firstPixel;
    for (size_t i = 0; i < blocks.fullCount; ++i, dst += kBlockPixels) {
        Tile<Channels, 4, true>(p, group, {values, 4 * kBlockPixels, 0xFFFF}, dst);
        values += 4 * kBlockPixels * blocks.steps;
    }
    if (blocks.tailPixels > 0) {
        const size_t pixels = blocks.tailPixels;
        const Block tail{values, 4 * pixels, FirstBytes16((pixels - 1) % 16 + 1)};
        TailTile<Channels>(p, group, tail, (pixels + 15) / 16, dst);
    }
}

void MultiplyBlocks(const MatrixProduct& p, const Blocks& blocks) {
    const int8_t* weights = p.weights;
    size_t channel = 0;
    for (; channel + kGroup <= p.channels; channel += kGroup, weights += p.groupBytes) {
        MultiplyGroup<kGroup>(p, blocks, weights, channel);
    }
    switch (p.channels - channel) {
        case 1:
            return MultiplyGroup<1>(p, blocks, weights, channel);
        case 2:
            return MultiplyGroup<2>(p, blocks, weights, channel);
        case 3:
            return MultiplyGroup<3>(p, blocks, weights, channel);
        default:
            return;
    }
}

// The scratch, from a cache line's start on where there is room for that: values that straddle two
// lines take twice as long to load.
uint8_t* AlignedScratch(const MatrixProduct& p, size_t needed) {
    const size_t skip = (64 - reinterpret_cast<uintptr_t>(p.scratch) % 64) % 64;
    return reinterpret_cast<uint8_t*>(p.scratch) + (needed + skip <= p.scratchBytes ? skip : 0);
}

constexpr size_t kPackedBytes = 24 * 1024; // of packed values at a time, to stay in the first cache

void Multiply(const MatrixProduct& p) {
    const size_t steps = (p.inner + 3) / 4;
    const size_t blockBytes = 4 * steps * kBlockPixels;
    // At least one block at a time, no more than fit the scratch.
    const size_t room = p.scratchBytes < kPackedBytes ? p.scratchBytes : kPackedBytes;
    const size_t most = blockBytes == 0 || room < blockBytes ? 1 : room / blockBytes;
    const size_t needed =
        4 * steps * (p.pixels < most * kBlockPixels ? p.pixels : most * kBlockPixels);
    if (needed > p.scratchBytes) {
        plain::Multiply(p); // the scratch of very small products has no room for whole steps
        return;
    }
    uint8_t* const packed = AlignedScratch(p, needed);
    for (size_t pixel = 0; pixel < p.pixels;) {
        const size_t left = p.pixels - pixel;
        Blocks blocks{packed, pixel, left / kBlockPixels, left % kBlockPixels, steps};
        if (blocks.fullCount >= most) {
            blocks.fullCount = most;
            blocks.tailPixels = 0;
        }
        for (size_t i = 0; i < blocks.fullCount; ++i, pixel += kBlockPixels) {
            PackBlock64(p, pixel, packed + i * blockBytes);
        }
        if (blocks.tailPixels > 0) {
            PackBlockTail(p, pixel, blocks.tailPixels, packed + blocks.fullCount * blockBytes);
            pixel += blocks.tailPixels;
        }
        MultiplyBlocks(p, blocks);
    }
}

// ---- Depthwise ---------------------------------------------------------------------------------
//
// The 32-bit lanes of a vector hold one column of four rows. One product then gives three taps of a
// filter column; three of them, over the column and its two right neighbours, give an output row,
// and the same vectors with the weights one row lower give the row below it. Two output rows are
// made at a time, and the lower two of the four rows are the upper two of the next pair.
//
// A vector of bytes holds 64 columns of one plane, 32 of two planes or 16 of four: a plane of 12 x
// 12 would leave most of it empty otherwise. Interleaving four rows within the 128-bit parts of a
// vector gives four vectors, of which the i-th holds columns 4i to 4i + 3 of each 16; packing their
// sums restores the order.
//
// Measured beside a version with cross-lane permutes and one plane a vector: 0.7 of its time on
// planes of 48, half on 24, a third on 12.

template <size_t Planes>
struct DepthwiseShape {
    static constexpr size_t kColumns = 64 / Planes;  // loaded, of each plane
    static constexpr size_t kOutputs = kColumns - 2; // the outer two are neighbours
};

// Puts the parts of several planes into one vector.
template <size_t Planes, typename LoadPart>
inline __m512i Gather(const LoadPart& part) {
    if constexpr (Planes == 1) {
        return part(0);
    } else if constexpr (Planes == 2) {
        return _mm512_inserti64x4(_mm512_castsi256_si512(part(0)), part(1), 1);
    } else {
        __m512i all = _mm512_castsi128_si512(part(0));
        all = _mm512_inserti32x4(all, part(1), 1);
        all = _mm512_inserti32x4(all, part(2), 2);
        return _mm512_inserti32x4(all, part(3), 3);
    }
}

// A 32-bit value for each plane, in all the lanes that belong to it.
template <size_t Planes>
inline __m512i SpreadWords(const uint32_t words[Planes]) {
    return Gather<Planes>([&](size_t i) {
        const int word = static_cast<int>(words[i]);
        if constexpr (Planes == 1) {
            return _mm512_set1_epi32(word);
        } else if constexpr (Planes == 2) {
            return _mm256_set1_epi32(word);
        } else {
            return _mm_set1_epi32(word);
        }
    });
}

struct DepthwiseFilter {
    __m512i upper[3]; // by filter column: the weights of rows 0, 1, 2 and a zero
    __m512i lower[3]; // a zero and the weights of rows 0, 1, 2
    __m512i start;    // bias, less what the flipped signs add
    __m512i shift;
    __m512i lowest;
};

// The filters of `count` channels, at most `Planes`; the rest are zero.
template <size_t Planes>
DepthwiseFilter LoadFilters(const DepthwisePlanes& p, size_t channel, size_t count) {
    uint32_t words[3][Planes] = {};
    uint32_t lowerWords[3][Planes] = {};
    uint32_t starts[Planes] = {};
    for (size_t i = 0; i < count; ++i) {
        const int8_t* w = p.weights + 9 * (channel + i);
        uint32_t sum = 0;
        for (size_t kx = 0; kx < 3; ++kx) {
            for (size_t ky = 0; ky < 3; ++ky) {
                words[kx][i] |= static_cast<uint32_t>(static_cast<uint8_t>(w[3 * ky + kx]))
                                << (8 * ky);
                sum += static_cast<uint32_t>(w[3 * ky + kx]);
            }
            lowerWords[kx][i] = words[kx][i] << 8;
        }
        starts[i] = static_cast<uint32_t>(p.bias[channel + i]) - 128u * sum;
    }
    DepthwiseFilter filter;
    for (size_t kx = 0; kx < 3; ++kx) {
        filter.upper[kx] = SpreadWords<Planes>(words[kx]);
        filter.lower[kx] = SpreadWords<Planes>(lowerWords[kx]);
    }
    filter.start = SpreadWords<Planes>(starts);
    filter.shift = _mm512_set1_epi32(static_cast<int>(p.shift));
    filter.lowest = _mm512_set1_epi8(p.lowest);
    return filter;
}

// The same columns of some planes.
template <size_t Planes>
struct Strip {
    const int8_t* columns; // of the first plane: the column before the first output, in row 0
    int8_t* dst;           // of the first plane: the first output in row 0
    size_t width, height, planeBytes;
    size_t count;      // planes there are
    __mmask64 inside;  // which of the loaded columns lie in a plane
    __mmask64 outputs; // which outputs there are

    __m512i Row(size_t y) const {
        if (y >= height) {
            return FlipSign(_mm512_setzero_si512());
        }
        return FlipSign(Gather<Planes>([&](size_t i) {
            const __mmask64 mask = i < count ? inside : 0;
            const int8_t* at = columns + y * width + i * planeBytes;
            if constexpr (Planes == 1) {
                return Bytes64::Load(mask, at);
            } else if constexpr (Planes == 2) {
                return Bytes32::Load(mask, at);
            } else {
                return Bytes16::Load(mask, at);
            }
        }));
    }

    void Store(size_t y, __m512i bytes) const {
        int8_t* to = dst + y * width;
        if constexpr (Planes == 1) {
            Bytes64::Store(outputs, bytes, to);
        } else if constexpr (Planes == 2) {
            Bytes32::Store(outputs, _mm512_castsi512_si256(bytes), to);
            Bytes32::Store(count > 1 ? outputs : 0, _mm512_extracti64x4_epi64(bytes, 1),
                           to + planeBytes);
        } else {
            Bytes16::Store(outputs, _mm512_castsi512_si128(bytes), to);
            Bytes16::Store(count > 1 ? outputs : 0, _mm512_extracti32x4_epi32(bytes, 1),
                           to + planeBytes);
            Bytes16::Store(count > 2 ? outputs : 0, _mm512_extracti32x4_epi32(bytes, 2),
                           to + 2 * planeBytes);
            Bytes16::Store(count > 3 ? outputs : 0, _mm512_extracti32x4_epi32(bytes, 3),
                           to + 3 * planeBytes);
        }
    }
};

// Two rows, interleaved within the 128-bit parts: columns 0 to 7 and 8 to 15 of each 16.
struct RowPair {
    __m512i low, high;
};

template <size_t Planes>
inline RowPair LoadPair(const Strip<Planes>& strip, size_t y) {
    const __m512i a = strip.Row(y);
    const __m512i b = strip.Row(y + 1);
    return {_mm512_unpacklo_epi8(a, b), _mm512_unpackhi_epi8(a, b)};
}

inline __m512i RequantiseRow(const __m512i sums[4], const DepthwiseFilter& f) {
    __m512i s[4];
#pragma GCC unroll 4
    for (size_t i = 0; i < 4; ++i) {
        s[i] = _mm512_srav_epi32(sums[i], f.shift);
    }
    const __m512i bytes =
        _mm512_packs_epi16(_mm512_packs_epi32(s[0], s[1]), _mm512_packs_epi32(s[2], s[3]));
    return _mm512_max_epi8(bytes, f.lowest);
}

template <size_t Planes>
void DepthwiseStrip(const Strip<Planes>& strip, const DepthwiseFilter& f) {
    // Row -1 is outside, and so is the huge value that it wraps to.
    RowPair above = LoadPair(strip, static_cast<size_t>(0) - 1);
    for (size_t y = 0; y < strip.height; y += 2) {
        const RowPair below = LoadPair(strip, y + 1);
        __m512i columns[5];
        columns[0] = _mm512_unpacklo_epi16(above.low, below.low);
        columns[1] = _mm512_unpackhi_epi16(above.low, below.low);
        columns[2] = _mm512_unpacklo_epi16(above.high, below.high);
        columns[3] = _mm512_unpackhi_epi16(above.high, below.high);
        // After a part's last columns come the first of the next part. The last part of a plane
        // gets another plane's, but no output reaches so far.
        columns[4] = _mm512_alignr_epi64(columns[0], columns[0], 2);
        above = below;
        __m512i upper[4];
        __m512i lower[4];
#pragma GCC unroll 4
        for (size_t i = 0; i < 4; ++i) {
            const __m512i next = _mm512_alignr_epi8(columns[i + 1], columns[i], 4);
            const __m512i second = _mm512_alignr_epi8(columns[i + 1], columns[i], 8);
            upper[i] = f.start;
            lower[i] = f.start;
            DotAccumulate(upper[i], columns[i], f.upper[0]);
            DotAccumulate(lower[i], columns[i], f.lower[0]);
            DotAccumulate(upper[i], next, f.upper[1]);
            DotAccumulate(lower[i], next, f.lower[1]);
            DotAccumulate(upper[i], second, f.upper[2]);
            DotAccumulate(lower[i], second, f.lower[2]);
        }
        strip.Store(y, RequantiseRow(upper, f));
        if (y + 1 < strip.height) {
            strip.Store(y + 1, RequantiseRow(lower, f));
        }
    }
}

template <size_t Planes>
void DepthwiseBy(const DepthwisePlanes& p) {
    constexpr size_t kOutputs = DepthwiseShape<Planes>::kOutputs;
    const size_t plane = p.width * p.height;
    for (size_t channel = 0; channel < p.channels; channel += Planes) {
        const size_t left = p.channels - channel;
        const size_t count = left < Planes ? left : Planes;
        const DepthwiseFilter filter = LoadFilters<Planes>(p, channel, count);
        for (size_t x = 0; x < p.width; x += kOutputs) {
            const size_t columns = p.width - x;
            // The first loaded column is the one before x, which lies outside at the left edge;
            // there are columns + 1 from it to the right edge.
            const __mmask64 fromLeft = x == 0 ? ~__mmask64{1} : ~__mmask64{0};
            const Strip<Planes> strip{p.src + channel * plane + x - 1,
                                      p.dst + channel * plane + x,
                                      p.width,
                                      p.height,
                                      plane,
                                      count,
                                      FirstBytes(columns + 1) & fromLeft,
                                      FirstBytes(columns < kOutputs ? columns : kOutputs)};
            DepthwiseStrip(strip, filter);
        }
    }
}

void Depthwise(const DepthwisePlanes& p) {
    if (p.width <= DepthwiseShape<4>::kOutputs) {
        DepthwiseBy<4>(p);
    } else if (p.width <= DepthwiseShape<2>::kOutputs) {
        DepthwiseBy<2>(p);
    } else {
        DepthwiseBy<1>(p);
    }
}

// ---- Dot product -------------------------------------------------------------------------------

int32_t Dot(const int8_t* a, const int8_t* b, size_t count) {
    const __m512i ones = _mm512_set1_epi8(1);
    __m512i sum = _mm512_setzero_si512();
    __m512i weightSum = _mm512_setzero_si512();
    for (size_t i = 0; i < count; i += 64) {
        const __mmask64 inside = FirstBytes(count - i);
        const __m512i weights = _mm512_maskz_loadu_epi8(inside, b + i);
        DotAccumulate(sum, FlipSign(_mm512_maskz_loadu_epi8(inside, a + i)), weights);
        DotAccumulate(weightSum, ones, weights);
    }
    __m128i lanes = AddParts(_mm512_sub_epi32(sum, _mm512_slli_epi32(weightSum, 7)));
    lanes = _mm_add_epi32(lanes, _mm_shuffle_epi32(lanes, 0x4E));
    return _mm_cvtsi128_si32(_mm_add_epi32(lanes, _mm_shuffle_epi32(lanes, 0xB1)));
}

// ---- Pooling, sampling, element-wise -----------------------------------------------------------

// A vector no wider than needed hardly reaches into the next row, whose load would else have to
// wait for this row's store.
template <typename Bytes>
void MaxPoolStrips(int8_t* src, size_t width, size_t height, int8_t* dst) {
    const size_t columns = width - 1;
    for (size_t x = 0; x < columns; x += Bytes::kSize) {
        const __mmask64 inside = FirstBytes(columns - x);
        const auto horizontal = [&](size_t y) {
            const int8_t* row = src + y * width + x;
            return Bytes::Max(Bytes::Load(inside, row), Bytes::Load(inside, row + 1));
        };
        // Each row is loaded before the one above it is stored, and a strip's right neighbours are
        // read before the next strip replaces them.
        auto here = horizontal(0);
        for (size_t y = 1; y < height; ++y) {
            const auto next = horizontal(y);
            Bytes::Store(inside, here, src + (y - 1) * width + x);
            Bytes::Store(inside, Bytes::Max(here, next), dst + (y - 1) * columns + x);
            here = next;
        }
        Bytes::Store(inside, here, src + (height - 1) * width + x);
    }
}

void MaxPoolStride1(int8_t* src, size_t width, size_t height, int8_t* dst) {
    if (width <= 17) {
        MaxPoolStrips<Bytes16>(src, width, height, dst);
    } else if (width <= 33) {
        MaxPoolStrips<Bytes32>(src, width, height, dst);
    } else {
        MaxPoolStrips<Bytes64>(src, width, height, dst);
    }
}

void MaxPoolRows(const int8_t* upper, const int8_t* lower, size_t dstWidth, int8_t* dst) {
    for (size_t x = 0; x < dstWidth; x += 32) {
        const __mmask64 inside = FirstBytes(2 * (dstWidth - x));
        const __m512i rows = _mm512_max_epi8(_mm512_maskz_loadu_epi8(inside, upper + 2 * x),
                                             _mm512_maskz_loadu_epi8(inside, lower + 2 * x));
        const __m512i pairs = _mm512_max_epi8(rows, _mm512_srli_epi16(rows, 8));
        _mm256_mask_storeu_epi8(dst + x, static_cast<__mmask32>(FirstBytes(dstWidth - x)),
                                _mm512_cvtepi16_epi8(pairs));
    }
}

void SampleRow(const int8_t* src, size_t dstWidth, int8_t* dst) {
    for (size_t x = 0; x < dstWidth; x += 32) {
        const __m512i row =
            _mm512_maskz_loadu_epi8(FirstBytes(2 * (dstWidth - x) - 1), src + 2 * x);
        _mm256_mask_storeu_epi8(dst + x, static_cast<__mmask32>(FirstBytes(dstWidth - x)),
                                _mm512_cvtepi16_epi8(row));
    }
}

void Rectify(const int8_t* src, int8_t* dst, size_t count) {
    for (size_t i = 0; i < count; i += 64) {
        const __mmask64 inside = FirstBytes(count - i);
        const __m512i values = _mm512_maskz_loadu_epi8(inside, src + i);
        _mm512_mask_storeu_epi8(dst + i, inside, _mm512_max_epi8(values, _mm512_setzero_si512()));
    }
}

void FlipSigns(uint8_t* data, size_t count) {
    for (size_t i = 0; i < count; i += 64) {
        const __mmask64 inside = FirstBytes(count - i);
        _mm512_mask_storeu_epi8(data + i, inside,
                                FlipSign(_mm512_maskz_loadu_epi8(inside, data + i)));
    }
}

inline __m512i Widen(__mmask32 inside, const int8_t* values, __m128i shift) {
    return _mm512_sll_epi16(_mm512_cvtepi8_epi16(_mm256_maskz_loadu_epi8(inside, values)), shift);
}

void Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count, const AddShifts& s) {
    const __m128i shift1 = _mm_cvtsi32_si128(static_cast<int>(s.in1));
    const __m128i shift2 = _mm_cvtsi32_si128(static_cast<int>(s.in2));
    const __m128i shiftOut = _mm_cvtsi32_si128(static_cast<int>(s.out));
    const __m512i half = _mm512_set1_epi16(static_cast<int16_t>(s.out == 0 ? 0 : 1 << (s.out - 1)));
    for (size_t i = 0; i < count; i += 32) {
        const __mmask32 inside = static_cast<__mmask32>(FirstBytes(count - i));
        __m512i sum = _mm512_add_epi16(Widen(inside, in1 + i, shift1), half);
        if (in2 != nullptr) {
            sum = _mm512_add_epi16(sum, Widen(inside, in2 + i, shift2));
        }
        _mm256_mask_storeu_epi8(dst + i, inside,
                                _mm512_cvtsepi16_epi8(_mm512_sra_epi16(sum, shiftOut)));
    }
}

} // namespace

const Routines kAvx512VnniRoutines{"avx512vnni", Multiply,  Depthwise, Dot,       MaxPoolStride1,
                                   MaxPoolRows,  SampleRow, Rectify,   FlipSigns, Add};

} // namespace orvo
