// SPDX-License-Identifier: MIT
//
// 64-bit ARM with the dot-product instruction, which adds four products of signed bytes to each
// 32-bit lane, wrapping: exact as it is, whatever the bytes. The matrix product and the depthwise
// filters are made with it.
//
// Millions of instructions a face, counted under emulation: plain, without dot product (neon.cpp),
// here:
//
//     convolution    6.4   2.7   1.3
//     pointwise     32.4  10.7   4.7
//     depthwise     36.0   4.0   3.1
//     in all        78.7  18.5  10.1
#include <algorithm>
#include <cstring>

#include "compute_a/simd/planes_of_rows.h"
#include "compute_a/simd/neon.h"
#include "compute_a/simd/neon_lanes.h"
#include "compute_a/simd/neon_strips.h"
#include "compute_a/simd/plain.h"

namespace orvo {
namespace {

constexpr size_t kStepRows = 4;
constexpr size_t kVectorPixels = 4;
constexpr size_t kTileVectors = 4;
constexpr size_t kTilePixels = kTileVectors * kVectorPixels;
constexpr size_t kGroup = 4;
constexpr size_t kMaxSteps = 256;         // of which the weights fit the stack
constexpr size_t kBlockBytes = 20 * 1024; // pixels packed at a time: they stay in the first cache

constexpr size_t VectorsOf(size_t pixels) { return (pixels + kVectorPixels - 1) / kVectorPixels; }

// One group's weights: a vector for each step of four rows, with the four rows of a channel in a
// lane. They are arranged four steps at a time.
constexpr size_t kWeightSteps = 4;
struct GroupWeights {
    alignas(16) int8_t bytes[(kMaxSteps + kWeightSteps - 1) * 16];
};

// Taken apart into channels, of which four rows at a time are put side by side again.
inline void ArrangeWeights(const int8_t* weights, int8_t* to) {
    const int8x16x4_t channels = vld4q_s8(weights);
    const int32x4x4_t rows{
        {vreinterpretq_s32_s8(channels.val[0]), vreinterpretq_s32_s8(channels.val[1]),
         vreinterpretq_s32_s8(channels.val[2]), vreinterpretq_s32_s8(channels.val[3])}};
    vst4q_s32(reinterpret_cast<int32_t*>(to), rows);
}

void LoadGroup(const int8_t* weights, size_t inner, GroupWeights& group) {
    constexpr size_t kRows = kWeightSteps * kStepRows;
    constexpr size_t kBytes = kRows * kGroup;
    int8_t* to = group.bytes;
    for (; inner >= kRows; inner -= kRows, weights += kBytes, to += kBytes) {
        ArrangeWeights(weights, to);
    }
    if (inner > 0) {
        int8_t rest[kBytes] = {};
        std::memcpy(rest, weights, kGroup * inner);
        ArrangeWeights(rest, to);
    }
}

// Leftover channels, each of which has its weights in row order; zeros for those that are not
// there.
void LoadRestOfChannels(const int8_t* weights, size_t channelBytes, size_t channels, size_t inner,
                        GroupWeights& group) {
    std::memset(group.bytes, 0, (inner + kStepRows - 1) / kStepRows * 16);
    for (size_t c = 0; c < channels; ++c, weights += channelBytes) {
        for (size_t k = 0; k < inner; ++k) {
            group.bytes[k / kStepRows * 16 + kStepRows * c + k % kStepRows] = weights[k];
        }
    }
}

// Steps of four rows of 16 pixels, zeros for the rows after the last.
template <class Load, class Store>
inline void PackSteps(const MatrixProduct& p, size_t pixel, Load load, Store store) {
    const int8_t* at = p.rows + pixel;
    size_t left = p.inner;
    for (; left >= kStepRows; left -= kStepRows) {
        int8x16x4_t rows;
#pragma GCC unroll 4
        for (size_t i = 0; i < kStepRows; ++i, at += p.rowPitch) {
            rows.val[i] = load(at);
        }
        store(rows);
    }
    if (left > 0) {
        int8x16x4_t rows;
        for (size_t i = 0; i < kStepRows; ++i, at += p.rowPitch) {
            rows.val[i] = i < left ? load(at) : vdupq_n_s8(0);
        }
        store(rows);
    }
}

// A step becomes vectors whose lanes hold the four values of a pixel.
void PackTile(const MatrixProduct& p, size_t pixel, int8_t* to) {
    PackSteps(
        p, pixel, [](const int8_t* at) { return vld1q_s8(at); },
        [&to](const int8x16x4_t& rows) {
            vst4q_s8(to, rows);
            to += kTileVectors * 16;
        });
}

// The same for `count` pixels, fewer than a tile has, in as few vectors as hold them.
void PackRestOfPixels(const MatrixProduct& p, size_t pixel, size_t count, int8_t* to) {
    const size_t bytes = VectorsOf(count) * 16;
    PackSteps(
        p, pixel,
        [count](const int8_t* at) {
            int8_t pixels[kTilePixels] = {};
            std::memcpy(pixels, at, count);
            return vld1q_s8(pixels);
        },
        [&to, bytes](const int8x16x4_t& rows) {
            int8_t packed[kTileVectors * 16];
            vst4q_s8(packed, rows);
            std::memcpy(to, packed, bytes);
            to += bytes;
        });
}

template <size_t Vectors>
struct Pixels {
    int8x16_t of[Vectors];
};

// One step of a tile by one load; `from` moves past it.
template <size_t Vectors>
inline Pixels<Vectors> LoadPixels(const int8_t*& from) {
    Pixels<Vectors> pixels;
    if constexpr (Vectors == kTileVectors) {
        const int8x16x4_t loaded = vld1q_s8_x4(from);
        pixels = {{loaded.val[0], loaded.val[1], loaded.val[2], loaded.val[3]}};
    } else {
        for (size_t v = 0; v < Vectors; ++v) {
            pixels.of[v] = vld1q_s8(from + 16 * v);
        }
    }
    from += 16 * Vectors;
    return pixels;
}

// One step's products; `values` and `weights` move past it.
template <size_t Vectors>
inline void AddStep(const int8_t*& values, const int8_t*& weights,
                    int32x4_t sums[kGroup][Vectors]) {
    const int8x16_t w = vld1q_s8(weights);
    weights += 16;
    const Pixels<Vectors> pixels = LoadPixels<Vectors>(values);
#pragma GCC unroll 4
    for (size_t v = 0; v < Vectors; ++v) {
        sums[0][v] = vdotq_laneq_s32(sums[0][v], pixels.of[v], w, 0);
        sums[1][v] = vdotq_laneq_s32(sums[1][v], pixels.of[v], w, 1);
        sums[2][v] = vdotq_laneq_s32(sums[2][v], pixels.of[v], w, 2);
        sums[3][v] = vdotq_laneq_s32(sums[3][v], pixels.of[v], w, 3);
    }
}

// The sums of a tile's four channels, bias included. Register plan: 16 of sums, 4 of pixels, 1 of
// weights, whose lanes are the channels. A step's 256 products take 18 instructions, and its share
// of the loop two. Starting, narrowing and storing a tile's sums take 40, where copies of the
// biases and saturating narrowings, the plainer way, take 60.
template <size_t Vectors>
inline void SumTile(const int8_t* values, const int8_t* weights, size_t steps,
                    const int32_t bias[kGroup][8], int32x4_t sums[kGroup][Vectors]) {
#pragma GCC unroll 4
    for (size_t c = 0; c < kGroup; ++c) {
        if constexpr (Vectors == kTileVectors) {
            const TwoVectors low = LoadTwo(bias[c]);
            const TwoVectors high = LoadTwo(bias[c]);
            sums[c][0] = low.first;
            sums[c][1] = low.second;
            sums[c][2] = high.first;
            sums[c][3] = high.second;
        } else {
            for (size_t v = 0; v < Vectors; ++v) {
                sums[c][v] = vld1q_s32(bias[c]);
            }
        }
    }
    for (; steps >= 4; steps -= 4) {
#pragma GCC unroll 4
        for (size_t i = 0; i < 4; ++i) {
            AddStep<Vectors>(values, weights, sums);
        }
    }
    if ((steps & 2) != 0) {
        AddStep<Vectors>(values, weights, sums);
        AddStep<Vectors>(values, weights, sums);
    }
    if ((steps & 1) != 0) {
        AddStep<Vectors>(values, weights, sums);
    }
}

// The requantised bytes of up to 16 pixels.
template <size_t Vectors>
inline int8x16_t RequantiseTile(const int32x4_t sums[Vectors], int32x4_t shiftCount) {
    int32x4_t shifted[kTileVectors];
#pragma GCC unroll 4
    for (size_t v = 0; v < kTileVectors; ++v) {
        shifted[v] = vqshlq_s32(sums[v < Vectors ? v : 0], shiftCount);
    }
    return TopBytes(shifted);
}

// Packed pixels of one block, tile after tile.
struct Block {
    const int8_t* values;
    size_t steps;
    size_t pixels;
};

// Up to four planes. Those that are not there are written where the last one stands, before it.
struct Planes {
    const int8_t* weights;
    alignas(16) int32_t bias[kGroup][8]; // each as often as two vectors have lanes
    int32x4_t shiftCount;
    size_t start[kGroup];
};

template <size_t Vectors>
inline void MultiplyTile(const Planes& planes, const int8_t* values, size_t steps, size_t pixels,
                         int8_t* dst) {
    int32x4_t sums[kGroup][Vectors];
    SumTile<Vectors>(values, planes.weights, steps, planes.bias, sums);
    const int32x4_t shiftCount = planes.shiftCount;
#pragma GCC unroll 4
    for (size_t i = 0; i < kGroup; ++i) {
        const size_t c = kGroup - 1 - i;
        const int8x16_t outputs = RequantiseTile<Vectors>(sums[c], shiftCount);
        if (pixels == kTilePixels) {
            vst1q_s8(dst + planes.start[c], outputs);
        } else {
            int8_t last[kTilePixels];
            vst1q_s8(last, outputs);
            std::memcpy(dst + planes.start[c], last, pixels);
        }
    }
}

void MultiplyPlanes(const Planes& planes, const Block& block, int8_t* dst) {
    const int8_t* values = block.values;
    size_t pixels = block.pixels;
    for (; pixels >= kTilePixels; pixels -= kTilePixels, dst += kTilePixels) {
        MultiplyTile<kTileVectors>(planes, values, block.steps, kTilePixels, dst);
        values += block.steps * kTileVectors * 16;
    }
    switch (VectorsOf(pixels)) {
        case 1:
            return MultiplyTile<1>(planes, values, block.steps, pixels, dst);
        case 2:
            return MultiplyTile<2>(planes, values, block.steps, pixels, dst);
        case 3:
            return MultiplyTile<3>(planes, values, block.steps, pixels, dst);
        case 4:
            return MultiplyTile<4>(planes, values, block.steps, pixels, dst);
        default:
            return;
    }
}

void PackBlock(const MatrixProduct& p, size_t pixel, const Block& block, int8_t* to) {
    size_t done = 0;
    for (; done + kTilePixels <= block.pixels; done += kTilePixels) {
        PackTile(p, pixel + done, to);
        to += block.steps * kTileVectors * 16;
    }
    if (done < block.pixels) {
        PackRestOfPixels(p, pixel + done, block.pixels - done, to);
    }
}

void MultiplyBlock(const MatrixProduct& p, const Block& block, size_t pixel) {
    GroupWeights group;
    Planes planes{group.bytes, {}, TopByteShift(p.shift), {}};
    const int8_t* weights = p.weights;
    for (size_t channel = 0; channel < p.channels; channel += kGroup, weights += p.groupBytes) {
        const size_t count = std::min(kGroup, p.channels - channel);
        if (count == kGroup) {
            LoadGroup(weights, p.inner, group);
        } else {
            LoadRestOfChannels(weights, p.groupBytes, count, p.inner, group);
        }
#pragma GCC unroll 4
        for (size_t c = 0; c < kGroup; ++c) {
            const size_t plane = channel + std::min(c, count - 1);
            planes.start[c] = plane * p.planePitch;
            vst1q_s32(planes.bias[c], vdupq_n_s32(p.bias[plane]));
            vst1q_s32(planes.bias[c] + 4, vdupq_n_s32(p.bias[plane]));
        }
        MultiplyPlanes(planes, block, p.dst + pixel);
    }
}

// ---- Depthwise ---------------------------------------------------------------------------------
//
// A vector of a row is four groups of four neighbours. The taps of a filter's row, before a zero,
// make the output of each group's second column, and behind a zero that of its third: a row loaded
// from one column before the strip and once more two columns further on gives 16 outputs by four
// instructions. The outputs of one instruction are four columns apart, which the interleaving that
// narrows them undoes.

constexpr size_t kTaps = 9;

// One channel's parameters.
struct Filter {
    int8x16_t early, late; // three taps and a zero, a zero and three taps: a row of them in a lane
    alignas(16) int32_t bias[8];
    int32x4_t shiftCount;
    int8_t lowest;

