// SPDX-License-Identifier: MIT
//
// Affine warps of float planes with bilinear interpolation, in single precision. Only the steps
// written as std::fma are fused; every other operation is rounded by itself, from left to right.
#include <cmath>
#include <cstddef>

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

// Bilinear sample strictly inside the plane; positions on its last column or row count as outside,
// and so do those that no int holds.
float SampleOrFill(const float* plane, uint32_t width, uint32_t height, float x, float y,
                   float fillValue) {
    const auto lies = [](float position, uint32_t size) {
        return size > 0 && position >= 0.0f && position < static_cast<float>(size - 1) &&
               position < kIntLimit;
    };
    const bool inside = lies(x, width) && lies(y, height);
    if (!inside) {
        return fillValue;
    }
    const size_t x0 = static_cast<size_t>(x);
    const size_t y0 = static_cast<size_t>(y);
    const float fx = x - static_cast<float>(x0);
    const float fy = y - static_cast<float>(y0);
    const float* upper = plane + y0 * width + x0;
    const float* lower = upper + width;
    const float left = upper[0] * (1.0f - fy) + fy * lower[0];
    const float right = (upper[1] * (1.0f - fy) + fy * lower[1]) * fx;
    return left * (1.0f - fx) + right;
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
    const size_t pitch = static_cast<size_t>(dstWidth);
    for (int32_t channel = 0; channel < channels; ++channel) {
        for (int32_t column = 0; column < dstWidth; ++column) {
            const float columnX = std::fma(matrix[0], static_cast<float>(column), matrix[2]);
            const float columnY = std::fma(matrix[3], static_cast<float>(column), matrix[5]);
            for (int32_t row = 0; row < dstHeight; ++row) {
                const float x = std::fma(matrix[1], static_cast<float>(row), columnX);
                const float y = std::fma(matrix[4], static_cast<float>(row), columnY);
                dst[static_cast<size_t>(row) * pitch + static_cast<size_t>(column)] =
                    SampleOrFill(src, srcWidth, srcHeight, x, y, fillValue);
            }
        }
        src += static_cast<size_t>(srcWidth) * srcHeight;
        dst += pitch * static_cast<size_t>(dstHeight);
    }
    return 0;
}
