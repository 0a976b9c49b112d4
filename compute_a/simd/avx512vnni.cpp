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

inline __m512i FlipSign(__m512i bytes) { return _mm512_xor_si512(bytes, _mm512_set1_epi8(-128)); }

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
    const __m256i half =
        _mm256_add_epi32(_mm512_castsi512_si256(sums), _mm512_extracti64x4_epi64(sums, 1));
    const __m128i sum =
        _mm_add_epi32(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
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

// `Channels` planes of one block. Register plan for 4 channels and 4 vectors: 16 sums, 4 vectors of
// values, 1 word of weights broadcast from memory for four products at a time.
template <size_t Channels, size_t Vectors, bool Full>
void Tile(const MatrixProduct& p, size_t channel, const int8_t* weights, const Block& block,
          int8_t* dst) {
    WeightChunk<Channels> chunk;
    __m512i sums[Channels][Vectors];
#pragma GCC unroll 4
    for (size_t c = 0; c < Channels; ++c) {
#pragma GCC unroll 4
        for (size_t v = 0; v < Vectors; ++v) {
            sums[c][v] = _mm512_set1_epi32(p.bias[channel + c]);
        }
    }
    const uint8_t* values = block.values;
    for (size_t k = 0; k < p.inner; k += 4 * kChunkSteps) {
        const size_t left = p.inner - k;
        const size_t inner = left < 4 * kChunkSteps ? left : 4 * kChunkSteps;
        LoadChunk(weights + (Channels == kGroup ? kGroup * k : k), p.groupBytes, inner, chunk);
#pragma GCC unroll 4
        for (size_t c = 0; c < Channels; ++c) {
#pragma GCC unroll 4
            for (size_t v = 0; v < Vectors; ++v) {
                sums[c][v] = _mm512_add_epi32(sums[c][v], _mm512_set1_epi32(chunk.correction[c]));
            }
        }
        const size_t steps = (inner + 3) / 4;
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
                const __m512i word = _mm512_set1_epi32(chunk.words[step][c]);
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

template <size_t Vectors, bool Full>
void MultiplyBlock(const MatrixProduct& p, const Block& block, size_t pixel) {
    const int8_t* weights = p.weights;
    size_t channel = 0;
    for (; channel + kGroup <= p.channels; channel += kGroup, weights += p.groupBytes) {
        Tile<kGroup, Vectors, Full>(p, channel, weights, block,
                                    p.dst + channel * p.planePitch + pixel);
    }
    int8_t* dst = p.dst + channel * p.planePitch + pixel;
    switch (p.channels - channel) {
        case 1:
            return Tile<1, Vectors, Full>(p, channel, weights, block, dst);
        case 2:
            return Tile<2, Vectors, Full>(p, channel, weights, block, dst);
        case 3:
            return Tile<3, Vectors, Full>(p, channel, weights, block, dst);
        default:
            return;
    }
}

void Multiply(const MatrixProduct& p) {
    const size_t stepCount = (p.inner + 3) / 4;
    const size_t blockPixels = p.pixels < kBlockPixels ? p.pixels : kBlockPixels;
    if (4 * stepCount * blockPixels > p.scratchBytes) {
        plain::Multiply(p); // the scratch of very small products has no room for whole steps
        return;
    }
    uint8_t* const values = reinterpret_cast<uint8_t*>(p.scratch);
    size_t pixel = 0;
    for (; pixel + kBlockPixels <= p.pixels; pixel += kBlockPixels) {
        PackBlock64(p, pixel, values);
        MultiplyBlock<4, true>(p, {values, 4 * kBlockPixels, 0xFFFF}, pixel);
    }
    const size_t rest = p.pixels - pixel;
    if (rest == 0) {
        return;
    }
    PackBlockTail(p, pixel, rest, values);
    const Block block{values, 4 * rest, FirstBytes16((rest - 1) % 16 + 1)};
    switch ((rest + 15) / 16) {
        case 1:
            return MultiplyBlock<1, false>(p, block, pixel);
        case 2:
            return MultiplyBlock<2, false>(p, block, pixel);
        case 3:
            return MultiplyBlock<3, false>(p, block, pixel);
        default:
            return MultiplyBlock<4, false>(p, block, pixel);
    }
}

// ---- Depthwise ---------------------------------------------------------------------------------
//
// The 32-bit lanes of a vector hold one column of four rows. One product then gives three taps of a
// filter column; three of them, over the column and its two right neighbours, give an output of the
// upper pair of filter positions, and the same vectors with the weights one row lower give the
// output below it. Two output rows are made at a time, and the lower two of the four rows are the
// upper two of the next pair.

constexpr size_t kStripOutputs = 62; // 64 columns are loaded, of which the outer two are neighbours

struct DepthwiseFilter {
    __m512i upper[3]; // by filter column: the weights of rows 0, 1, 2 and a zero
    __m512i lower[3]; // a zero and the weights of rows 0, 1, 2
    __m512i start;    // bias, less what the flipped signs add
    __m512i shift;
    __m512i lowest;
};

DepthwiseFilter LoadFilter(const int8_t* w, int32_t bias, const DepthwisePlanes& p) {
    DepthwiseFilter filter;
    uint32_t sum = 0;
    for (size_t kx = 0; kx < 3; ++kx) {
        uint32_t word = 0;
        for (size_t ky = 0; ky < 3; ++ky) {
            word |= static_cast<uint32_t>(static_cast<uint8_t>(w[3 * ky + kx])) << (8 * ky);
            sum += static_cast<uint32_t>(w[3 * ky + kx]);
        }
        filter.upper[kx] = _mm512_set1_epi32(static_cast<int>(word));
        filter.lower[kx] = _mm512_set1_epi32(static_cast<int>(word << 8));
    }
    filter.start = _mm512_set1_epi32(static_cast<int>(static_cast<uint32_t>(bias) - 128u * sum));
    filter.shift = _mm512_set1_epi32(static_cast<int>(p.shift));
    filter.lowest = _mm512_set1_epi8(p.lowest);
    return filter;
}

// The pairs of two rows, column by column: the lower and the upper 32 columns.
struct RowPair {
    __m512i low, high;
};

inline __m512i InterleaveIndex(int first) {
    alignas(64) uint8_t index[64];
    for (int i = 0; i < 32; ++i) {
        index[2 * i] = static_cast<uint8_t>(first + i);
        index[2 * i + 1] = static_cast<uint8_t>(64 + first + i);
    }
    return _mm512_load_si512(index);
}

inline __m512i InterleaveWordIndex(int first) {
    alignas(64) uint16_t index[32];
    for (int i = 0; i < 16; ++i) {
        index[2 * i] = static_cast<uint16_t>(first + i);
        index[2 * i + 1] = static_cast<uint16_t>(32 + first + i);
    }
    return _mm512_load_si512(index);
}

// Where the strip lies in its plane.
struct Strip {
    const int8_t* columns; // the column before the first output, in row 0
    __mmask64 inside;      // which of the 64 columns lie in the plane
    size_t pitch, height;

    __m512i row(size_t y) const {
        const __m512i loaded = y < height ? _mm512_maskz_loadu_epi8(inside, columns + y * pitch)
                                          : _mm512_setzero_si512();
        return FlipSign(loaded);
    }
};

// Requantised bytes of up to four vectors of sums, in column order.
template <size_t Chunks>
inline __m512i PackRow(const __m512i sums[Chunks], const DepthwiseFilter& f) {
    __m512i s[4];
#pragma GCC unroll 4
    for (size_t i = 0; i < 4; ++i) {
        s[i] = i < Chunks ? _mm512_srav_epi32(sums[i < Chunks ? i : 0], f.shift)
                          : _mm512_setzero_si512();
    }
    const __m512i bytes =
        _mm512_packs_epi16(_mm512_packs_epi32(s[0], s[1]), _mm512_packs_epi32(s[2], s[3]));
    const __m512i order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    return _mm512_max_epi8(_mm512_permutexvar_epi32(order, bytes), f.lowest);
}

// `Chunks` vectors of 16 outputs from `Columns` vectors of 16 columns: as many, or one more where
// the last outputs have their right neighbours in it.
template <size_t Chunks, size_t Columns>
void DepthwiseStrip(const Strip& strip, const DepthwiseFilter& f, size_t outputs, int8_t* dst) {
    static_assert(Columns == Chunks || Columns == Chunks + 1);
    const __m512i byteLow = InterleaveIndex(0);
    const __m512i byteHigh = InterleaveIndex(32);
    const __m512i wordLow = InterleaveWordIndex(0);
    const __m512i wordHigh = InterleaveWordIndex(16);
    const __mmask64 mask = FirstBytes(outputs);
    const auto pair = [&](size_t y) {
        const __m512i a = strip.row(y);
        const __m512i b = strip.row(y + 1);
        RowPair rows;
        rows.low = _mm512_permutex2var_epi8(a, byteLow, b);
        rows.high = Columns > 2 ? _mm512_permutex2var_epi8(a, byteHigh, b) : rows.low;
        return rows;
    };
    // Row -1 is outside, and so is the huge value that it wraps to.
    RowPair above = pair(static_cast<size_t>(0) - 1);
    for (size_t y = 0; y < strip.height; y += 2) {
        const RowPair below = pair(y + 1);
        __m512i columns[5];
        columns[0] = _mm512_permutex2var_epi16(above.low, wordLow, below.low);
        columns[1] = columns[0];
        if constexpr (Columns > 1) {
            columns[1] = _mm512_permutex2var_epi16(above.low, wordHigh, below.low);
        }
        columns[2] = columns[1];
        if constexpr (Columns > 2) {
            columns[2] = _mm512_permutex2var_epi16(above.high, wordLow, below.high);
        }
        columns[3] = columns[2];
        if constexpr (Columns > 3) {
            columns[3] = _mm512_permutex2var_epi16(above.high, wordHigh, below.high);
        }
        columns[4] = columns[3];
        above = below;
        __m512i upper[Chunks];
        __m512i lower[Chunks];
#pragma GCC unroll 4
        for (size_t i = 0; i < Chunks; ++i) {
            const __m512i next = _mm512_alignr_epi32(columns[i + 1], columns[i], 1);
            const __m512i second = _mm512_alignr_epi32(columns[i + 1], columns[i], 2);
            upper[i] = f.start;
            lower[i] = f.start;
            DotAccumulate(upper[i], columns[i], f.upper[0]);
            DotAccumulate(lower[i], columns[i], f.lower[0]);
            DotAccumulate(upper[i], next, f.upper[1]);
            DotAccumulate(lower[i], next, f.lower[1]);
            DotAccumulate(upper[i], second, f.upper[2]);
            DotAccumulate(lower[i], second, f.lower[2]);
        }
        int8_t* to = dst + y * strip.pitch;
        const bool hasLower = y + 1 < strip.height;
        if constexpr (Chunks <= 2) {
            // Both rows share one vector of bytes.
            const __m512i both[4] = {upper[0], upper[Chunks - 1], lower[0], lower[Chunks - 1]};
            const __m512i bytes = PackRow<4>(both, f);
            _mm256_mask_storeu_epi8(to, static_cast<__mmask32>(mask),
                                    _mm512_castsi512_si256(bytes));
            if (hasLower) {
                _mm256_mask_storeu_epi8(to + strip.pitch, static_cast<__mmask32>(mask),
                                        _mm512_extracti64x4_epi64(bytes, 1));
            }
        } else {
            _mm512_mask_storeu_epi8(to, mask, PackRow<Chunks>(upper, f));
            if (hasLower) {
                _mm512_mask_storeu_epi8(to + strip.pitch, mask, PackRow<Chunks>(lower, f));
            }
        }
    }
}

using StripRoutine = void (*)(const Strip&, const DepthwiseFilter&, size_t, int8_t*);

StripRoutine ChooseStrip(size_t outputs) {
    const size_t chunks = (outputs + 15) / 16;
    const bool spills = (outputs + 2 + 15) / 16 > chunks;
    switch (chunks) {
        case 1:
            return spills ? DepthwiseStrip<1, 2> : DepthwiseStrip<1, 1>;
        case 2:
            return spills ? DepthwiseStrip<2, 3> : DepthwiseStrip<2, 2>;
        case 3:
            return spills ? DepthwiseStrip<3, 4> : DepthwiseStrip<3, 3>;
        default:
            return DepthwiseStrip<4, 4>;
    }
}

void DepthwisePlane(const int8_t* src, const DepthwisePlanes& p, const DepthwiseFilter& f,
                    int8_t* dst) {
    for (size_t x = 0; x < p.width; x += kStripOutputs) {
        const size_t left = p.width - x;
        const size_t outputs = left < kStripOutputs ? left : kStripOutputs;
        // The first column is the one before x, which lies outside at the left edge; there are
        // left + 1 columns from it to the right edge.
        const __mmask64 fromLeft = x == 0 ? ~__mmask64{1} : ~__mmask64{0};
        const Strip strip{src + x - 1, FirstBytes(left + 1) & fromLeft, p.width, p.height};
        ChooseStrip(outputs)(strip, f, outputs, dst + x);
    }
}

void Depthwise(const DepthwisePlanes& p) {
    const size_t plane = p.width * p.height;
    for (size_t c = 0; c < p.channels; ++c) {
        DepthwisePlane(p.src + c * plane, p, LoadFilter(p.weights + 9 * c, p.bias[c], p),
                       p.dst + c * plane);
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
    return _mm512_reduce_add_epi32(_mm512_sub_epi32(sum, _mm512_slli_epi32(weightSum, 7)));
}

// ---- Pooling, sampling, element-wise -----------------------------------------------------------

// The vectors that a row of up to 16, 32 or 64 values takes. A vector no wider than needed hardly
// reaches into the next row, whose load would else have to wait for this row's store.
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
