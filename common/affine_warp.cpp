// SPDX-License-Identifier: MIT
//
// Affine warps of float planes with bilinear interpolation, in single precision. Only the steps
// written as std::fma are fused; every other operation is rounded by itself, from left to right.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "common/float_steps.h"
#include "orvo/image_tools.h"

namespace {

constexpr float kIntLimit = 2147483648.0f;

struct Linear {
    float a, b, c, d;
};

// The linear part of the output-to-source map.
Linear OutputToSource(const float* matrix, bool isInverse) {
    const float m0 = matrix[0], m1 = matrix[1], m3 = matrix[3], m4 = matrix[4];
    if (isInverse) {
        return {m0, m1, m3, m4};
    }
    const float cross = m1 * m3;
    const float scale = 1.0f / std::fma(m0, m4, -cross);
    return {scale * m4, -(m1 * scale), -(m3 * scale), scale * m0};
}

// One float plane whose pixels outside count as 0.
struct Plane {
    const float* data;
    int32_t width, height;
    size_t stride;

    float at(int32_t x, int32_t y) const {
        return data[static_cast<size_t>(y) * stride + static_cast<size_t>(x)];
    }
};

// The pixel at or before a position above -2. False if neither it nor the one after it lies in
// 0 .. size - 1, which takes in positions that no integer holds.
bool FloorInside(float position, int32_t size, int32_t* floor) {
    const double shifted = static_cast<double>(position) + 2.0;
    if (!(shifted > -1.0 && shifted < static_cast<double>(size) + 2.0)) {
        return false;
    }
    const int64_t pixel = static_cast<int64_t>(shifted) - 2;
    *floor = static_cast<int32_t>(pixel);
    return pixel >= -1;
}

// Bilinear sample; values fade towards zero within one pixel of the border.
float Sample(const Plane& src, float positionX, float positionY) {
    int32_t x = 0;
    int32_t y = 0;
    if (!FloorInside(positionX, src.width, &x) || !FloorInside(positionY, src.height, &y)) {
        return 0.0f;
    }
    const float u = positionX - static_cast<float>(x);
    const float v = positionY - static_cast<float>(y);
    const float uv = u * v;
    const float w00 = uv - u + 1.0f - v;
    const float w10 = v - uv;
    const float w01 = u - uv;
    const float w11 = 1.0f - w01 - w00 - w10;
    const bool left = x >= 0;
    const bool top = y >= 0;
    const bool right = x < src.width - 1;
    const bool bottom = y < src.height - 1;
    float value = 0.0f;
    if (left && top) {
        value += w00 * src.at(x, y);
    }
    if (left && bottom) {
        value = std::fma(w10, src.at(x, y + 1), value);
    }
    if (right && top) {
        value = std::fma(w01, src.at(x + 1, y), value);
    }
    if (right && bottom) {
        value = std::fma(w11, src.at(x + 1, y + 1), value);
    }
    return value;
}

// A source plane of AffineWarpFloat(), and what stands for everything outside.
struct Source {
    const float* plane;
    uint32_t width, height;
    float fillValue;

    // Strictly inside: positions on the last column or row count as outside, and so do those that no
    // int holds.
    bool Has(float x, float y) const {
        const auto lies = [](float position, uint32_t size) {
            return size > 0 && position >= 0.0f && position < static_cast<float>(size - 1) &&
                   position < kIntLimit;
        };
        return lies(x, width) && lies(y, height);
    }
};

// Between two pixels of a row and the two below them.
float Blend(const float* upper, const float* lower, float fx, float fy) {
    const float left = upper[0] * (1.0f - fy) + fy * lower[0];
    const float right = (upper[1] * (1.0f - fy) + fy * lower[1]) * fx;
    return left * (1.0f - fx) + right;
}

float SampleOrFill(const Source& src, float x, float y) {
    if (!src.Has(x, y)) {
        return src.fillValue;
    }
    const size_t x0 = static_cast<size_t>(x);
    const size_t y0 = static_cast<size_t>(y);
    const float* const upper = src.plane + y0 * src.width + x0;
    return Blend(upper, upper + src.width, x - static_cast<float>(x0), y - static_cast<float>(y0));
}

// Columns of an output row that are made at a time.
constexpr int32_t kBlock = 32;

// One coordinate of the positions of a block's columns: the start of each, and a step for each row.
//
// Without an instruction for it a fused step is a call. But a start and a product of two floats are
// doubles, whose sum has no bit that a double has not where none of them is far smaller than the
// largest: then the sum, rounded to a float, is the same. Nearly every matrix is one for which it is.
class Coordinate {
  public:
    Coordinate(float columnStep, float rowStep, float offset, int32_t column, int32_t count,
               int32_t rows)
        : step_(rowStep) {
        for (int32_t i = 0; i < count; ++i) {
            starts_[i] = std::fma(columnStep, static_cast<float>(column + i), offset);
        }
        if constexpr (!kIsFmaFast) {
            isExact_ = SumsAreExact(count, rows);
            for (int32_t i = 0; i < count; ++i) {
                exactStarts_[i] = static_cast<double>(starts_[i]);
            }
        }
    }

    void Positions(int32_t row, int32_t count, float* positions) const {
        const auto number = static_cast<float>(row);
        if constexpr (!kIsFmaFast) {
            if (isExact_) {
                const double product = static_cast<double>(step_) * static_cast<double>(number);
                for (int32_t i = 0; i < count; ++i) {
                    positions[i] = static_cast<float>(product + exactStarts_[i]);
                }
                return;
            }
        }
        for (int32_t i = 0; i < count; ++i) {
            positions[i] = std::fma(step_, number, starts_[i]);
        }
    }

