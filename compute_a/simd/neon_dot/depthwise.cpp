// SPDX-License-Identifier: MIT
//
// Depthwise convolution with the dot-product instruction, in strips as compute_a/simd/strips.h
// walks them.
//
// A vector of a row is four groups of four neighbours. The taps of a filter's row, before a zero,
// make the output of each group's second column, and behind a zero that of its third: a row loaded
// from one column before the strip and once more two columns further on gives 16 outputs by four
// instructions. The outputs of one instruction are four columns apart, which the interleaving that
// narrows them undoes.
#include <algorithm>

#include "compute_a/simd/neon_dot/lanes.h"
#include "compute_a/simd/neon_dot/routines.h"
#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/strips.h"

namespace orvo {
namespace {

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
// narrowed, 2 of constants, and 2 of the places in narrow planes. A row takes 27 or 28 instructions,
// with the 16-bit products of compute_a/simd/neon/ 31 or more, and any filter will do.
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
          secondColumns_(ColumnsFrom(1, width)) {
        // GCC would count its place from the stack pointer, row by row.
        __asm__("" : "+r"(bias_));
    }

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

    void Start(Sums& sums) const {
        const TwoVectors low = LoadTwo(bias_);
        const TwoVectors high = LoadTwo(bias_);
        sums = {{low.first, low.second, high.first, high.second}};
    }
    void StartWithTop(const Row& row, Sums& sums) const {
        Start(sums);
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

// 8 columns: groups that start two columns apart, put together from one vector of the row. A row
// takes 17 instructions, where 16 columns would take 28.
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
        __asm__("" : "+r"(bias_));
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

    void Start(Sums& sums) const {
        const TwoVectors bias = LoadTwo(bias_);
        sums = {bias.first, bias.second};
    }
    void StartWithTop(const Row& row, Sums& sums) const {
        Start(sums);
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

} // namespace

void neon_dot::Depthwise(const DepthwisePlanes& p) {
    if (p.width < kMinStripPlaneWidth || p.height < kMinStripPlaneHeight) {
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

} // namespace orvo