    Filter(const int8_t* weights, int32_t biasOfChannel, uint32_t shift, int8_t lowestOutput)
        : shiftCount(TopByteShift(shift)), lowest(lowestOutput) {
        const uint8x16_t rowsOfTaps = vreinterpretq_u8_u64(
            vcombine_u64(vcreate_u64(0xFF050403FF020100u), vcreate_u64(0xFFFFFFFFFF080706u)));
        const int8x16_t taps =
            vcombine_s8(vld1_s8(weights), vld1_lane_s8(weights + 8, vdup_n_s8(0), 0));
        early = vqtbl1q_s8(taps, rowsOfTaps);
        late = vreinterpretq_s8_s32(vshlq_n_s32(vreinterpretq_s32_s8(early), 8));
        vst1q_s32(bias, vdupq_n_s32(biasOfChannel));
        vst1q_s32(bias + 4, vdupq_n_s32(biasOfChannel));
    }
};

// The places of columns in a vector of a plane's row: out of the table for those outside the row.
inline uint8x16_t OrOutside(uint8x16_t columns, size_t width) {
    const uint8x16_t end = vdupq_n_u8(static_cast<uint8_t>(std::min<size_t>(width, 16)));
    return vorrq_u8(columns, vcgeq_u8(columns, end));
}
inline uint8x16_t ColumnsFrom(int8_t first, size_t width) {
    const uint8x16_t numbers = vreinterpretq_u8_u64(
        vcombine_u64(vcreate_u64(0x0706050403020100u), vcreate_u64(0x0F0E0D0C0B0A0908u)));
    return OrOutside(vaddq_u8(numbers, vdupq_n_u8(static_cast<uint8_t>(first))), width);
}

// 16 columns. Register plan: 12 of sums, 2 of weights, 2 of a row, 4 of an output row being
// narrowed, 2 of constants, and 2 of the places in narrow planes. Six rows take 176 to 188
// instructions, with the 16-bit products of neon.cpp 220 to 240, and any filter will do.
class DotStrip16 {
  public:
    struct Row {
        int8x16_t first, second; // from one column before the strip, and from two columns after
    };
    struct Sums {
        int32x4_t of[4];
    };
    static constexpr size_t kColumns = 16;

