// SPDX-License-Identifier: MIT
//
// The three convolutions in HWC order. They give the same bytes and differ in how they walk the
// data: plainly, in bands and four pixels at a time, or four output channels at a time.
//
// shape       src H x W x Ci, dst N pixels x Co, dot-product length K = k * k * Ci
// layout      weights Co rows of K in the order kernel row, kernel column, channel; scratch N
// im2col
//             columns of K
// arithmetic  int8 x int8 into a wrapping 32-bit sum, + bias, >> shift (floor), saturate
// memory      scratch N * K bytes, every write bounded by the size given
// callers     none in the library: the readable definition of its convolution arithmetic
#include <algorithm>
#include <cstddef>

#include "common/diagnostics.h"
#include "compute_a/bounded_writer.h"
#include "compute_a/requantise.h"
#include "orvo/q7_kernels.h"

namespace {

constexpr char kUnit[] = "../compute_a/arma_conv";

// A convolution of HWC tensors. Input positions are signed and wide: those in the padding are
// plainly negative, and no product of 16-bit arguments overflows.
struct HwcConvolution {
    const int8_t* src;
    int32_t srcWidth, srcHeight, srcChannels;
    const int8_t* weights;
    int32_t dstChannels;
    int32_t kernelSize, pad, stride;
    const int32_t* bias;
    uint32_t outShift;
    int8_t* dst;
    int32_t dstWidth, dstHeight;
    int8_t* scratch;
    uint32_t scratchSize;

    bool hasRow(int64_t iy) const { return iy >= 0 && iy < srcHeight; }
    bool hasColumn(int64_t ix) const { return ix >= 0 && ix < srcWidth; }
    int64_t firstRow(int32_t oy) const { return int64_t{oy} * stride - pad; }
    int64_t firstColumn(int32_t ox) const { return int64_t{ox} * stride - pad; }
    const int8_t* pixel(int64_t iy, int64_t ix) const {
        return src + static_cast<ptrdiff_t>((iy * srcWidth + ix) * srcChannels);
    }
    // Length of an im2col column in the scratch.
    size_t columnBytes() const {
        return static_cast<size_t>(kernelSize) * static_cast<size_t>(kernelSize) *
               static_cast<size_t>(srcChannels);
    }
    // Length of a dot product: the kernels count it in 16 bits.
    uint16_t dotLength() const { return static_cast<uint16_t>(columnBytes()); }
    size_t pixels() const {
        return dstHeight > 0 ? static_cast<size_t>(dstWidth) * static_cast<size_t>(dstHeight) : 0;
    }
};

// The fixed lines that a step's failures are reported with.
struct StepLines {
    int fill;
    int copy;
};

constexpr StepLines kNaiveLines{1886, 1894};
constexpr StepLines kTopBandLines{1970, 1978};
constexpr StepLines kLeftColumnLines{2001, 2008};
constexpr StepLines kInteriorLines{2026, 2026};
constexpr StepLines kRightColumnLines{2044, 2051};
constexpr StepLines kBottomBandLines{2072, 2079};
constexpr StepLines kPointwiseLines{2096, 2096};
constexpr StepLines kNaive2Lines{2259, 2267};

// Writes the im2col matrix. After the first failure `status` holds its code.
struct ScratchWriter {
    orvo::BoundedWriter out;
    int32_t status = 0;

    bool Zeros(uint32_t count, const StepLines& lines) {
        status = out.Fill(0, count);
        if (status != 0) {
            ORVO_ERR_AT(kUnit, lines.fill, "memset_s tmpBuffer failed: %d\n", status);
        }
        return status == 0;
    }

