// SPDX-License-Identifier: MIT
//
// Kernels that shrink a tensor plane by plane: maximum, sampling, average.
#include <cstddef>

#include "common/diagnostics.h"
#include "compute_a/bounded_writer.h"
#include "compute_a/requantise.h"
#include "compute_a/routines.h"
#include "orvo/q7_kernels.h"

namespace {

constexpr char kUnit[] = "../compute_a/arma_pool";
// The smallest Q7 value, so that the border never wins a maximum over real data.
constexpr int kBorder = INT8_MIN;

struct Border {
    size_t width, height, pad;

    size_t paddedWidth() const { return width + 2 * pad; }
    size_t paddedHeight() const { return height + 2 * pad; }
};

bool Fill(orvo::BoundedWriter& out, size_t count) {
    const int ret = out.Fill(kBorder, count);
    if (ret != 0) {
        ORVO_ERR(kUnit, "memset_s dst failed: %d\n", ret);
    }
    return ret == 0;
}

bool Copy(orvo::BoundedWriter& out, const int8_t* from, size_t count) {
    const int ret = out.Copy(from, count);
    if (ret != 0) {
        ORVO_ERR(kUnit, "memcpy_s dst failed: %d\n", ret);
    }
    return ret == 0;
}

bool PadPlane(const int8_t* src, const Border& b, orvo::BoundedWriter& out) {
    for (size_t y = 0; y < b.pad; ++y) {
        if (!Fill(out, b.paddedWidth())) {
            return false;
        }
    }
    for (size_t y = 0; y < b.height; ++y, src += b.width) {
        if (!Fill(out, b.pad) || !Copy(out, src, b.width) || !Fill(out, b.pad)) {
            return false;
        }
    }
    for (size_t y = 0; y < b.pad; ++y) {
        if (!Fill(out, b.paddedWidth())) {
            return false;
        }
    }
    return true;
}

bool PadPlanes(const int8_t* src, size_t channels, const Border& b, int8_t* scratch) {
    orvo::BoundedWriter out{scratch, channels * b.paddedWidth() * b.paddedHeight()};
    for (size_t c = 0; c < channels; ++c) {
        if (!PadPlane(src + c * b.width * b.height, b, out)) {
            return false;
        }
    }
    return true;
}

// In place an output lies at or before the inputs that it is made of, so that loops which take one
// value after the other come out right. Vectors may store more than that and replace it later, so
// the plain path serves there.
const orvo::Routines& RoutinesFor(const int8_t* src, const int8_t* dst) {
    return src == dst ? orvo::kPlainRoutines : orvo::ChosenRoutines();
}

// The mean of the values, shifted left first, rounded half away from zero.
int8_t ShiftedMean(const int8_t* plane, uint32_t count, uint32_t shift) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < count; ++i) {
        sum += static_cast<uint32_t>(plane[i]);
    }
    const int32_t shifted = shift < 32 ? static_cast<int32_t>(sum << shift) : 0;
    const int64_t divisor = static_cast<int32_t>(count);
    const int64_t half = divisor >> 1;
    // The numerator wraps at 32 bits like the sum before it.
    const int32_t numerator = static_cast<int32_t>(shifted >= 0 ? shifted + half : shifted - half);
    return orvo::SaturateQ7(static_cast<int32_t>(numerator / divisor));
}

} // namespace

void ArmAMaxPool2x2S2ChwQ7(const int8_t* src, int8_t* dst, uint32_t width, uint32_t height,
                           uint16_t channels, int32_t pad, int8_t* scratch) {
    if (pad < 0 || channels == 0) {
        return;
    }
    const Border border{width, height, static_cast<size_t>(pad)};
    if (pad != 0) {
        if (!PadPlanes(src, channels, border, scratch)) {
            return;
        }
        src = scratch;
    }
    const orvo::Planes planes{border.paddedWidth(), border.paddedHeight(), channels};
    if (planes.bytes() != 0) {
        orvo::ChosenRoutines().maxPoolStride2(src, planes, dst);
    }
}

void ArmAMaxpoolK2x2S1x1ChwQ7(int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
                              int8_t* dst, void* /*scratch*/) {
    const orvo::Planes planes{width, height, channels};
    if (planes.bytes() != 0) {
        RoutinesFor(src, dst).maxPoolStride1(src, planes, dst);
    }
}

void ArmADownsample(const int8_t* src, uint32_t width, int32_t height, uint32_t channels,
                    int8_t* dst, void* /*scratch*/) {
    if (height <= 0) {
        return;
    }
    const orvo::Planes planes{width, static_cast<size_t>(height), channels};
    if (planes.bytes() != 0) {
        RoutinesFor(src, dst).sample(src, planes, dst);
    }
}

void ArmAGapQ7Chw(const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
                  uint16_t shift, void* /*scratch*/, int8_t* dst) {
    const uint32_t count = width * height;
    if (count == 0) {
        return;
    }
    for (uint32_t c = 0; c < channels; ++c, src += count) {
        dst[c] = ShiftedMean(src, count, shift & 0xFFu);
    }
}
