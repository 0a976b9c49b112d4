// SPDX-License-Identifier: MIT
//
// Depthwise convolution with NEON: strips as strips.h walks them, with sums of 16 bits. They hold
// the bias and all rows' products, or the outer rows' and the middle row's, where the weights allow
// it, and one row's or less otherwise. A row of 16 columns takes about 31, 33 and 46 to 57
// instructions on 64 bits, on 32 bits see strips_32.h.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "compute_a/simd/neon/lanes.h"
#include "compute_a/simd/neon/routines.h"
#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/strips.h"
#if !defined(__aarch64__)
#include "compute_a/simd/neon/strips_32.h"
#endif

namespace orvo {
namespace {

#if defined(__aarch64__)
using Weight = int8x16_t; // one weight in all lanes
inline Weight LoadWeight(const int8_t* weight) { return vld1q_dup_s8(weight); }
inline int8x8_t LowHalf(Weight weight) { return vget_low_s8(weight); }
#else
using Weight = int8x8_t;
inline Weight LoadWeight(const int8_t* weight) { return vld1_dup_s8(weight); }
inline int8x8_t LowHalf(Weight weight) { return weight; }
#endif

constexpr uint8_t kColumnNumbers[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

// The columns of a strip, and their neighbours.
template <class Columns>
struct InputRow {
    typename Columns::Vector left, centre, right;
};

// Strips of eight columns.
struct Columns8 {
    using Vector = int8x8_t;
    static constexpr size_t kCount = 8;
    static constexpr size_t kHalves = 1; // vectors of 16-bit sums
    static Vector Load(const int8_t* from) { return vld1_s8(from); }
    static void Store(int8_t* to, Vector v) { vst1_s8(to, v); }
    static Vector Repeat(int8_t value) { return vdup_n_s8(value); }
    static Vector And(Vector a, Vector b) { return vand_s8(a, b); }
    // All bits set in the first `count` columns.
    static Vector Before(size_t count) {
        const uint8x8_t end = vdup_n_u8(static_cast<uint8_t>(std::min(count, kCount)));
        return vreinterpret_s8_u8(vclt_u8(vld1_u8(kColumnNumbers), end));
    }
    static Vector Max(Vector a, Vector b) { return vmax_s8(a, b); }
    static Vector TopBytes(const int16x8_t words[kHalves]) { return vshrn_n_s16(words[0], 8); }
    // The columns to the left and to the right, zeros outside.
    static Vector Left(Vector v) {
        return vreinterpret_s8_u64(vshl_n_u64(vreinterpret_u64_s8(v), 8));
    }
    static Vector Right(Vector v) {
        return vreinterpret_s8_u64(vshr_n_u64(vreinterpret_u64_s8(v), 8));
    }
    // A row inside a plane, from 7 columns before the strip to the one after it.
    static constexpr size_t kLoadedBefore = 7;
    static InputRow<Columns8> LoadInside(const int8_t* from) {
        const int8x16_t columns = vld1q_s8(from);
        const int8x8_t low = vget_low_s8(columns);
        const int8x8_t high = vget_high_s8(columns);
        return {vext_s8(low, high, 6), vext_s8(low, high, 7), high};
    }

    template <size_t Half>
    static int16x8_t Multiply(Vector v, Weight w) {
        return vmull_s8(v, LowHalf(w));
    }
    template <size_t Half>
    static int16x8_t MultiplyAdd(int16x8_t sum, Vector v, Weight w) {
        return vmlal_s8(sum, v, LowHalf(w));
    }
};

#if defined(__aarch64__)

// Strips of sixteen, for which 32-bit ARM has too few registers unless they are placed by hand.
struct Columns16 {
    using Vector = int8x16_t;
    static constexpr size_t kCount = 16;
    static constexpr size_t kHalves = 2;
    static Vector Load(const int8_t* from) { return vld1q_s8(from); }
    static void Store(int8_t* to, Vector v) { vst1q_s8(to, v); }
    static Vector Repeat(int8_t value) { return vdupq_n_s8(value); }
    static Vector And(Vector a, Vector b) { return vandq_s8(a, b); }
    static Vector Before(size_t count) {
        const uint8x16_t end = vdupq_n_u8(static_cast<uint8_t>(std::min(count, kCount)));
        return vreinterpretq_s8_u8(vcltq_u8(vld1q_u8(kColumnNumbers), end));
    }
    static Vector Max(Vector a, Vector b) { return vmaxq_s8(a, b); }
    static Vector TopBytes(const int16x8_t words[kHalves]) {
        return vuzp2q_s8(vreinterpretq_s8_s16(words[0]), vreinterpretq_s8_s16(words[1]));
    }
    static Vector Left(Vector v) { return vextq_s8(vdupq_n_s8(0), v, 15); }
    static Vector Right(Vector v) { return vextq_s8(v, vdupq_n_s8(0), 1); }
    static constexpr size_t kLoadedBefore = 1;
    static InputRow<Columns16> LoadInside(const int8_t* from) {
        return {vld1q_s8(from), vld1q_s8(from + 1), vld1q_s8(from + 2)};
    }

    template <size_t Half>
    static int16x8_t Multiply(Vector v, Weight w) {
        return Half == 0 ? vmull_s8(vget_low_s8(v), vget_low_s8(w)) : vmull_high_s8(v, w);
    }
    template <size_t Half>
    static int16x8_t MultiplyAdd(int16x8_t sum, Vector v, Weight w) {
        return Half == 0 ? vmlal_s8(sum, vget_low_s8(v), vget_low_s8(w)) : vmlal_high_s8(sum, v, w);
    }
};

#endif

template <class Columns, size_t Half>
inline int16x8_t MultiplyRow(const InputRow<Columns>& row, const Weight weights[3]) {
    int16x8_t sum = Columns::template Multiply<Half>(row.left, weights[0]);
    sum = Columns::template MultiplyAdd<Half>(sum, row.centre, weights[1]);
    return Columns::template MultiplyAdd<Half>(sum, row.right, weights[2]);
}
template <class Columns, size_t Half>
inline int16x8_t MultiplyAddRow(int16x8_t sum, const InputRow<Columns>& row,
                                const Weight weights[3]) {
    sum = Columns::template MultiplyAdd<Half>(sum, row.left, weights[0]);
    sum = Columns::template MultiplyAdd<Half>(sum, row.centre, weights[1]);
    return Columns::template MultiplyAdd<Half>(sum, row.right, weights[2]);
}

// One channel's parameters.
struct Filter {
    const int8_t* weights;
    int32_t bias;
    uint32_t shift;
    int8_t lowest;
};

// Totals of |w|: the outer rows' and the middle row's.
struct FilterTotals {
    uint64_t outer, middle;
};
inline FilterTotals TotalsOf(const int8_t* weights) {
    const uint8x8_t first8 = vreinterpret_u8_s8(vabs_s8(vld1_s8(weights)));
    const uint8x8_t middle = vcreate_u8(0x0000FFFFFF000000u);
    const uint8x16_t parts = vcombine_u8(vbic_u8(first8, middle), vand_u8(first8, middle));
    const uint64x2_t totals = vpaddlq_u32(vpaddlq_u16(vpaddlq_u8(parts)));
    return {vgetq_lane_u64(totals, 0) + static_cast<uint64_t>(std::abs(weights[8])),
            vgetq_lane_u64(totals, 1)};
}

// How far a sum of 16 bits is shifted left, with saturation, until its top byte is the output.
inline int16_t TopByteShiftOfWord(uint32_t shift) {
    return static_cast<int16_t>(8 - static_cast<int32_t>(std::min<uint32_t>(shift, 31)));
}

// Whether a sum of 16 bits holds the products and the bias.
inline bool HoldsBias(uint64_t totalWeight, int32_t bias) {
    return 128 * totalWeight + static_cast<uint64_t>(std::abs(int64_t{bias})) <= INT16_MAX;
}

// Filters whose sum fits 16 bits.
struct OneSum {
    static bool Take(const Filter& f) {
        const FilterTotals totals = TotalsOf(f.weights);
        return HoldsBias(totals.outer + totals.middle, f.bias);
    }
    static int16_t TopByteShift(uint32_t shift) { return TopByteShiftOfWord(shift); }

    struct Constants {
        int16x8_t bias, shiftCount;

        explicit Constants(const Filter& f)
            : bias(vdupq_n_s16(static_cast<int16_t>(f.bias))),
              shiftCount(vdupq_n_s16(TopByteShift(f.shift))) {}
    };

    int16x8_t sum;

    void Start(const Constants& constants) { sum = constants.bias; }
    template <class Columns, size_t Half>
    void AddTop(const InputRow<Columns>& row, const Weight weights[3]) {
        sum = MultiplyAddRow<Columns, Half>(sum, row, weights);
    }
    template <class Columns, size_t Half>
    void AddMiddle(const InputRow<Columns>& row, const Weight weights[3]) {
        sum = MultiplyAddRow<Columns, Half>(sum, row, weights);
    }
    template <class Columns, size_t Half>
    void AddBottom(const InputRow<Columns>& row, const Weight weights[3]) {
        sum = MultiplyAddRow<Columns, Half>(sum, row, weights);
    }
    int16x8_t TopByteWords(const Constants& constants) const {
        return vqshlq_s16(sum, constants.shiftCount);
    }
};

// Filters whose sum is made of two of 16 bits, one of the bias and the outer rows and one of the
// middle row: half of it, rounded down, is one instruction, and a bit less is left to shift out.
struct TwoSums {
    static bool Take(const Filter& f) {
        const FilterTotals totals = TotalsOf(f.weights);
        return HoldsBias(totals.outer, f.bias) && totals.middle <= kMostWeight && f.shift >= 1;
    }
    static int16_t TopByteShift(uint32_t shift) { return TopByteShiftOfWord(shift - 1); }

    struct Constants {
        int16x8_t bias, shiftCount;

        explicit Constants(const Filter& f)
            : bias(vdupq_n_s16(static_cast<int16_t>(f.bias))),
              shiftCount(vdupq_n_s16(TopByteShift(f.shift))) {}
    };

    int16x8_t outer, middle;

    void Start(const Constants& constants) { outer = constants.bias; }
    template <class Columns, size_t Half>
    void AddTop(const InputRow<Columns>& row, const Weight weights[3]) {
        outer = MultiplyAddRow<Columns, Half>(outer, row, weights);
    }
    template <class Columns, size_t Half>
    void AddMiddle(const InputRow<Columns>& row, const Weight weights[3]) {
        middle = MultiplyRow<Columns, Half>(row, weights);
    }
    template <class Columns, size_t Half>
    void AddBottom(const InputRow<Columns>& row, const Weight weights[3]) {
        outer = MultiplyAddRow<Columns, Half>(outer, row, weights);
    }
    int16x8_t TopByteWords(const Constants& constants) const {
        return vqshlq_s16(vhaddq_s16(outer, middle), constants.shiftCount);
    }
};

// The 16-bit sums of a row of the filter: one, where none of the rows has a total of more than it may
// take, or one of the outer two products and one of the middle product. Only two weights of -128
// could overflow that of two.
struct WholeRows {
    static bool Take(const int8_t* weights) {
        for (size_t i = 0; i < 9; i += 3) {
            const int total =
                std::abs(weights[i]) + std::abs(weights[i + 1]) + std::abs(weights[i + 2]);
            if (total > static_cast<int>(kMostWeight)) {
                return false;
            }
        }
        return true;
    }
    template <class Columns, size_t Half, class Sums>
    static void AddRow(const InputRow<Columns>& row, const Weight weights[3], Sums& sums) {
        sums.Add(MultiplyRow<Columns, Half>(row, weights));
    }
};
struct SplitRows {
    static bool Take(const int8_t* weights) {
        const int8_t* w = weights;
        return w[0] + w[2] != -256 && w[3] + w[5] != -256 && w[6] + w[8] != -256;
    }
    template <class Columns, size_t Half, class Sums>
    static void AddRow(const InputRow<Columns>& row, const Weight weights[3], Sums& sums) {
        const int16x8_t left = Columns::template Multiply<Half>(row.left, weights[0]);
        sums.Add(Columns::template MultiplyAdd<Half>(left, row.right, weights[2]));
        sums.Add(Columns::template Multiply<Half>(row.centre, weights[1]));
    }
};

// Any other filter, bias and shift: each row's sums are widened.
template <class Rows>
struct WidenedSums {
    static bool Take(const Filter& f) { return Rows::Take(f.weights); }

    struct Constants {
        int32x4_t bias, shiftCount;

        explicit Constants(const Filter& f)
            : bias(vdupq_n_s32(f.bias)), shiftCount(TopByteShift(f.shift)) {}
    };

    int32x4_t low, high;

    void Add(int16x8_t products) {
        low = vaddw_s16(low, vget_low_s16(products));
        high = vaddw_s16(high, vget_high_s16(products));
    }

    void Start(const Constants& constants) { low = high = constants.bias; }
    template <class Columns, size_t Half>
    void AddTop(const InputRow<Columns>& row, const Weight weights[3]) {
        Rows::template AddRow<Columns, Half>(row, weights, *this);
    }
    template <class Columns, size_t Half>
    void AddMiddle(const InputRow<Columns>& row, const Weight weights[3]) {
        Rows::template AddRow<Columns, Half>(row, weights, *this);
    }
    template <class Columns, size_t Half>
    void AddBottom(const InputRow<Columns>& row, const Weight weights[3]) {
        Rows::template AddRow<Columns, Half>(row, weights, *this);
    }
    int16x8_t TopByteWords(const Constants& constants) const {
        return TopWords(vqshlq_s32(low, constants.shiftCount),
                        vqshlq_s32(high, constants.shiftCount));
    }
};

// One channel's strips: the filter, and bytes that are set where a strip wider than the plane has
// the plane's columns.
template <class Columns, class ColumnSums>
class FilterStrip {
  public:
    using Vector = typename Columns::Vector;
    using Row = InputRow<Columns>;
    struct Sums {
        ColumnSums half[Columns::kHalves];
    };
    static constexpr size_t kColumns = Columns::kCount;

    FilterStrip(const Filter& f, size_t width)
        : constants_(f), lowest_(Columns::Repeat(f.lowest)), inside_(Columns::Before(width)) {
#pragma GCC unroll 9
        for (size_t i = 0; i < 9; ++i) {
            weights_[i] = LoadWeight(f.weights + i);
        }
    }

    template <Sides kSides>
    static constexpr size_t LoadedBefore() {
        return kSides == Sides::kNone ? Columns::kLoadedBefore : kSides == Sides::kRight ? 1 : 0;
    }

    template <Sides kSides>
    Row Load(const int8_t* from) const {
        if constexpr (kSides == Sides::kNone) {
            return Columns::LoadInside(from);
        } else if constexpr (kSides == Sides::kLeft) {
            const auto centre = Columns::Load(from);
            return {Columns::Left(centre), centre, Columns::Load(from + 1)};
        } else if constexpr (kSides == Sides::kRight) {
            const auto centre = Columns::Load(from + 1);
            return {Columns::Load(from), centre, Columns::Right(centre)};
        } else {
            const auto centre = Columns::And(Columns::Load(from), inside_);
            return {Columns::Left(centre), centre, Columns::Right(centre)};
        }
    }

    void Start(Sums& sums) const {
#pragma GCC unroll 2
        for (ColumnSums& half : sums.half) {
            half.Start(constants_);
        }
    }
    void StartWithTop(const Row& row, Sums& sums) const {
        Start(sums);
        sums.half[0].template AddTop<Columns, 0>(row, weights_);
        if constexpr (Columns::kHalves == 2) {
            sums.half[1].template AddTop<Columns, 1>(row, weights_);
        }
    }
    void AddMiddle(const Row& row, Sums& sums) const {
        sums.half[0].template AddMiddle<Columns, 0>(row, weights_ + 3);
        if constexpr (Columns::kHalves == 2) {
            sums.half[1].template AddMiddle<Columns, 1>(row, weights_ + 3);
        }
    }
    void AddBottom(const Row& row, Sums& sums) const {
        sums.half[0].template AddBottom<Columns, 0>(row, weights_ + 6);
        if constexpr (Columns::kHalves == 2) {
            sums.half[1].template AddBottom<Columns, 1>(row, weights_ + 6);
        }
    }

    Vector Output(const Sums& sums) const {
        int16x8_t words[Columns::kHalves];
#pragma GCC unroll 2
        for (size_t half = 0; half < Columns::kHalves; ++half) {
            words[half] = sums.half[half].TopByteWords(constants_);
        }
        return Columns::Max(Columns::TopBytes(words), lowest_);
    }
    static void Store(int8_t* to, Vector output) { Columns::Store(to, output); }

  private:
    Weight weights_[9];
    typename ColumnSums::Constants constants_;
    Vector lowest_, inside_;
};

#if defined(__aarch64__)

template <class ColumnSums>
using WideStrip = FilterStrip<Columns16, ColumnSums>;

#else

template <class ColumnSums, bool kTwo>
struct AssemblyStrip {
    static constexpr size_t kColumns = kColumns32;

    template <Sides kSides>
    static void Walk(const StripPlane& p, const Filter& f) {
        Strip32 strip;
        std::fill(strip.bias, strip.bias + kColumns, static_cast<int16_t>(f.bias));
        std::memset(strip.edge, 0, kColumns);
        if (kSides == Sides::kBoth) {
            std::memset(strip.edge, -1, std::min(p.width, kColumns));
        }
        strip.shiftCount = ColumnSums::TopByteShift(f.shift);
        strip.lowest = f.lowest;
        std::memcpy(strip.weights, f.weights, sizeof strip.weights);
        WalkStrip32<kSides, kTwo>(p, strip);
    }
};

template <class ColumnSums>
struct WideStripOf {
    using Type = FilterStrip<Columns8, ColumnSums>;
};
template <>
struct WideStripOf<OneSum> {
    using Type = AssemblyStrip<OneSum, false>;
};
template <>
struct WideStripOf<TwoSums> {
    using Type = AssemblyStrip<TwoSums, true>;
};

template <class ColumnSums>
using WideStrip = typename WideStripOf<ColumnSums>::Type;

#endif

template <class ColumnSums>
void Convolve(const StripPlane& plane, const Filter& filter) {
    ConvolvePlane<WideStrip<ColumnSums>, FilterStrip<Columns8, ColumnSums>>(plane, filter);
}

} // namespace

void neon::Depthwise(const DepthwisePlanes& p) {
    if (p.width < kMinStripPlaneWidth || p.height < kMinStripPlaneHeight) {
        plain::Depthwise(p);
        return;
    }
    const size_t plane = p.width * p.height;
    StripPlane at{p.src, nullptr, p.dst, p.width, p.height};
    for (size_t c = 0; c < p.channels; ++c, at.src += plane, at.dst += plane) {
        const Filter filter{p.weights + 9 * c, p.bias[c], p.shift, p.lowest};
        if (OneSum::Take(filter)) {
            Convolve<OneSum>(at, filter);
        } else if (TwoSums::Take(filter)) {
            Convolve<TwoSums>(at, filter);
        } else if (WidenedSums<WholeRows>::Take(filter)) {
            Convolve<WidenedSums<WholeRows>>(at, filter);
        } else if (WidenedSums<SplitRows>::Take(filter)) {
            Convolve<WidenedSums<SplitRows>>(at, filter);
        } else {
            plain::Depthwise({at.src, p.width, p.height, 1, filter.weights, &filter.bias, p.shift,
                              p.lowest, at.dst});
        }
    }
}

} // namespace orvo