    DotStrip16(const Filter& f, size_t width)
        : bias_(f.bias),
          early_(f.early),
          late_(f.late),
          shiftCount_(f.shiftCount),
          lowest_(vdupq_n_s8(f.lowest)),
          firstColumns_(ColumnsFrom(-1, width)),
          secondColumns_(ColumnsFrom(1, width)) {}

    template <Sides kSides>
    static constexpr size_t LoadedBefore() {
        return kSides == Sides::kNone || kSides == Sides::kRight ? 1 : 0;
    }

    template <Sides kSides>
    Row Load(const int8_t* from) const {
        if constexpr (kSides == Sides::kNone) {
            return {vld1q_s8(from), vld1q_s8(from + 2)};
        } else if constexpr (kSides == Sides::kLeft) {
            return {vextq_s8(vdupq_n_s8(0), vld1q_s8(from), 15), vld1q_s8(from + 1)};
        } else if constexpr (kSides == Sides::kRight) {
            return {vld1q_s8(from), vextq_s8(vld1q_s8(from + 1), vdupq_n_s8(0), 1)};
        } else {
            const int8x16_t row = vld1q_s8(from);
            return {vqtbl1q_s8(row, firstColumns_), vqtbl1q_s8(row, secondColumns_)};
        }
    }

    void AddTop(const Row& row, Sums& sums) const {
        const TwoVectors low = LoadTwo(bias_);
        const TwoVectors high = LoadTwo(bias_);
        sums = {{low.first, low.second, high.first, high.second}};
        Add<0>(row, sums);
    }
    void AddMiddle(const Row& row, Sums& sums) const { Add<1>(row, sums); }
    void AddBottom(const Row& row, Sums& sums) const { Add<2>(row, sums); }

