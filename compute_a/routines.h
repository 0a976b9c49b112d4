// SPDX-License-Identifier: MIT
//
// The inner routines of the kernels: what one instruction set does better than another. The
// exported functions check, expand and walk; everything that a profile shows goes through this
// table.
//
// Every path gives the same bytes. One path is chosen when the working memory is set, or by the first
// kernel that runs before: the best that the processor and the operating system have, or the one
// named by the environment variable ORVO_FR_PATH. A name that this build or machine does not have is
// reported once on standard error, and the best is taken.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orvo {

// dst = requantised(weights x rows): each of `channels` output planes is the weighted sum of
// `inner` input rows of `pixels` values. The generic convolution comes here with its im2col matrix,
// the pointwise one with the planes themselves.
struct MatrixProduct {
    const int8_t* rows;
    size_t rowPitch; // bytes from one row to the next
    size_t inner;
    size_t pixels;

    // Groups of four channels, interleaved: for each row the four weights stand side by side. A
    // leftover channel takes a group's space, too, and only its first `inner` bytes.
    const int8_t* weights;
    size_t groupBytes;
    size_t channels;
    const int32_t* bias;
    uint32_t shift;

    int8_t* dst;
    size_t planePitch;

    int8_t* scratch;
    size_t scratchBytes;
};

// Depthwise 3 x 3 convolution of planes with one row or column of zeros around them.
struct DepthwisePlanes {
    const int8_t* src;
    size_t width, height, channels;
    const int8_t* weights; // 9 a channel
    const int32_t* bias;
    uint32_t shift;
    int8_t lowest; // 0 rectifies, -128 does not
    int8_t* dst;
};

// Convolution 3 x 3 with stride 1 of planes with one row or column of zeros around them.
struct Convolution3x3 {
    const int8_t* src;
    size_t width, height, srcChannels;
    const int8_t* weights; // groups of four channels, interleaved, as in a matrix product
    size_t channels;
    const int32_t* bias;
    uint32_t shift;
    int8_t* dst;

    int8_t* scratch;
    size_t scratchBytes;
};

// The same of a single plane, by filters of 16 bits: what a convolution of equal planes comes to, whose
// filters are added up. See equal_planes.h.
struct PlaneConvolution {
    // A filter's rows, of three weights and a zero.
    using Filter = int16_t[3][4];
    static constexpr size_t kMostChannels = 32;
    static constexpr size_t kMostPlanes = 255; // whose weights' sums fit 16 bits

    const int8_t* src;
    size_t width, height;
    size_t planes; // that were added up: no weight's magnitude is above 128 times as much
    const Filter* filters;
    size_t channels; // up to kMostChannels
    const int32_t* bias;
    uint32_t shift;
    int8_t* dst;

    int8_t* scratch;
    size_t scratchBytes;
};

// Planes one after the other.
struct Planes {
    size_t width, height, channels;

    size_t planeBytes() const { return width * height; }
    size_t bytes() const { return planeBytes() * channels; }
};

// The shifts of a residual addition whose sum fits 16 bits: inputs up to 6, output up to 14.
struct AddShifts {
    uint32_t in1, in2, out;
};

struct Routines {
    const char* name;

    void (*multiply)(const MatrixProduct& product);
    void (*depthwise)(const DepthwisePlanes& planes);
    int32_t (*dot)(const int8_t* a, const int8_t* b, size_t count);
    // None of the next three is given planes without values, or none at all.
    // 2 x 2 maximum with stride 1: src is replaced by its horizontal maxima.
    void (*maxPoolStride1)(int8_t* src, const Planes& planes, int8_t* dst);
    // 2 x 2 maximum with stride 2; a last odd row or column is ignored.
    void (*maxPoolStride2)(const int8_t* src, const Planes& planes, int8_t* dst);
    // Every second value of every second row, from the first on.
    void (*sample)(const int8_t* src, const Planes& planes, int8_t* dst);
    void (*rectify)(const int8_t* src, int8_t* dst, size_t count);
    void (*flipSign)(uint8_t* data, size_t count);
    // in2 null: the shortcut counts as zero. dst may be in1 or in2.
    void (*add)(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count,
                const AddShifts& shifts);
    // Returns false, having done nothing, where its way of working does not fit. Null where a path
    // has none: the matrix product of the expanded input does for all.
    bool (*convolve3x3)(const Convolution3x3& convolution) = nullptr;
    // The same for a plane, which stands for equal ones. Every path has it.
    bool (*convolvePlane)(const PlaneConvolution& convolution) = nullptr;
};

// The path in use.
const Routines& ChosenRoutines();

// Every path that this build has and this machine can run, best first; the plain one is always the
// last. Returns how many. May ask the operating system for what a path needs, see routines.cpp.
constexpr size_t kMaxPaths = 8;
size_t AvailableRoutines(const Routines* paths[kMaxPaths]);

// One table a path, each in its folder of compute_a/simd/. Only those that the target can have exist.
extern const Routines kPlainRoutines;
extern const Routines kSse41Routines;
extern const Routines kAvx2Routines;
extern const Routines kAvxVnniRoutines;
extern const Routines kAvxVnniEvexRoutines;
extern const Routines kAvx512VnniRoutines;
extern const Routines kAmxRoutines;
extern const Routines kNeonRoutines;
extern const Routines kNeonDotRoutines;
extern const Routines kWasmSimdRoutines;
extern const Routines kRvvRoutines;

} // namespace orvo
