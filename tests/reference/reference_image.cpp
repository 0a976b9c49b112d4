// SPDX-License-Identifier: MIT
#include "reference/reference_image.h"

#include <cmath>
#include <cstddef>

namespace orvo_reference {
namespace {

// Pixels that step by pixelBytes in rows that step by rowBytes.
void ResizeNearest(const uint8_t* src, uint8_t* dst, int32_t srcHeight, int32_t srcWidth,
                   int64_t rowBytes, int64_t pixelBytes, int32_t dstHeight, int32_t dstWidth) {
    if (dstHeight < 1 || dstWidth < 1 || pixelBytes < 1) {
        return;
    }
    const float sx = static_cast<float>(srcWidth) / static_cast<float>(dstWidth);
    const float sy = static_cast<float>(srcHeight) / static_cast<float>(dstHeight);
    for (int32_t y = 0; y < dstHeight; ++y) {
        for (int32_t x = 0; x < dstWidth; ++x) {
            const float row = static_cast<float>(y) * sy;
            const float column = static_cast<float>(x) * sx;
            const int64_t iy = static_cast<int32_t>(row);
            const int64_t ix = static_cast<int32_t>(column);
            for (int64_t k = 0; k < pixelBytes; ++k) {
                *dst++ = src[rowBytes * iy + pixelBytes * ix + k];
            }
        }
    }
}

// (int)(position + 2.0) - 2, or what is outside every plane where an int cannot hold the sum.
int64_t CellOf(float position) {
    const double sum = static_cast<double>(position) + 2.0;
    const bool convertible = sum > -2147483649.0 && sum < 2147483648.0;
    return convertible ? static_cast<int64_t>(sum) - 2 : INT64_MIN;
}

struct LinearMap {
    float a, b, c, d;
};

LinearMap OutputToInput(const float m[6], bool inverseMap) {
    if (inverseMap) {
        return {m[0], m[1], m[3], m[4]};
    }
    const float crossProduct = m[1] * m[3];
    const float inverse = 1.0f / std::fma(m[0], m[4], -crossProduct);
    return {inverse * m[4], -(m[1] * inverse), -(m[3] * inverse), inverse * m[0]};
}

struct Plane {
    const float* data;
    int64_t width, height, stride;

    float At(int64_t x, int64_t y) const { return data[y * stride + x]; }
};

float FadingSample(const Plane& plane, float X, float Y) {
    const int64_t x0 = CellOf(X);
    const int64_t y0 = CellOf(Y);
    if (x0 < -1 || x0 >= plane.width || y0 < -1 || y0 >= plane.height) {
        return 0.0f;
    }
    const float u = X - static_cast<float>(x0);
    const float v = Y - static_cast<float>(y0);
    const float uv = u * v;
    float w00 = uv - u;
    w00 = w00 + 1.0f;
    w00 = w00 - v;
    const float w10 = v - uv;
    const float w01 = u - uv;
    float w11 = 1.0f - w01;
    w11 = w11 - w00;
    w11 = w11 - w10;

    const bool left = x0 >= 0;
    const bool top = y0 >= 0;
    const bool right = x0 < plane.width - 1;
    const bool bottom = y0 < plane.height - 1;
    float value = 0.0f;
    if (left && top) {
        const float product = w00 * plane.At(x0, y0);
        value = value + product;
    }
    if (left && bottom) {
        value = std::fma(w10, plane.At(x0, y0 + 1), value);
    }
    if (right && top) {
        value = std::fma(w01, plane.At(x0 + 1, y0), value);
    }
    if (right && bottom) {
        value = std::fma(w11, plane.At(x0 + 1, y0 + 1), value);
    }
    return value;
}

float InnerSample(const Plane& plane, float X, float Y, float fillValue) {
    const float lastColumn = static_cast<float>(static_cast<uint32_t>(plane.width) - 1u);
    const float lastRow = static_cast<float>(static_cast<uint32_t>(plane.height) - 1u);
    if (!(X >= 0.0f && Y >= 0.0f && X < lastColumn && Y < lastRow)) {
        return fillValue;
    }
    if (X >= 2147483648.0f || Y >= 2147483648.0f) {
        return fillValue; // beyond the range of an int
    }
    const int64_t x0 = static_cast<int64_t>(X);
    const int64_t y0 = static_cast<int64_t>(Y);
    const float fx = X - static_cast<float>(x0);
    const float fy = Y - static_cast<float>(y0);
    const float fromTop = 1.0f - fy;
    const float fromLeft = 1.0f - fx;
    const float leftTop = plane.At(x0, y0) * fromTop;
    const float leftBottom = fy * plane.At(x0, y0 + 1);
    const float left = leftTop + leftBottom;
    const float rightTop = plane.At(x0 + 1, y0) * fromTop;
    const float rightBottom = fy * plane.At(x0 + 1, y0 + 1);
    const float rightSum = rightTop + rightBottom;
    const float right = rightSum * fx;
    const float leftShare = left * fromLeft;
    return leftShare + right;
}

// Rows that are left over after the groups of four each get the start of a slot of their own.
void CopyLeftoverRows(const int8_t* weights, int32_t rowLength, int32_t outch, uint64_t slotSize,
                      int8_t* output) {
    for (int32_t p = outch - outch % 4; p < outch; ++p) {
        const uint64_t slot = static_cast<uint64_t>(p / 4 + p % 4);
        for (int32_t i = 0; i < rowLength; ++i) {
            output[slot * slotSize + static_cast<uint64_t>(i)] =
                weights[int64_t{p} * rowLength + i];
        }
    }
}

} // namespace

void ResizeNearest8Bit(const uint8_t* src, uint8_t* dst, int32_t srcHeight, int32_t srcWidth,
                       int32_t channels, int32_t dstHeight, int32_t dstWidth) {
    ResizeNearest(src, dst, srcHeight, srcWidth, int64_t{channels} * srcWidth,
                  int64_t{channels / 2} * 2, dstHeight, dstWidth);
}

void ResizeNearest4Bit(const uint8_t* src, uint8_t* dst, int32_t srcHeight, int32_t srcWidth,
                       int32_t channels, int32_t dstHeight, int32_t dstWidth) {
    ResizeNearest(src, dst, srcHeight, srcWidth, int64_t{channels / 2} * srcWidth, channels / 2,
                  dstHeight, dstWidth);
}

void WarpPlane(const float* src, float* dst, const float matrix[6], int32_t width, int32_t height,
               uint32_t stride, bool inverseMap) {
    const LinearMap map = OutputToInput(matrix, inverseMap);
    const Plane plane = {src, width, height, stride};
    for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < width; ++x) {
            const float dx = static_cast<float>(x) - matrix[2];
            const float dy = static_cast<float>(y) - matrix[5];
            const float rowShareX = map.b * dy;
            const float rowShareY = map.d * dy;
            const float X = std::fma(map.a, dx, rowShareX);
            const float Y = std::fma(map.c, dx, rowShareY);
            dst[static_cast<size_t>(y) * stride + static_cast<size_t>(x)] =
                FadingSample(plane, X, Y);
        }
    }
}