    bool Copy(const int8_t* from, uint32_t count, const StepLines& lines) {
        status = out.Copy(from, count);
        if (status != 0) {
            ORVO_ERR_AT(kUnit, lines.copy, "memcpy_s tmpBuffer failed: %d\n", status);
        }
        return status == 0;
    }
};

// One kernel row of one column, tap by tap: pixels outside the input are zeros.
bool PutKernelRow(const HwcConvolution& h, int64_t iy, int64_t first, const StepLines& lines,
                  ScratchWriter& out) {
    const uint32_t channels = static_cast<uint32_t>(h.srcChannels);
    for (int32_t kx = 0; kx < h.kernelSize; ++kx) {
        const int64_t ix = first + kx;
        const bool inside = h.hasRow(iy) && h.hasColumn(ix);
        if (!(inside ? out.Copy(h.pixel(iy, ix), channels, lines) : out.Zeros(channels, lines))) {
            return false;
        }
    }
    return true;
}

// The im2col columns of the output pixels (oy, from) to (oy, to - 1), every tap checked.
bool PutColumns(const HwcConvolution& h, int32_t oy, int32_t from, int32_t to,
                const StepLines& lines, ScratchWriter& out) {
    for (int32_t ox = from; ox < to; ++ox) {
        for (int32_t ky = 0; ky < h.kernelSize; ++ky) {
            if (!PutKernelRow(h, h.firstRow(oy) + ky, h.firstColumn(ox), lines, out)) {
                return false;
            }
        }
    }
    return true;
}

bool PutRows(const HwcConvolution& h, int32_t from, int32_t to, const StepLines& lines,
             ScratchWriter& out) {
    for (int32_t oy = from; oy < to; ++oy) {
        if (!PutColumns(h, oy, 0, h.dstWidth, lines, out)) {
            return false;
        }
    }
    return true;
}

// Columns whose footprint usually lies wholly inside the input: each kernel row is one copy. Where
// the geometry is unusual and it does not, the row is put tap by tap.
bool PutInteriorColumns(const HwcConvolution& h, int32_t oy, int32_t from, int32_t to,
                        ScratchWriter& out) {
    const uint32_t runBytes =
        static_cast<uint32_t>(h.kernelSize) * static_cast<uint32_t>(h.srcChannels);
    for (int32_t ox = from; ox < to; ++ox) {
        const int64_t first = h.firstColumn(ox);
        const bool columnsInside = first >= 0 && first + h.kernelSize <= h.srcWidth;
        for (int32_t ky = 0; ky < h.kernelSize; ++ky) {
            const int64_t iy = h.firstRow(oy) + ky;
            const bool done = columnsInside && h.hasRow(iy)
                                  ? out.Copy(h.pixel(iy, first), runBytes, kInteriorLines)
                                  : PutKernelRow(h, iy, first, kInteriorLines, out);
            if (!done) {
                return false;
            }
        }
    }
    return true;
}

// The im2col matrix in three bands: only output rows and columns within `pad` of the border can
// meet the padding in the usual geometry.
bool PutBands(const HwcConvolution& h, ScratchWriter& out) {
    const int32_t topEnd = std::min(h.pad, h.dstHeight);
    const int32_t middleEnd = std::max(topEnd, h.dstHeight - h.pad);
    const int32_t leftEnd = std::min(h.pad, h.dstWidth);
    const int32_t interiorEnd = std::max(leftEnd, h.dstWidth - h.pad);
    if (!PutRows(h, 0, topEnd, kTopBandLines, out)) {
        return false;
    }
    for (int32_t oy = topEnd; oy < middleEnd; ++oy) {
        if (!PutColumns(h, oy, 0, leftEnd, kLeftColumnLines, out) ||
            !PutInteriorColumns(h, oy, leftEnd, interiorEnd, out) ||
            !PutColumns(h, oy, interiorEnd, h.dstWidth, kRightColumnLines, out)) {
            return false;
        }
    }
    return PutRows(h, middleEnd, h.dstHeight, kBottomBandLines, out);
}

bool IsPointwise(const HwcConvolution& h) {
    return h.pad == 0 && h.kernelSize == 1 && h.stride == 1;
}

void Store(const HwcConvolution& h, size_t pixel, size_t channel, int32_t sum) {
    h.dst[pixel * static_cast<size_t>(h.dstChannels) + channel] =
        orvo::RequantiseQ7(static_cast<uint32_t>(sum), h.bias[channel], h.outShift);
}

// One output from its im2col column.
void Multiply(const HwcConvolution& h, size_t pixel, size_t channel) {
    const size_t length = h.columnBytes();
    Store(h, pixel, channel,
          MultAccumulate(h.scratch + pixel * length, h.weights + channel * length, h.dotLength()));
}

void MultiplyPlainly(const HwcConvolution& h) {
    for (size_t pixel = 0; pixel < h.pixels(); ++pixel) {
        for (size_t channel = 0; channel < static_cast<size_t>(h.dstChannels); ++channel) {
            Multiply(h, pixel, channel);
        }
    }
}

void MultiplyFourPixels(const HwcConvolution& h) {
    const size_t length = h.columnBytes();
    const size_t channels = static_cast<size_t>(h.dstChannels);
    size_t pixel = 0;
    for (; pixel + 4 <= h.pixels(); pixel += 4) {
        const int8_t* column = h.scratch + pixel * length;
        for (size_t channel = 0; channel < channels; ++channel) {
            int32_t sums[4];
            MultAccumulate4(column, column + length, column + 2 * length, column + 3 * length,
                            h.weights + channel * length, h.dotLength(), sums);
            for (size_t i = 0; i < 4; ++i) {
                Store(h, pixel + i, channel, sums[i]);
            }
        }
    }
    for (; pixel < h.pixels(); ++pixel) {
        for (size_t channel = 0; channel < channels; ++channel) {
            Multiply(h, pixel, channel);
        }
    }
}

void MultiplyFourChannels(const HwcConvolution& h) {
    const size_t length = h.columnBytes();
    const size_t channels = static_cast<size_t>(h.dstChannels);
    for (size_t pixel = 0; pixel < h.pixels(); ++pixel) {
        const int8_t* column = h.scratch + pixel * length;
        size_t channel = 0;
        for (; channel + 4 <= channels; channel += 4) {
            const int8_t* row = h.weights + channel * length;
            int32_t sums[4];
            MultAccumulate4(row, row + length, row + 2 * length, row + 3 * length, column,
                            h.dotLength(), sums);
            for (size_t i = 0; i < 4; ++i) {
                Store(h, pixel, channel + i, sums[i]);
            }
        }
        for (; channel < channels; ++channel) {
            Multiply(h, pixel, channel);
        }
    }
}

} // namespace

