// SPDX-License-Identifier: MIT
//
// Routines for planes made of those for a plane, a row or two.
//
// They are static: files for several instruction sets make them of the same routine, each with its
// own instructions, and the linker would keep any one of them for all, also on a processor without
// these.
#pragma once

#include "compute_a/routines.h"

namespace orvo {

template <void (*kPlane)(int8_t* src, size_t width, size_t height, int8_t* dst)>
static void MaxPoolStride1ByPlanes(int8_t* src, const Planes& planes, int8_t* dst) {
    for (size_t c = 0; c < planes.channels; ++c, src += planes.planeBytes()) {
        kPlane(src, planes.width, planes.height, dst);
        dst += (planes.width - 1) * (planes.height - 1);
    }
}

template <void (*kRows)(const int8_t* upper, const int8_t* lower, size_t dstWidth, int8_t* dst)>
static void MaxPoolStride2ByRows(const int8_t* src, const Planes& planes, int8_t* dst) {
    const size_t dstWidth = planes.width / 2;
    for (size_t c = 0; c < planes.channels; ++c, src += planes.planeBytes()) {
        const int8_t* row = src;
        for (size_t y = 0; y < planes.height / 2; ++y, row += 2 * planes.width, dst += dstWidth) {
            kRows(row, row + planes.width, dstWidth, dst);
        }
    }
}

template <void (*kRow)(const int8_t* src, size_t dstWidth, int8_t* dst)>
static void SampleByRows(const int8_t* src, const Planes& planes, int8_t* dst) {
    const size_t dstWidth = (planes.width + 1) / 2;
    for (size_t c = 0; c < planes.channels; ++c, src += planes.planeBytes()) {
        for (size_t y = 0; y < planes.height; y += 2, dst += dstWidth) {
            kRow(src + y * planes.width, dstWidth, dst);
        }
    }
}

} // namespace orvo
