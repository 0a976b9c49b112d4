// SPDX-License-Identifier: MIT
//
// Depthwise convolution with WebAssembly's vectors: strips as strips.h walks them, of 8 columns as
// words. Where the weights allow it, sums have 16 bits, otherwise 32.
#include <cstdlib>

#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/strips.h"
#include "compute_a/simd/wasm/lanes.h"
#include "compute_a/simd/wasm/routines.h"

namespace orvo {
namespace {

// One channel's parameters.
struct Filter {
    const int8_t* weights;
    int32_t bias;
    uint32_t shift;
    int8_t lowest;
};

inline Vector Repeat(int value) { return wasm_i16x8_splat(static_cast<int16_t>(value)); }

// Filters whose sum is made of two of 16 bits, one of the outer rows and one of the middle row.
// Half their sum, rounded down, is one instruction; half the rest of the bias is added to it, and a
// shift by one less than asked for is all that is left to do. Where the last addition saturates, so
// does the output, since no more than eight further bits are shifted out. That instruction takes
// unsigned words and rounds up, so the sums start from where a signed zero lies among these, one of
// them one less.
struct HalvedSums {
    static constexpr int kSignedZero = 0x8000;
    static constexpr int kMostWeight = 255; // |w| in total: products come to 32640 at most

    static bool Take(const Filter& f) {
        int outer = 0;
        int middle = 0;
        for (size_t i = 0; i < 9; ++i) {
            (i / 3 == 1 ? middle : outer) += std::abs(f.weights[i]);
        }
        return outer <= kMostWeight && middle <= kMostWeight && f.shift >= 1 && f.shift <= 9 &&
               f.bias >= 2 * INT16_MIN && f.bias <= 2 * INT16_MAX + 1;
    }

    struct Row {
        Vector values[3];

        Row(Vector left, Vector centre, Vector right) : values{left, centre, right} {}
    };

    struct Constants {
        Vector weights[3][3];
        Vector outerStart, middleStart, halfBias;
        uint32_t shift;

        explicit Constants(const Filter& f)
            : outerStart(Repeat((f.bias & 1) - 1 + kSignedZero)),
              middleStart(Repeat(kSignedZero)),
              halfBias(Repeat(f.bias >> 1)),
              shift(f.shift - 1) {
            for (size_t i = 0; i < 9; ++i) {
                weights[i / 3][i % 3] = Repeat(f.weights[i]);
            }
        }
    };

    Vector outer, middle;

    static Vector AddProducts(Vector sum, const Row& row, const Vector* weights) {
        for (size_t column = 0; column < 3; ++column) {
            sum = wasm_i16x8_add(sum, wasm_i16x8_mul(row.values[column], weights[column]));
        }
        return sum;
    }
    void Start(const Constants& c) { outer = c.outerStart; }
    void AddTop(const Row& row, const Constants& c) {
        outer = AddProducts(outer, row, c.weights[0]);
    }
    void AddMiddle(const Row& row, const Constants& c) {
        middle = AddProducts(c.middleStart, row, c.weights[1]);
    }
    void AddBottom(const Row& row, const Constants& c) {
        outer = AddProducts(outer, row, c.weights[2]);
    }
    Vector Shifted(const Constants& c) const {
        const Vector half = wasm_v128_xor(wasm_u16x8_avgr(outer, middle), c.middleStart);
        return ShiftRight16(wasm_i16x8_add_sat(half, c.halfBias), c.shift);
    }
};

// Any other filter: a row's values in pairs, of which a row's left and centre value make one, and
// the right one another with a zero.
struct PairedSums {
    struct Row {
        Vector lowLeft, lowRight, highLeft, highRight;

        Row(Vector left, Vector centre, Vector right)
            : lowLeft(wasm_i16x8_shuffle(left, centre, 0, 8, 1, 9, 2, 10, 3, 11)),
              lowRight(wasm_u32x4_extend_low_u16x8(right)),
              highLeft(wasm_i16x8_shuffle(left, centre, 4, 12, 5, 13, 6, 14, 7, 15)),
              highRight(wasm_u32x4_extend_high_u16x8(right)) {}
    };

    struct Constants {
        Vector left[3], right[3];
        Vector bias;
        uint32_t shift;

        explicit Constants(const Filter& f)
            : bias(wasm_i32x4_splat(f.bias)), shift(ShiftCount(f.shift)) {
            for (size_t row = 0; row < 3; ++row) {
                const int8_t* w = f.weights + 3 * row;
                left[row] = RepeatPair(w[0], w[1]);
                right[row] = RepeatPair(w[2], 0);
            }
        }

      private:
        // Two words, one behind the other in memory, in all lanes.
        static Vector RepeatPair(int first, int second) {
            return wasm_i32x4_splat(static_cast<int32_t>((static_cast<uint32_t>(first) & 0xFFFF) |
                                                         static_cast<uint32_t>(second) << 16));
        }
    };