    int8x16_t Output(const Sums& sums) const {
        int32x4_t shifted[4];
#pragma GCC unroll 4
        for (size_t i = 0; i < 4; ++i) {
            shifted[i] = vqshlq_s32(sums.of[i], shiftCount_);
        }
        return vmaxq_s8(InterleaveTopBytes(shifted), lowest_);
    }
    static void Store(int8_t* to, int8x16_t output) { vst1q_s8(to, output); }

  private:
    template <int kRow>
    void Add(const Row& row, Sums& sums) const {
        sums.of[0] = vdotq_laneq_s32(sums.of[0], row.first, early_, kRow);
        sums.of[1] = vdotq_laneq_s32(sums.of[1], row.first, late_, kRow);
        sums.of[2] = vdotq_laneq_s32(sums.of[2], row.second, early_, kRow);
        sums.of[3] = vdotq_laneq_s32(sums.of[3], row.second, late_, kRow);
    }

    const int32_t* bias_;
    int8x16_t early_, late_;
    int32x4_t shiftCount_;
    int8x16_t lowest_;
    uint8x16_t firstColumns_, secondColumns_;
};

// 8 columns: groups that start two columns apart, put together from one vector of the row. Six rows
// take 114 instructions, where 16 columns would take 188.
class DotStrip8 {
  public:
    using Row = int8x16_t;
    struct Sums {
        int32x4_t even, odd;
    };
    static constexpr size_t kColumns = 8;

