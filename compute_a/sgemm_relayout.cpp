// SPDX-License-Identifier: MIT
//
// Re-layout of int8 convolution weights for a blocked matrix product: the rows of four output
// channels are woven together, so that one load brings the same input position of four filters.
//
// shape    outch filters, each a row of K bytes
// layout   slots of slotBytes: one for each four filters, then one for each leftover filter
// callers  none in the library: its models are stored in the order that its kernels read
#include <cstddef>
#include <cstring>

#include "orvo/q7_kernels.h"

namespace {

// Weaves four rows: `Run` consecutive bytes of each in turn, then what is left in single bytes.
template <size_t Run>
void WeaveRows(const int8_t* rows, size_t length, int8_t* slot) {
    size_t at = 0;
    for (; at + Run <= length; at += Run) {
        for (size_t row = 0; row < 4; ++row, slot += Run) {
            std::memcpy(slot, rows + row * length + at, Run);
        }
    }
    for (; at < length; ++at) {
        for (size_t row = 0; row < 4; ++row) {
            *slot++ = rows[row * length + at];
        }
    }
}

// Bytes of a slot that are not written stay as they were.
template <size_t Run>
void Relayout(const int8_t* weights, size_t length, size_t filters, size_t slotBytes,
              int8_t* output) {
    size_t filter = 0;
    for (; filter + 4 <= filters; filter += 4, output += slotBytes) {
        WeaveRows<Run>(weights + filter * length, length, output);
    }
    for (; filter < filters; ++filter, output += slotBytes) {
        std::memcpy(output, weights + filter * length, length);
    }
}

template <size_t Run>
void RelayoutPointwise(const int8_t* weights, int32_t inch, int32_t outch, int8_t* output) {
    if (weights == nullptr || output == nullptr || inch <= 0 || outch <= 0) {
        return;
    }
    const size_t length = static_cast<size_t>(inch);
    const size_t slotBytes = 16 * (length / 4 + length % 4);
    Relayout<Run>(weights, length, static_cast<size_t>(outch), slotBytes, output);
}

template <size_t Run>
void RelayoutIm2col(const int8_t* weights, int32_t inch, int32_t outch, int32_t kernelSize,
                    int8_t* output) {
    const int64_t length = int64_t{inch} * kernelSize;
    if (outch <= 0 || length <= 0) {
        return;
    }
    const size_t rowBytes = static_cast<size_t>(length);
    Relayout<Run>(weights, rowBytes, static_cast<size_t>(outch), 4 * rowBytes, output);
}

} // namespace

void conv1x1s1_sgemm_transform_kernel_int8_neon_32(const int8_t* weights, int32_t inch,
                                                   int32_t outch, int8_t* output) {
    RelayoutPointwise<1>(weights, inch, outch, output);
}

void conv1x1s1_sgemm_transform_kernel_int8_neon_64(const int8_t* weights, int32_t inch,
                                                   int32_t outch, int8_t* output) {
    RelayoutPointwise<2>(weights, inch, outch, output);
}

void conv_im2col_sgemm_transform_kernel_int8_neon_32(const int8_t* weights, int32_t inch,
                                                     int32_t outch, int32_t kernel_size,
                                                     int8_t* output) {
    RelayoutIm2col<1>(weights, inch, outch, kernel_size, output);
}

void conv_im2col_sgemm_transform_kernel_int8_neon_64(const int8_t* weights, int32_t inch,
                                                     int32_t outch, int32_t kernel_size,
                                                     int8_t* output) {
    RelayoutIm2col<2>(weights, inch, outch, kernel_size, output);
}
