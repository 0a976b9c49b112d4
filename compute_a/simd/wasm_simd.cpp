// SPDX-License-Identifier: MIT
//
// WebAssembly's 128-bit vectors.
//
// i32x4.dot_i16x8_s multiplies pairs of words and adds each two products. Values and weights are
// widened to words on their way into a buffer, side by side as the pairs want them; products of
// bytes cannot overflow there, whatever the weights are, so there is one way of working for all.
//
// Milliseconds a face under node 20 on x86-64, where the compiler has vectorised the plain path for
// the same instructions (a profile of both in turn; whole faces by the fastest of 40):
//
//                       plain    here
//     pointwise          22.4     3.0
//     first layers        4.2     0.7
//     depthwise           8.7     3.1
//     fastest face       27.0     6.7
//
// The other routines are the plain ones.
#include <wasm_simd128.h>

#include <algorithm>
#include <cstring>

#include "compute_a/routines.h"
#include "compute_a/simd/planes_of_rows.h"
#include "compute_a/simd/plain.h"

namespace orvo {
namespace {

using Vector = v128_t;

// The shift instruction takes its count modulo 32.
inline uint32_t ShiftCount(uint32_t shift) { return std::min<uint32_t>(shift, 31); }

// Two words, one behind the other in memory, in all lanes.
inline Vector RepeatPair(int first, int second) {
    return wasm_i32x4_splat(static_cast<int32_t>((static_cast<uint32_t>(first) & 0xFFFF) |
                                                 static_cast<uint32_t>(second) << 16));
}

// ---- Matrix product ----------------------------------------------------------------------------
//
// A tile is 8 pixels of 4 planes. Two rows make a step: 32 bytes of their values, widened and
// interleaved, meet one pair of weights a plane. Register plan: 8 sums, 2 of values, 1 of weights;
// WebAssembly's engines have 16 on x86-64 and 32 on ARM.

constexpr size_t kTilePixels = 8;
constexpr size_t kStepRows = 2;
constexpr size_t kStepBytes = kStepRows * kTilePixels * sizeof(int16_t);
constexpr size_t kGroup = 4;
constexpr size_t kMaxSteps = 128;         // of which the weights fit the stack
constexpr size_t kBlockBytes = 16 * 1024; // values packed at a time: they stay in the first cache

inline void PackStep(Vector first, Vector second, int8_t* to) {
    const Vector mixed =
        wasm_i8x16_shuffle(first, second, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
    wasm_v128_store(to, wasm_i16x8_extend_low_i8x16(mixed));
    wasm_v128_store(to + 16, wasm_i16x8_extend_high_i8x16(mixed));
}

// 8 values or, at the end of the rows, fewer.
inline Vector LoadValues(const int8_t* from, size_t count) {
    if (count >= kTilePixels) {
        return wasm_v128_load64_zero(from);
    }
    int8_t values[kTilePixels] = {};
    std::memcpy(values, from, count);
    return wasm_v128_load64_zero(values);
}

void PackTile(const MatrixProduct& p, size_t pixel, int8_t* to) {
    const size_t count = p.pixels - pixel;
    const int8_t* row = p.rows + pixel;
    for (size_t k = 0; k < p.inner; k += kStepRows, row += 2 * p.rowPitch, to += kStepBytes) {
        const bool isPair = k + 1 < p.inner;
        PackStep(LoadValues(row, count),
                 isPair ? LoadValues(row + p.rowPitch, count) : wasm_i64x2_splat(0), to);
    }
}

// Pairs of weights of up to four planes, step by step, and what their sums start from. Planes that
// are not there have zeros.
struct GroupWeights {
    int16_t pairs[kMaxSteps][kGroup][kStepRows];
    int32_t bias[kGroup];
};

void LoadGroup(const int8_t* weights, size_t inner, size_t planes, const int32_t* bias,
               GroupWeights& group) {
    std::memset(group.pairs, 0, (inner + 1) / kStepRows * sizeof group.pairs[0]);
    for (size_t k = 0; k < inner; ++k) {
        for (size_t c = 0; c < planes; ++c) {
            group.pairs[k / kStepRows][c][k % kStepRows] = weights[planes * k + c];
        }
    }
    for (size_t c = 0; c < kGroup; ++c) {
        group.bias[c] = c < planes ? bias[c] : 0;
    }
}

// The bytes of two planes, one in each half.
struct TileBytes {
    Vector planes01, planes23;
};

inline TileBytes MultiplyTile(const int8_t* values, const GroupWeights& group, size_t steps,
                              uint32_t shift) {
    Vector sums[kGroup][2];
    for (size_t c = 0; c < kGroup; ++c) {
        sums[c][0] = sums[c][1] = wasm_i32x4_splat(group.bias[c]);
    }
    for (size_t step = 0; step < steps; ++step, values += kStepBytes) {
        const Vector low = wasm_v128_load(values);
        const Vector high = wasm_v128_load(values + 16);
        for (size_t c = 0; c < kGroup; ++c) {
            const Vector pair = wasm_v128_load32_splat(group.pairs[step][c]);
            sums[c][0] = wasm_i32x4_add(sums[c][0], wasm_i32x4_dot_i16x8(low, pair));
            sums[c][1] = wasm_i32x4_add(sums[c][1], wasm_i32x4_dot_i16x8(high, pair));
        }
    }
    Vector words[kGroup];
    for (size_t c = 0; c < kGroup; ++c) {
        words[c] = wasm_i16x8_narrow_i32x4(wasm_i32x4_shr(sums[c][0], shift),
                                           wasm_i32x4_shr(sums[c][1], shift));
    }
    return {wasm_i8x16_narrow_i16x8(words[0], words[1]),
            wasm_i8x16_narrow_i16x8(words[2], words[3])};
}

inline void StoreTile(const TileBytes& bytes, int8_t* dst, size_t pitch) {
    wasm_v128_store64_lane(dst, bytes.planes01, 0);
    wasm_v128_store64_lane(dst + pitch, bytes.planes01, 1);
    wasm_v128_store64_lane(dst + 2 * pitch, bytes.planes23, 0);
    wasm_v128_store64_lane(dst + 3 * pitch, bytes.planes23, 1);
}

// `planes` planes of the pixels from `pixel` to `end`, whose values are packed.
void MultiplyGroup(const MatrixProduct& p, const int8_t* values, size_t pixel, size_t end,
                   const GroupWeights& group, size_t planes, int8_t* dst) {
    const size_t steps = (p.inner + 1) / kStepRows;
    const uint32_t shift = ShiftCount(p.shift);
    for (; pixel < end; pixel += kTilePixels, values += steps * kStepBytes) {
        const TileBytes bytes = MultiplyTile(values, group, steps, shift);
        if (planes == kGroup && end - pixel >= kTilePixels) {
            StoreTile(bytes, dst + pixel, p.planePitch);
            continue;
        }
        int8_t tile[kGroup][kTilePixels];
        StoreTile(bytes, tile[0], kTilePixels);
        for (size_t c = 0; c < planes; ++c) {
            std::memcpy(dst + c * p.planePitch + pixel, tile[c],
                        std::min(kTilePixels, end - pixel));
        }
    }
}

void MultiplyBlock(const MatrixProduct& p, size_t tileBytes, size_t pixel, size_t end) {
    int8_t* values = p.scratch;
    for (size_t at = pixel; at < end; at += kTilePixels, values += tileBytes) {
        PackTile(p, at, values);
    }
    const int8_t* weights = p.weights;
    for (size_t channel = 0; channel < p.channels; weights += p.groupBytes) {
        const size_t planes = p.channels - channel >= kGroup ? kGroup : 1;
        GroupWeights group;
        LoadGroup(weights, p.inner, planes, p.bias + channel, group);
        MultiplyGroup(p, p.scratch, pixel, end, group, planes, p.dst + channel * p.planePitch);
        channel += planes;
    }
}

void Multiply(const MatrixProduct& p) {
    const size_t steps = (p.inner + 1) / kStepRows;
    const size_t tileBytes = steps * kStepBytes;
    if (steps == 0 || steps > kMaxSteps || tileBytes > p.scratchBytes) {
        return plain::Multiply(p);
    }
    const size_t blockBytes = std::min(std::max(kBlockBytes, tileBytes), p.scratchBytes);
    const size_t blockPixels = blockBytes / tileBytes * kTilePixels;
    for (size_t pixel = 0; pixel < p.pixels; pixel += blockPixels) {
        MultiplyBlock(p, tileBytes, pixel, std::min(p.pixels, pixel + blockPixels));
    }
}

// ---- Depthwise ---------------------------------------------------------------------------------
//
// A band of rows is widened, with a zero between the end of a row and the start of the next, which
// is the border of both. In this band a filter is the same everywhere, so that 16 outputs are made
// at a time from one end to the other, and planes of 6 x 6 fill the vectors as well as planes of
// 96 x 96. The results between the rows mean nothing; they are left out on the way to the output.
//
// A vector of the band is pairs of neighbouring columns. Even outputs x meet (x - 1, x) and
// (x + 1, x + 2), odd ones the same two vectors with their weights one column on.

constexpr size_t kMaxWidth = 128;
constexpr size_t kBandValues = 1536;
constexpr size_t kBandReach = 32; // what the vectors of the last outputs reach beyond the band

struct Band {
    int16_t values[kBandValues + kBandReach];
    int8_t results[kBandValues + kBandReach];
};

inline size_t RoundUp8(size_t count) { return (count + 7) / 8 * 8; }

// A row of values and a zero. More may be written behind it; what comes there is written later.
inline void WidenRow(const int8_t* from, size_t width, int16_t* to) {
    for (size_t x = 0; x < width; x += 8) {
        wasm_v128_store(to + x, wasm_i16x8_load8x8(from + x));
    }
    to[width] = 0;
}

// The rows that `rows` output rows from `y` on need, the one above them first. `available` values
// of the source may be read from `plane` on.
void WidenBand(const DepthwisePlanes& p, const int8_t* plane, size_t available, size_t y,
               size_t rows, Band& band) {
    int16_t* to = band.values;
    *to++ = 0;
    for (size_t row = y - 1; row != y + rows + 1; ++row, to += p.width + 1) {
        if (row >= p.height) { // the row above the first has wrapped
            std::memset(to, 0, (p.width + 1) * sizeof *to);
            continue;
        }
        const size_t at = row * p.width;
        if (available - at >= RoundUp8(p.width)) {
            WidenRow(plane + at, p.width, to);
        } else {
            int8_t copy[kMaxWidth];
            std::memcpy(copy, plane + at, p.width);
            WidenRow(copy, p.width, to);
        }
    }
}

struct DepthwiseFilter {
    // By row: the weights that the pairs to the left and to the right meet.
    Vector evenLeft[3], evenRight[3], oddLeft[3], oddRight[3];
    Vector bias, lowest;
    uint32_t shift;
};

DepthwiseFilter LoadFilter(const int8_t* w, int32_t bias, const DepthwisePlanes& p) {
    DepthwiseFilter f;
    for (size_t row = 0; row < 3; ++row, w += 3) {
        f.evenLeft[row] = RepeatPair(w[0], w[1]);
        f.evenRight[row] = RepeatPair(w[2], 0);
        f.oddLeft[row] = RepeatPair(0, w[0]);
        f.oddRight[row] = RepeatPair(w[1], w[2]);
    }
    f.bias = wasm_i32x4_splat(bias);
    f.lowest = wasm_i8x16_splat(p.lowest);
    f.shift = ShiftCount(p.shift);
    return f;
}

// 8 outputs as words: the even ones, then the odd ones.
inline Vector Convolve8(const int16_t* at, size_t pitch, const DepthwiseFilter& f) {
    Vector even = f.bias;
    Vector odd = f.bias;
    for (size_t row = 0; row < 3; ++row, at += pitch) {
        const Vector left = wasm_v128_load(at);
        const Vector right = wasm_v128_load(at + 2);
        even = wasm_i32x4_add(even, wasm_i32x4_dot_i16x8(left, f.evenLeft[row]));
        odd = wasm_i32x4_add(odd, wasm_i32x4_dot_i16x8(left, f.oddLeft[row]));
        even = wasm_i32x4_add(even, wasm_i32x4_dot_i16x8(right, f.evenRight[row]));
        odd = wasm_i32x4_add(odd, wasm_i32x4_dot_i16x8(right, f.oddRight[row]));
    }
    return wasm_i16x8_narrow_i32x4(wasm_i32x4_shr(even, f.shift), wasm_i32x4_shr(odd, f.shift));
}

void ConvolveBand(Band& band, size_t count, size_t pitch, const DepthwiseFilter& f) {
    for (size_t i = 0; i < count; i += 16) {
        const Vector low = Convolve8(band.values + i, pitch, f);
        const Vector high = Convolve8(band.values + i + 8, pitch, f);
        const Vector bytes = wasm_i8x16_max(wasm_i8x16_narrow_i16x8(low, high), f.lowest);
        wasm_v128_store(band.results + i, wasm_i8x16_shuffle(bytes, bytes, 0, 4, 1, 5, 2, 6, 3, 7,
                                                             8, 12, 9, 13, 10, 14, 11, 15));
    }
}

// Rows are stored in whole vectors where what they overwrite is stored later.
void StoreBand(const Band& band, size_t rows, size_t width, int8_t* dst, const int8_t* dstEnd) {
    const int8_t* from = band.results;
    for (size_t row = 0; row < rows; ++row, from += width + 1, dst += width) {
        if (static_cast<size_t>(dstEnd - dst) < RoundUp8(width)) {
            std::memcpy(dst, from, width);
            continue;
        }
        for (size_t x = 0; x < width; x += 8) {
            wasm_v128_store64_lane(dst + x, wasm_v128_load64_zero(from + x), 0);
        }
    }
}

void Depthwise(const DepthwisePlanes& p) {
    if (p.width > kMaxWidth) {
        return plain::Depthwise(p);
    }
    const size_t plane = p.width * p.height;
    const size_t pitch = p.width + 1;
    const size_t most = (kBandValues - 1) / pitch - 2; // output rows at a time
    for (size_t c = 0; c < p.channels; ++c) {
        const DepthwiseFilter filter = LoadFilter(p.weights + 9 * c, p.bias[c], p);
        for (size_t y = 0; y < p.height; y += most) {
            const size_t rows = std::min(most, p.height - y);
            Band band;
            WidenBand(p, p.src + c * plane, (p.channels - c) * plane, y, rows, band);
            ConvolveBand(band, rows * pitch, pitch, filter);
            StoreBand(band, rows, p.width, p.dst + c * plane + y * p.width,
                      p.dst + p.channels * plane);
        }
    }
}

} // namespace

const Routines kWasmSimdRoutines{"wasm_simd",
                                 Multiply,
                                 Depthwise,
                                 plain::Dot,
                                 MaxPoolStride1ByPlanes<plain::MaxPoolStride1>,
                                 MaxPoolStride2ByRows<plain::MaxPoolRows>,
                                 SampleByRows<plain::SampleRow>,
                                 plain::Rectify,
                                 plain::FlipSign,
                                 plain::Add};

} // namespace orvo