  private:
#ifdef FP_FAST_FMAF
    static constexpr bool kIsFmaFast = true;
#else
    static constexpr bool kIsFmaFast = false;
#endif

    // Every float is a whole number of 2^-24ths of itself and more, and a product by a row's number,
    // a whole one, is of these, too. A double holds 53 bits.
    bool SumsAreExact(int32_t count, int32_t rows) const {
        double largest = 0.0;
        double smallest = std::numeric_limits<double>::infinity();
        const auto add = [&](float value) {
            const double size = std::fabs(static_cast<double>(value));
            largest = std::max(largest, size);
            smallest = size > 0.0 ? std::min(smallest, size) : smallest;
        };
        std::for_each(starts_, starts_ + count, add);
        add(step_);
        return largest * (1.0 + static_cast<double>(rows)) <= smallest * 0x1p29;
    }

    float step_;
    bool isExact_ = false;
    float starts_[kBlock];
    double exactStarts_[kBlock];
};

// Samples at positions that all lie inside a plane of less than 2^32 pixels: in steps that compilers turn
// into vectors.
void SampleInside(const Source& src, const float* x, const float* y, int32_t count, float* dst) {
    float fx[kBlock], fy[kBlock];
    uint32_t offsets[kBlock];
    for (int32_t i = 0; i < count; ++i) {
        const auto column = static_cast<int32_t>(x[i]);
        const auto row = static_cast<int32_t>(y[i]);
        offsets[i] = static_cast<uint32_t>(row) * src.width + static_cast<uint32_t>(column);
        fx[i] = x[i] - static_cast<float>(column);
        fy[i] = y[i] - static_cast<float>(row);
    }
    float upper[2 * kBlock], lower[2 * kBlock]; // two neighbours for each position
    for (int32_t i = 0; i < count; ++i) {
        const float* const at = src.plane + offsets[i];
        std::memcpy(upper + 2 * i, at, 2 * sizeof *at);
        std::memcpy(lower + 2 * i, at + src.width, 2 * sizeof *at);
    }
    for (int32_t i = 0; i < count; ++i) {
        dst[i] = Blend(upper + 2 * i, lower + 2 * i, fx[i], fy[i]);
    }
}

void SampleOrFill(const Source& src, const float* x, const float* y, int32_t count, float* dst) {
    // Positions on a line: what lies between two that are inside is inside. Rounding keeps their order.
    const bool isInside = src.Has(x[0], y[0]) && src.Has(x[count - 1], y[count - 1]);
    if (isInside && uint64_t{src.width} * src.height <= UINT32_MAX) {
        SampleInside(src, x, y, count, dst);
        return;
    }
    for (int32_t i = 0; i < count; ++i) {
        dst[i] = SampleOrFill(src, x[i], y[i]);
    }
}

// One plane of AffineWarpFloat().
void WarpPlane(const Source& src, const float* matrix, int32_t width, int32_t height, float* dst) {
    for (int32_t column = 0; column < width; column += kBlock) {
        const int32_t count = std::min(kBlock, width - column);
        const Coordinate columnsX(matrix[0], matrix[1], matrix[2], column, count, height);
        const Coordinate columnsY(matrix[3], matrix[4], matrix[5], column, count, height);
        float* out = dst + column;
        for (int32_t row = 0; row < height; ++row, out += width) {
            float x[kBlock], y[kBlock];
            columnsX.Positions(row, count, x);
            columnsY.Positions(row, count, y);
            SampleOrFill(src, x, y, count, out);
        }
    }
}

} // namespace

void ImageWarpAffine(const float* src, float* dst, const float* matrix, int32_t width,
                     int32_t height, uint32_t stride, uint8_t inverseMap) {
    if (width < 1 || height < 1) {
        return;
    }
    const Linear map = OutputToSource(matrix, inverseMap != 0);
    const Plane plane{src, width, height, stride};
    for (int32_t y = 0; y < height; ++y) {
        const float fromTop = static_cast<float>(y) - matrix[5];
        for (int32_t x = 0; x < width; ++x) {
            const float fromLeft = static_cast<float>(x) - matrix[2];
            const float sourceX = std::fma(map.a, fromLeft, map.b * fromTop);
            const float sourceY = std::fma(map.c, fromLeft, map.d * fromTop);
            dst[static_cast<size_t>(y) * stride + static_cast<size_t>(x)] =
                Sample(plane, sourceX, sourceY);
        }
    }
}

uint32_t AffineWarpFloat(const float* src, uint32_t srcWidth, uint32_t srcHeight, float* dst,
                         int32_t dstWidth, int32_t dstHeight, int32_t channels, const float* matrix,
                         float fillValue) {
    if (dstWidth < 1 || dstHeight < 1 || channels < 1) {
        return 0;
    }
    const size_t srcPixels = static_cast<size_t>(srcWidth) * srcHeight;
    const size_t dstPixels = static_cast<size_t>(dstWidth) * static_cast<size_t>(dstHeight);
    for (int32_t channel = 0; channel < channels; ++channel, src += srcPixels, dst += dstPixels) {
        WarpPlane({src, srcWidth, srcHeight, fillValue}, matrix, dstWidth, dstHeight, dst);
    }
    return 0;
}