void WarpPlanes(const float* src, uint32_t srcWidth, uint32_t srcHeight, float* dst,
                int32_t dstWidth, int32_t dstHeight, int32_t channels, const float matrix[6],
                float fillValue) {
    for (int32_t c = 0; c < channels; ++c) {
        for (int32_t i = 0; i < dstHeight; ++i) {
            for (int32_t j = 0; j < dstWidth; ++j) {
                const float row = static_cast<float>(i);
                const float column = static_cast<float>(j);
                const float X = std::fma(matrix[1], row, std::fma(matrix[0], column, matrix[2]));
                const float Y = std::fma(matrix[4], row, std::fma(matrix[3], column, matrix[5]));
                const Plane plane = {src, srcWidth, srcHeight, srcWidth};
                *dst++ = InnerSample(plane, X, Y, fillValue);
            }
        }
        src += static_cast<size_t>(srcWidth) * srcHeight;
    }
}

uint64_t SlotCount(int32_t outch) {
    return outch < 0 ? 0 : static_cast<uint64_t>(outch / 4 + outch % 4);
}

uint64_t PointwiseSlotSize(int32_t inch) { return 16 * static_cast<uint64_t>(inch / 4 + inch % 4); }

uint64_t Im2colSlotSize(int32_t rowLength) { return 4 * static_cast<uint64_t>(rowLength); }

void InterleaveElements(const int8_t* weights, int32_t rowLength, int32_t outch, uint64_t slotSize,
                        int8_t* output) {
    for (int32_t q = 0; q < outch / 4; ++q) {
        int8_t* out = output + static_cast<uint64_t>(q) * slotSize;
        for (int32_t i = 0; i < rowLength; ++i) {
            for (int32_t r = 0; r < 4; ++r) {
                *out++ = weights[int64_t{4 * q + r} * rowLength + i];
            }
        }
    }
    CopyLeftoverRows(weights, rowLength, outch, slotSize, output);
}

void InterleavePairs(const int8_t* weights, int32_t rowLength, int32_t outch, uint64_t slotSize,
                     int8_t* output) {
    for (int32_t q = 0; q < outch / 4; ++q) {
        int8_t* out = output + static_cast<uint64_t>(q) * slotSize;
        for (int32_t i = 0; i < rowLength; i += 2) {
            const int32_t together = i + 1 < rowLength ? 2 : 1;
            for (int32_t r = 0; r < 4; ++r) {
                for (int32_t k = 0; k < together; ++k) {
                    *out++ = weights[int64_t{4 * q + r} * rowLength + i + k];
                }
            }
        }
    }
    CopyLeftoverRows(weights, rowLength, outch, slotSize, output);
}

} // namespace orvo_reference
