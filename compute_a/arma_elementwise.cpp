// SPDX-License-Identifier: MIT
//
// Kernels that touch every element independently of its neighbours.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "compute_a/requantise.h"
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

// The shifts of one residual addition.
struct AddShifts {
    uint32_t in1, in2, out;
    uint32_t rounding; // half an output step
};

int8_t AddShifted(int32_t a, int32_t b, const AddShifts& s) {
    const uint32_t sum = static_cast<uint32_t>(a) + static_cast<uint32_t>(b) + s.rounding;
    return orvo::SaturateQ7(static_cast<int32_t>(sum) >> std::min<uint32_t>(s.out, 31));
}

// One plane. Full blocks of 8 values shift the inputs in 16-bit lanes, the values after them in 32
// bits; the results differ for input shifts above 8 only.
void AddPlane(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count, const AddShifts& s) {
    const size_t blocked = count / 8 * 8;
    for (size_t i = 0; i < blocked; ++i) {
        dst[i] = AddShifted(ShiftLeft16(in1[i], s.in1), ShiftLeft16(in2[i], s.in2), s);
    }
    for (size_t i = blocked; i < count; ++i) {
        dst[i] = AddShifted(ShiftLeft32(in1[i], s.in1), ShiftLeft32(in2[i], s.in2), s);
    }
}

// As AddPlane() where the shortcut has no such channel: its values count as zero.
void ShiftPlane(const int8_t* in1, int8_t* dst, size_t count, const AddShifts& s) {
    const size_t blocked = count / 8 * 8;
    for (size_t i = 0; i < blocked; ++i) {
        dst[i] = AddShifted(ShiftLeft16(in1[i], s.in1), 0, s);
    }
    for (size_t i = blocked; i < count; ++i) {
        dst[i] = AddShifted(ShiftLeft32(in1[i], s.in1), 0, s);
    }
}

// Rounds half up. From 9 on every value vanishes, so larger counts, which could not be shifted by,
// may stand for one that can.
int8_t ShiftRightRounded(int8_t value, int32_t shift) {
    const int32_t count = std::min(shift, 9);
    return static_cast<int8_t>((value + (1 << (count - 1))) >> count);
}

} // namespace

void ArmAXorQ7(uint8_t* data, int32_t count) {
    for (int32_t i = 0; i < count; ++i) {
        data[i] ^= 0x80u;
    }
}

void ArmAReluChwQ7(const int8_t* src, int8_t* dst, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        dst[i] = std::max<int8_t>(src[i], 0);
    }
}

void ArmAZpadPlusChwQ7(const int8_t* in1, const int8_t* in2, int8_t* dst, uint16_t in1Shift,
                       uint16_t in2Shift, uint16_t outShift, uint16_t height, uint16_t width,
                       uint16_t outChannels, uint16_t in2Channels, void* /*scratch*/) {
    const size_t plane = size_t{height} * width;
    const uint32_t rounding = outShift >= 1 && outShift <= 32 ? 1u << (outShift - 1) : 0;
    const AddShifts shifts{in1Shift, in2Shift, outShift, rounding};
    // dst has no more planes than in1, whatever is said of in2.
    const size_t shared = std::min(in2Channels, outChannels);
    for (size_t c = 0; c < shared; ++c) {
        AddPlane(in1 + c * plane, in2 + c * plane, dst + c * plane, plane, shifts);
    }
    for (size_t c = shared; c < outChannels; ++c) {
        ShiftPlane(in1 + c * plane, dst + c * plane, plane, shifts);
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