    Vector low, high;

    void Add(const Row& row, Vector left, Vector right) {
        low = wasm_i32x4_add(low, wasm_i32x4_dot_i16x8(row.lowLeft, left));
        high = wasm_i32x4_add(high, wasm_i32x4_dot_i16x8(row.highLeft, left));
        low = wasm_i32x4_add(low, wasm_i32x4_dot_i16x8(row.lowRight, right));
        high = wasm_i32x4_add(high, wasm_i32x4_dot_i16x8(row.highRight, right));
    }
    void Start(const Constants& c) { low = high = c.bias; }
    void AddTop(const Row& row, const Constants& c) { Add(row, c.left[0], c.right[0]); }
    void AddMiddle(const Row& row, const Constants& c) { Add(row, c.left[1], c.right[1]); }
    void AddBottom(const Row& row, const Constants& c) { Add(row, c.left[2], c.right[2]); }
    Vector Shifted(const Constants& c) const {
        return wasm_i16x8_narrow_i32x4(ShiftRight(low, c.shift), ShiftRight(high, c.shift));
    }
};

// One channel's strips: the filter, and words that are set where a strip wider than the plane has
// the plane's columns.
template <class ColumnSums>
class FilterStrip {
  public:
    using Row = typename ColumnSums::Row;
    using Sums = ColumnSums;
    static constexpr size_t kColumns = 8;

    FilterStrip(const Filter& f, size_t width)
        : constants_(f),
          lowest_(wasm_i8x16_splat(f.lowest)),
          inside_(wasm_i16x8_lt(wasm_i16x8_make(0, 1, 2, 3, 4, 5, 6, 7),
                                Repeat(static_cast<int>(width < kColumns ? width : kColumns)))) {}

    template <Sides kSides>
    static constexpr size_t LoadedBefore() {
        return kSides == Sides::kNone || kSides == Sides::kRight ? 1 : 0;
    }

    template <Sides kSides>
    Row Load(const int8_t* from) const {
        if constexpr (kSides == Sides::kNone) {
            return {wasm_i16x8_load8x8(from), wasm_i16x8_load8x8(from + 1),
                    wasm_i16x8_load8x8(from + 2)};
        } else if constexpr (kSides == Sides::kLeft) {
            const Vector centre = wasm_i16x8_load8x8(from);
            return {Left(centre), centre, wasm_i16x8_load8x8(from + 1)};
        } else if constexpr (kSides == Sides::kRight) {
            const Vector centre = wasm_i16x8_load8x8(from + 1);
            return {wasm_i16x8_load8x8(from), centre, Right(centre)};
        } else {
            const Vector centre = wasm_v128_and(wasm_i16x8_load8x8(from), inside_);
            return {Left(centre), centre, Right(centre)};
        }
    }

    void Start(Sums& sums) const { sums.Start(constants_); }
    void StartWithTop(const Row& row, Sums& sums) const {
        Start(sums);
        sums.AddTop(row, constants_);
    }
    void AddMiddle(const Row& row, Sums& sums) const { sums.AddMiddle(row, constants_); }
    void AddBottom(const Row& row, Sums& sums) const { sums.AddBottom(row, constants_); }

    // In the lower half.
    Vector Output(const Sums& sums) const {
        const Vector words = sums.Shifted(constants_);
        return wasm_i8x16_max(wasm_i8x16_narrow_i16x8(words, words), lowest_);
    }
    static void Store(int8_t* to, Vector output) { wasm_v128_store64_lane(to, output, 0); }

  private:
    // The columns to the left and to the right, zeros outside.
    static Vector Left(Vector v) {
        return wasm_i16x8_shuffle(v, wasm_i64x2_splat(0), 8, 0, 1, 2, 3, 4, 5, 6);
    }
    static Vector Right(Vector v) {
        return wasm_i16x8_shuffle(v, wasm_i64x2_splat(0), 1, 2, 3, 4, 5, 6, 7, 8);
    }

    typename ColumnSums::Constants constants_;
    Vector lowest_, inside_;
};

} // namespace

void wasm::Depthwise(const DepthwisePlanes& p) {
    if (p.width < kMinStripPlaneWidth || p.height < kMinStripPlaneHeight) {
        plain::Depthwise(p);
        return;
    }
    const size_t plane = p.width * p.height;
    StripPlane at{p.src, nullptr, p.dst, p.width, p.height};
    for (size_t c = 0; c < p.channels; ++c, at.src += plane, at.dst += plane) {
        const Filter filter{p.weights + 9 * c, p.bias[c], p.shift, p.lowest};
        if (HalvedSums::Take(filter)) {
            ConvolvePlane<FilterStrip<HalvedSums>, FilterStrip<HalvedSums>>(at, filter);
        } else {
            ConvolvePlane<FilterStrip<PairedSums>, FilterStrip<PairedSums>>(at, filter);
        }
    }
}

} // namespace orvo
