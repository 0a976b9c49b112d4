// SPDX-License-Identifier: MIT
//
// Kernels that touch every element independently of its neighbours.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "compute_a/requantise.h"
#include "compute_a/routines.h"
#include "orvo/q7_kernels.h"

namespace {

// Left shifts of signed values, two's complement, wrapping at the width named; counts beyond the
// width leave nothing.
int32_t ShiftLeft16(int8_t value, uint32_t count) {
    const uint32_t bits = count < 16 ? static_cast<uint32_t>(value) << count : 0;
    return static_cast<int16_t>(bits);
}

int32_t ShiftLeft32(int8_t value, uint32_t count) {
    return count < 32 ? static_cast<int32_t>(static_cast<uint32_t>(value) << count) : 0;
}

// The addition by its definition, for shifts that the fast routines do not take. Full blocks of 8
// values shift the inputs in 16-bit lanes, the values after them in 32 bits; that differs for input
// shifts above 8 only. Where in2 is null the shortcut counts as zero.
void AddPlane(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count,
              const orvo::AddShifts& s) {
    const uint32_t half = s.out >= 1 && s.out <= 32 ? 1u << (s.out - 1) : 0;
    for (size_t i = 0; i < count; ++i) {
        const auto shiftLeft = i < count / 8 * 8 ? ShiftLeft16 : ShiftLeft32;
        const int32_t a = shiftLeft(in1[i], s.in1);
        const int32_t b = in2 == nullptr ? 0 : shiftLeft(in2[i], s.in2);
        const uint32_t sum = static_cast<uint32_t>(a) + static_cast<uint32_t>(b) + half;
        dst[i] = orvo::SaturateQ7(static_cast<int32_t>(sum) >> std::min<uint32_t>(s.out, 31));
    }
}

// With these shifts every sum of an addition fits 16 bits.
bool FitsFastAddition(const orvo::AddShifts& s) { return s.in1 <= 6 && s.in2 <= 6 && s.out <= 14; }

// Rounds half up. From 9 on every value vanishes, so larger counts, which could not be shifted by,
// may stand for one that can.
int8_t ShiftRightRounded(int8_t value, int32_t shift) {
    const int32_t count = std::min(shift, 9);
    return static_cast<int8_t>((value + (1 << count >> 1)) >> count);
}

} // namespace

void ArmAXorQ7(uint8_t* data, int32_t count) {
    orvo::ChosenRoutines().flipSign(data, count > 0 ? static_cast<size_t>(count) : 0);
}

void ArmAReluChwQ7(const int8_t* src, int8_t* dst, uint32_t count) {
    orvo::ChosenRoutines().rectify(src, dst, count);
}

void ArmAZpadPlusChwQ7(const int8_t* in1, const int8_t* in2, int8_t* dst, uint16_t in1Shift,
                       uint16_t in2Shift, uint16_t outShift, uint16_t height, uint16_t width,
                       uint16_t outChannels, uint16_t in2Channels, void* /*scratch*/) {
    const size_t plane = size_t{height} * width;
    const orvo::AddShifts shifts{in1Shift, in2Shift, outShift};
    // dst has no more planes than in1, whatever is said of in2.
    const size_t shared = std::min(in2Channels, outChannels);
    if (FitsFastAddition(shifts)) {
        const auto add = orvo::ChosenRoutines().add;
        const size_t both = shared * plane;
        add(in1, in2, dst, both, shifts);
        add(in1 + both, nullptr, dst + both, outChannels * plane - both, shifts);
        return;
    }
    for (size_t c = 0; c < outChannels; ++c) {
        const size_t at = c * plane;
        AddPlane(in1 + at, c < shared ? in2 + at : nullptr, dst + at, plane, shifts);
    }
}

void ArmAL2Norm(const int8_t* src, int32_t count, float* dst) {
    uint32_t squares = 0;
    for (int32_t i = 0; i < count; ++i) {
        squares = orvo::AddProduct(squares, src[i], src[i]);
    }
    const float inverse = 1.0f / std::sqrt(static_cast<float>(static_cast<int32_t>(squares)));
    for (int32_t i = 0; i < count; ++i) {
        const float scaled = static_cast<float>(src[i]) * inverse;
        // Processors disagree on the sign of the NaN that 0 times infinity gives.
        dst[i] = std::isnan(scaled) ? std::numeric_limits<float>::quiet_NaN() : scaled;
    }
}

void ArmARescaleQ7(int8_t* data, int32_t count, int32_t shift) {
    if (shift > 0) {
        for (int32_t i = 0; i < count; ++i) {
            data[i] = ShiftRightRounded(data[i], shift);
        }
        return;
    }
    const uint32_t left = 0u - static_cast<uint32_t>(shift);
    for (int32_t i = 0; i < count; ++i) {
        data[i] = static_cast<int8_t>(ShiftLeft32(data[i], left));
    }
}