int32_t ArmAConvHWCQ7Naive(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,
                           uint16_t srcChannels, const int8_t* weights, uint16_t dstChannels,
                           uint16_t kernelSize, uint16_t pad, uint16_t stride, const int32_t* bias,
                           uint16_t outShift, int8_t* dst, uint16_t dstWidth, int16_t dstHeight,
                           int8_t* tmpBuffer, uint32_t tmpBufferSize) {
    const HwcConvolution h{src,        srcWidth,  srcHeight, srcChannels,  weights,  dstChannels,
                           kernelSize, pad,       stride,    bias,         outShift, dst,
                           dstWidth,   dstHeight, tmpBuffer, tmpBufferSize};
    ScratchWriter out{{tmpBuffer, tmpBufferSize}};
    if (!PutRows(h, 0, h.dstHeight, kNaiveLines, out)) {
        return out.status;
    }
    MultiplyPlainly(h);
    return 0;
}

int32_t ArmAConvHWCQ7Naive1(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,
                            uint16_t srcChannels, const int8_t* weights, uint16_t dstChannels,
                            uint16_t kernelSize, uint16_t pad, uint16_t stride, const int32_t* bias,
                            uint16_t outShift, int8_t* dst, uint16_t dstWidth, int16_t dstHeight,
                            int8_t* tmpBuffer, uint32_t tmpBufferSize) {
    const HwcConvolution h{src,        srcWidth,  srcHeight, srcChannels,  weights,  dstChannels,
                           kernelSize, pad,       stride,    bias,         outShift, dst,
                           dstWidth,   dstHeight, tmpBuffer, tmpBufferSize};
    ScratchWriter out{{tmpBuffer, tmpBufferSize}};
    const bool done =
        IsPointwise(h) ? PutRows(h, 0, h.dstHeight, kPointwiseLines, out) : PutBands(h, out);
    if (!done) {
        return out.status;
    }
    MultiplyFourPixels(h);
    return 0;
}

int32_t ArmAConvHWCQ7Naive2(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,
                            uint16_t srcChannels, const int8_t* weights, uint16_t dstChannels,
                            uint16_t kernelSize, uint16_t pad, uint16_t stride, const int32_t* bias,
                            uint16_t outShift, int8_t* dst, uint16_t dstWidth, int16_t dstHeight,
                            int8_t* tmpBuffer, uint32_t tmpBufferSize) {
    const HwcConvolution h{src,        srcWidth,  srcHeight, srcChannels,  weights,  dstChannels,
                           kernelSize, pad,       stride,    bias,         outShift, dst,
                           dstWidth,   dstHeight, tmpBuffer, tmpBufferSize};
    ScratchWriter out{{tmpBuffer, tmpBufferSize}};
    if (!PutRows(h, 0, h.dstHeight, kNaive2Lines, out)) {
        return out.status;
    }
    MultiplyFourChannels(h);
    return 0;
}
