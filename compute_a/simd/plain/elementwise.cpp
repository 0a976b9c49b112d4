// SPDX-License-Identifier: MIT
//
// Rectifier, signs and addition by their definitions.
#include "compute_a/simd/plain/routines.h"

#include <algorithm>

#include "compute_a/requantise.h"

namespace orvo {

void plain::Rectify(const int8_t* src, int8_t* dst, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        dst[i] = std::max<int8_t>(src[i], 0);
    }
}

void plain::FlipSign(uint8_t* data, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        data[i] ^= 0x80u;
    }
}

void plain::Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count,
                const AddShifts& s) {
    const int32_t half = s.out == 0 ? 0 : 1 << (s.out - 1);
    const int32_t factor1 = 1 << s.in1;
    const int32_t factor2 = 1 << s.in2;
    const uint32_t shift = s.out;
    // Two loops, since compilers vectorise neither with the question in it.
    if (in2 == nullptr) {
        for (size_t i = 0; i < count; ++i) {
            dst[i] = SaturateQ7((in1[i] * factor1 + half) >> shift);
        }
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        dst[i] = SaturateQ7((in1[i] * factor1 + in2[i] * factor2 + half) >> shift);
    }
}

} // namespace orvo