    DotStrip8(const Filter& f, size_t width)
        : bias_(f.bias),
          early_(f.early),
          late_(f.late),
          shiftCount_(f.shiftCount),
          lowest_(vdup_n_s8(f.lowest)) {
        const uint8x16_t columns = vreinterpretq_u8_u64(
            vcombine_u64(vcreate_u64(0x04030201020100FFu), vcreate_u64(0x0807060506050403u)));
        fromFirst_ = OrOutside(columns, width);
        fromEighth_ = vaddq_u8(columns, vdupq_n_u8(kColumns));
    }

    template <Sides kSides>
    static constexpr size_t LoadedBefore() {
        return kSides == Sides::kRight ? kColumns : 0;
    }

    template <Sides kSides>
    Row Load(const int8_t* from) const {
        static_assert(kSides == Sides::kRight || kSides == Sides::kBoth);
        if constexpr (kSides == Sides::kRight) {
            return vqtbl1q_s8(vld1q_s8(from), fromEighth_);
        } else {
            return vqtbl1q_s8(vcombine_s8(vld1_s8(from), vdup_n_s8(0)), fromFirst_);
        }
    }

    void AddTop(const Row& row, Sums& sums) const {
        const TwoVectors bias = LoadTwo(bias_);
        sums = {bias.first, bias.second};
        Add<0>(row, sums);
    }
    void AddMiddle(const Row& row, Sums& sums) const { Add<1>(row, sums); }
    void AddBottom(const Row& row, Sums& sums) const { Add<2>(row, sums); }

