// SPDX-License-Identifier: MIT
//
// Maximum pools and sampling by their definitions.
#include <algorithm>

#include "compute_a/simd/plain/routines.h"
#include "compute_a/simd/planes_of_rows.h"

namespace orvo {

void plain::MaxPoolStride1(int8_t* src, size_t width, size_t height, int8_t* dst) {
    const size_t columns = width - 1;
    for (size_t y = 0; y < height; ++y) {
        int8_t* row = src + y * width;
        for (size_t x = 0; x < columns; ++x) {
            row[x] = std::max(row[x], row[x + 1]);
        }
    }
    for (size_t y = 0; y + 1 < height; ++y) {
        const int8_t* row = src + y * width;
        for (size_t x = 0; x < columns; ++x) {
            *dst++ = std::max(row[x], row[x + width]);
        }
    }
}

void plain::MaxPoolRows(const int8_t* upper, const int8_t* lower, size_t dstWidth, int8_t* dst) {
    for (size_t x = 0; x < dstWidth; ++x) {
        dst[x] = std::max(std::max(upper[2 * x], upper[2 * x + 1]),
                          std::max(lower[2 * x], lower[2 * x + 1]));
    }
}

void plain::SampleRow(const int8_t* src, size_t dstWidth, int8_t* dst) {
    for (size_t x = 0; x < dstWidth; ++x) {
        dst[x] = src[2 * x];
    }
}

void plain::MaxPoolStride1(int8_t* src, const Planes& planes, int8_t* dst) {
    MaxPoolStride1ByPlanes<plain::MaxPoolStride1>(src, planes, dst);
}

void plain::MaxPoolStride2(const int8_t* src, const Planes& planes, int8_t* dst) {
    MaxPoolStride2ByRows<plain::MaxPoolRows>(src, planes, dst);
}

void plain::Sample(const int8_t* src, const Planes& planes, int8_t* dst) {
    SampleByRows<plain::SampleRow>(src, planes, dst);
}

} // namespace orvo
