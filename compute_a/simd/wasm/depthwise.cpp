// SPDX-License-Identifier: MIT
//
// Depthwise convolution with WebAssembly's vectors, in bands as depthwise_band.h has them.
//
// A vector of the band is pairs of neighbouring columns. Even outputs x meet (x - 1, x) and
// (x + 1, x + 2), odd ones the same two vectors with their weights one column on.
#include "compute_a/simd/depthwise_band.h"

#include "compute_a/simd/wasm/lanes.h"
#include "compute_a/simd/wasm/routines.h"

namespace orvo {
namespace {

// Two words, one behind the other in memory, in all lanes.
inline Vector RepeatPair(int first, int second) {
    return wasm_i32x4_splat(static_cast<int32_t>((static_cast<uint32_t>(first) & 0xFFFF) |
                                                 static_cast<uint32_t>(second) << 16));
}

struct BandLanes {
    static constexpr size_t kWidened = 8;
    static constexpr size_t kOutputs = 16;

    static void Widen(const int8_t* from, int16_t* to) {
        wasm_v128_store(to, wasm_i16x8_load8x8(from));
    }
    static void Copy(const int8_t* from, int8_t* to) {
        wasm_v128_store64_lane(to, wasm_v128_load64_zero(from), 0);
    }

    struct Filter {
        // By row: the weights that the pairs to the left and to the right meet.
        Vector evenLeft[3], evenRight[3], oddLeft[3], oddRight[3];
        Vector bias, lowest;
        uint32_t shift;

        Filter(const int8_t* w, int32_t biasOfChannel, const DepthwisePlanes& p)
            : bias(wasm_i32x4_splat(biasOfChannel)),
              lowest(wasm_i8x16_splat(p.lowest)),
              shift(ShiftCount(p.shift)) {
            for (size_t row = 0; row < 3; ++row, w += 3) {
                evenLeft[row] = RepeatPair(w[0], w[1]);
                evenRight[row] = RepeatPair(w[2], 0);
                oddLeft[row] = RepeatPair(0, w[0]);
                oddRight[row] = RepeatPair(w[1], w[2]);
            }
        }
    };

    // 8 outputs as words: the even ones, then the odd ones.
    static Vector Convolve8(const int16_t* at, size_t pitch, const Filter& f) {
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

    static void Convolve(const int16_t* values, size_t pitch, const Filter& f, int8_t* results) {
        const Vector low = Convolve8(values, pitch, f);
        const Vector high = Convolve8(values + 8, pitch, f);
        const Vector bytes = wasm_i8x16_max(wasm_i8x16_narrow_i16x8(low, high), f.lowest);
        wasm_v128_store(results, wasm_i8x16_shuffle(bytes, bytes, 0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9,
                                                    13, 10, 14, 11, 15));
    }
};

} // namespace

void wasm::Depthwise(const DepthwisePlanes& p) { DepthwiseByBands<BandLanes>(p); }

} // namespace orvo