    int8x8_t Output(const Sums& sums) const {
        const int16x8_t even = vreinterpretq_s16_s32(vqshlq_s32(sums.even, shiftCount_));
        const int16x8_t odd = vreinterpretq_s16_s32(vqshlq_s32(sums.odd, shiftCount_));
        return vmax_s8(vshrn_n_s16(vtrn2q_s16(even, odd), 8), lowest_);
    }
    static void Store(int8_t* to, int8x8_t output) { vst1_s8(to, output); }

  private:
    template <int kRow>
    void Add(const Row& row, Sums& sums) const {
        sums.even = vdotq_laneq_s32(sums.even, row, early_, kRow);
        sums.odd = vdotq_laneq_s32(sums.odd, row, late_, kRow);
    }

    const int32_t* bias_;
    int8x16_t early_, late_;
    int32x4_t shiftCount_;
    int8x8_t lowest_;
    uint8x16_t fromFirst_, fromEighth_;
};

void Depthwise(const DepthwisePlanes& p) {
    if (p.width < kMinStripPlaneWidth || p.height < kStripRows) {
        plain::Depthwise(p);
        return;
    }
    const size_t plane = p.width * p.height;
    StripPlane at{p.src, nullptr, p.dst, p.width, p.height};
    for (size_t c = 0; c < p.channels; ++c, at.src += plane, at.dst += plane) {
        const Filter filter(p.weights + kTaps * c, p.bias[c], p.shift, p.lowest);
        ConvolvePlane<DotStrip16, DotStrip8>(at, filter);
    }
}

void Multiply(const MatrixProduct& p) {
    const size_t steps = (p.inner + kStepRows - 1) / kStepRows;
    const size_t vectorBytes = 16 * steps;
    const size_t room = p.scratchBytes < kBlockBytes ? p.scratchBytes : kBlockBytes;
    if (steps == 0 || steps > kMaxSteps || room < vectorBytes) {
        plain::Multiply(p);
        return;
    }
    // Whole tiles, or the few vectors that there is room for.
    const size_t vectors = room / vectorBytes;
    const size_t blockVectors =
        vectors < kTileVectors ? vectors : vectors / kTileVectors * kTileVectors;
    const size_t blockPixels = blockVectors * kVectorPixels;
    for (size_t pixel = 0; pixel < p.pixels; pixel += blockPixels) {
        const size_t left = p.pixels - pixel;
        const Block block{p.scratch, steps, left < blockPixels ? left : blockPixels};
        PackBlock(p, pixel, block, p.scratch);
        MultiplyBlock(p, block, pixel);
    }
}

} // namespace

const Routines kNeonDotRoutines{"neon_dot",
                                Multiply,
                                Depthwise,
                                plain::Dot,
                                MaxPoolStride1ByPlanes<neon::MaxPoolStride1>,
                                MaxPoolStride2ByRows<neon::MaxPoolRows>,
                                SampleByRows<neon::SampleRow>,
                                neon::Rectify,
                                plain::FlipSign,
                                neon::Add};

} // namespace orvo
