// SPDX-License-Identifier: MIT
//
// Depthwise convolution with WebAssembly's vectors, in bands as depthwise_band.h has them.
//
// Where the weights allow it, sums have 16 bits and a lane is a column. Otherwise a vector of the
// band is pairs of neighbouring columns: even outputs x meet (x - 1, x) and (x + 1, x + 2), odd ones
// the same two vectors with their weights one column on.
#include "compute_a/simd/depthwise_band.h"

#include <cstdlib>

#include "compute_a/simd/wasm/lanes.h"
#include "compute_a/simd/wasm/routines.h"

namespace orvo {
namespace {

// One channel's parameters.
struct ChannelFilter {
    const int8_t* weights;
    int32_t bias;
    uint32_t shift;
    int8_t lowest;
};

// Filters whose sum is made of two of 16 bits, one of the outer rows and one of the middle row.
// Half their sum, rounded down, is one instruction; half the rest of the bias is added to it, and a
// shift by one less than asked for is all that is left to do. Where the last addition saturates, so
// does the output, since no more than eight further bits are shifted out. That instruction takes
// unsigned words and rounds up, so the sums start from where a signed zero lies among these, one of
// them one less.
struct HalvedSums {
    static constexpr int kSignedZero = 0x8000;
    static constexpr int kMostWeight = 255; // |w| in total: products come to 32640 at most

    static bool Take(const ChannelFilter& f) {
        int outer = 0;
        int middle = 0;
        for (size_t i = 0; i < 9; ++i) {
            (i / 3 == 1 ? middle : outer) += std::abs(f.weights[i]);
        }
        return outer <= kMostWeight && middle <= kMostWeight && f.shift >= 1 && f.shift <= 9 &&
               f.bias >= 2 * INT16_MIN && f.bias <= 2 * INT16_MAX + 1;
    }

    Vector weights[9];
    Vector outerStart, halfBias;
    uint32_t shift;

    explicit HalvedSums(const ChannelFilter& f)
        : outerStart(Repeat((f.bias & 1) - 1 + kSignedZero)),
          halfBias(Repeat(f.bias >> 1)),
          shift(f.shift - 1) {
        for (size_t i = 0; i < 9; ++i) {
            weights[i] = Repeat(f.weights[i]);
        }
    }

    // 8 outputs as words. Register plan: 9 vectors of weights, 3 of constants, 2 sums and a product.
    Vector Convolve8(const int16_t* at, size_t pitch) const {
        Vector outer = outerStart;
        Vector middle = Repeat(kSignedZero);
        AddRow(at, weights, outer);
        AddRow(at + pitch, weights + 3, middle);
        AddRow(at + 2 * pitch, weights + 6, outer);
        const Vector half = wasm_v128_xor(wasm_u16x8_avgr(outer, middle), Repeat(kSignedZero));
        return ShiftRight16(wasm_i16x8_add_sat(half, halfBias), shift);
    }

  private:
    static Vector Repeat(int value) { return wasm_i16x8_splat(static_cast<int16_t>(value)); }
    static void AddRow(const int16_t* at, const Vector* rowWeights, Vector& sum) {
        for (size_t column = 0; column < 3; ++column) {
            sum = wasm_i16x8_add(
                sum, wasm_i16x8_mul(wasm_v128_load(at + column), rowWeights[column]));
        }
    }
};

// Any other filter.
struct PairedSums {
    // By row: the weights that the pairs to the left and to the right meet.
    Vector evenLeft[3], evenRight[3], oddLeft[3], oddRight[3];
    Vector bias;
    uint32_t shift;

    explicit PairedSums(const ChannelFilter& f)
        : bias(wasm_i32x4_splat(f.bias)), shift(ShiftCount(f.shift)) {
        const int8_t* w = f.weights;
        for (size_t row = 0; row < 3; ++row, w += 3) {
            evenLeft[row] = RepeatPair(w[0], w[1]);
            evenRight[row] = RepeatPair(w[2], 0);
            oddLeft[row] = RepeatPair(0, w[0]);
            oddRight[row] = RepeatPair(w[1], w[2]);
        }
    }

    // 8 outputs as words.
    Vector Convolve8(const int16_t* at, size_t pitch) const {
        Vector even = bias;
        Vector odd = bias;
        for (size_t row = 0; row < 3; ++row, at += pitch) {
            const Vector left = wasm_v128_load(at);
            const Vector right = wasm_v128_load(at + 2);
            even = wasm_i32x4_add(even, wasm_i32x4_dot_i16x8(left, evenLeft[row]));
            odd = wasm_i32x4_add(odd, wasm_i32x4_dot_i16x8(left, oddLeft[row]));
            even = wasm_i32x4_add(even, wasm_i32x4_dot_i16x8(right, evenRight[row]));
            odd = wasm_i32x4_add(odd, wasm_i32x4_dot_i16x8(right, oddRight[row]));
        }
        const Vector words =
            wasm_i16x8_narrow_i32x4(ShiftRight(even, shift), ShiftRight(odd, shift));
        return wasm_i16x8_shuffle(words, words, 0, 4, 1, 5, 2, 6, 3, 7);
    }

  private:
    // Two words, one behind the other in memory, in all lanes.
    static Vector RepeatPair(int first, int second) {
        return wasm_i32x4_splat(static_cast<int32_t>((static_cast<uint32_t>(first) & 0xFFFF) |
                                                     static_cast<uint32_t>(second) << 16));
    }
};

struct BandLanes {
    static constexpr size_t kWidened = 8;
    static constexpr size_t kOutputs = 16;

    static void Widen(const int8_t* from, int16_t* to) {
        wasm_v128_store(to, wasm_i16x8_load8x8(from));
    }
    static void Copy(const int8_t* from, int8_t* to) {
        wasm_v128_store64_lane(to, wasm_v128_load64_zero(from), 0);
    }

    struct Filter : ChannelFilter {
        bool isHalved;

        Filter(const int8_t* w, int32_t biasOfChannel, const DepthwisePlanes& p)
            : ChannelFilter{w, biasOfChannel, p.shift, p.lowest},
              isHalved(HalvedSums::Take(*this)) {}
    };

    static void ConvolveBand(int16_t* values, size_t count, size_t pitch, const Filter& f,
                             int8_t* results) {
        f.isHalved ? ConvolveBandBy<HalvedSums>(values, count, pitch, f, results)
                   : ConvolveBandBy<PairedSums>(values, count, pitch, f, results);
    }

  private:
    template <class Sums>
    static void ConvolveBandBy(const int16_t* values, size_t count, size_t pitch,
                               const ChannelFilter& f, int8_t* results) {
        const Sums sums(f);
        const Vector lowest = wasm_i8x16_splat(f.lowest);
        for (size_t i = 0; i < count; i += kOutputs) {
            const Vector low = sums.Convolve8(values + i, pitch);
            const Vector high = sums.Convolve8(values + i + 8, pitch);
            const Vector bytes = wasm_i8x16_max(wasm_i8x16_narrow_i16x8(low, high), lowest);
            wasm_v128_store(results + i, bytes);
        }
    }
};

} // namespace

void wasm::Depthwise(const DepthwisePlanes& p) { DepthwiseByBands<BandLanes>(p); }

} // namespace orvo
