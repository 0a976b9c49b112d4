/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The Q7 kernels: convolutions, pooling and element-wise operations on signed 8-bit tensors.
 *
 * Tensors. Unless a function says otherwise a tensor is in CHW order: planes of height x width
 * signed bytes, rows and planes contiguous, no header; the element at (c, y, x) has the index
 * (c * height + y) * width + x. Sizes travel with every call. A value v with fixed-point position s
 * stands for v / 2^s; positions are implied by the shift arguments.
 *
 * Arithmetic. Products are exact; sums, the 32-bit bias included, wrap at 32 bits. Requantisation
 * of the convolutions: add the bias unshifted, shift right arithmetically by outShift (towards
 * minus infinity, no rounding term; 32 and more leaves the sign), saturate to [-128, 127]. The same
 * arguments give the same bytes on every processor.
 *
 * Memory. Nothing is allocated and no state is kept, so calls on disjoint buffers may run in
 * parallel. Inputs and weights are only read, unless stated. No byte outside the stated sizes is
 * touched and no alignment beyond the element type's is needed. Pointers and sizes are the caller's
 * duty: they are not checked.
 */
#ifndef ORVO_Q7_KERNELS_H
#define ORVO_Q7_KERNELS_H

#include <stdint.h>

#include "orvo/export.h"

ORVO_C_BEGIN

/* ---- Convolutions in CHW order: one argument list ------------------------------------------- */

/**
 * Square-kernel convolution with zero padding and stride (im2col and integer matrix product).
 *
 * With K = srcChannels * kernelSize^2 and N = dstWidth * dstHeight:
 *
 * @param src          srcChannels x srcHeight x srcWidth
 * @param weights      packed. A dot product runs over input channel, kernel row, kernel column.
 *                     Group g of four output channels starts at byte 4 * K * g: for each k the
 *                     weights of channels 4g .. 4g+3 side by side. The r-th of the dstChannels % 4
 *                     leftover channels starts at 4 * K * (dstChannels / 4 + r), K bytes in the
 *                     order of k. For five channels, a to e:
 *
 *       byte 0                      4 * K                       8 * K
 *            | a0 b0 c0 d0 | a1 b1 c1 d1 | ... | e0 e1 e2 ... | unused |
 *              k = 0         k = 1                k = 0, 1, 2 ...
 *
 * @param pad          zero rows and columns before the first; positions beyond the right and
 *                     bottom edge read as zero too
 * @param stride       step between output positions
 * @param bias         one per output channel, at the accumulator's fixed-point position
 * @param dst          dstChannels x dstHeight x dstWidth; must not overlap src or tmpBuffer
 * @param dstWidth,dstHeight  taken as given, not derived
 * @param tmpBuffer    scratch: K * N rounded up to a multiple of 4, plus 8 * K * (N / 8 + N % 8)
 *                     bytes
 */
ORVO_API void arma_convolve_chw_q7(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,
                                   uint16_t srcChannels, const int8_t* weights,
                                   uint16_t dstChannels, uint16_t kernelSize, uint16_t pad,
                                   uint16_t stride, const int32_t* bias, uint16_t outShift,
                                   int8_t* dst, uint16_t dstWidth, uint16_t dstHeight,
                                   int8_t* tmpBuffer);

/**
 * Pointwise (1 x 1) convolution. Any other kernelSize, pad or stride than 1, 0, 1 returns at once
 * with nothing written.
 *
 * With Ci = srcChannels, N = srcWidth * srcHeight, M = dstWidth * dstHeight (a correct caller makes
 * M equal to N) and S = Ci / 4 + Ci % 4:
 *
 * @param weights    packed. Group g of four output channels starts at byte 16 * S * g: for each
 *                   input channel the weights of channels 4g .. 4g+3 side by side. The r-th of the
 *                   dstChannels % 4 leftover channels starts at 16 * S * (dstChannels / 4 + r).
 *                   For five channels, a to e, and three inputs (S = 3):
 *
 *       byte 0                                48                      96
 *            | a0 b0 c0 d0 | a1 b1 c1 d1 | a2 b2 c2 d2 | unused | e0 e1 e2 | unused |
 *              input 0       input 1       input 2
 *
 * @param dst        plane p starts at byte p * M; must not overlap src or tmpBuffer
 * @param tmpBuffer  scratch: 32 * S * (N / 8 + (N % 8) / 4 + N % 4) bytes
 *
 * The other arguments are those of arma_convolve_chw_q7().
 */
ORVO_API void ArmAConvolve1x1s1p0ChwQ7(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,
                                       uint16_t srcChannels, const int8_t* weights,
                                       uint16_t dstChannels, uint16_t kernelSize, uint16_t pad,
                                       uint16_t stride, const int32_t* bias, uint16_t outShift,
                                       int8_t* dst, uint16_t dstWidth, uint16_t dstHeight,
                                       int8_t* tmpBuffer);

/**
 * Depthwise 3 x 3 convolution, stride 1. Any other kernelSize or stride returns at once with
 * nothing written.
 *
 * With W = srcWidth + 2 * pad and H = srcHeight + 2 * pad:
 *
 * @param weights      9 bytes per channel, row-major, channels back to back. For channels a, b:
 *
 *       | a00 a01 a02 a10 a11 a12 a20 a21 a22 | b00 b01 ... b22 |     aYX: row Y, column X
 *
 * @param dstChannels  channels computed; should equal srcChannels
 * @param dst          must not overlap src or tmpBuffer
 * @param dstWidth,dstHeight  must be W - 2 and H - 2. They are not checked: the input is walked two
 *                     rows at a time, advancing by dstWidth + 2 + W bytes.
 * @param tmpBuffer    scratch: srcChannels * W * H bytes, untouched when pad is 0. What is in it
 *                     afterwards is unspecified.
 *
 * A failed bounded fill or copy of the padding is reported on standard error; the rest of its
 * padded row is not made, and the call goes on with the next row. So a null src gives a report for
 * each of its rows and a convolution of what the scratch then holds; a null tmpBuffer gives a
 * report for each padded row, and dst is left alone. With dstChannels 0 the padding is made and
 * nothing else. Otherwise, where memcpy_s and memset_s are the library's own, which cannot fail
 * here, the padding may be done without them.
 */
ORVO_API void arma_convolvedw_3x3_s1_chw_q7(const int8_t* src, uint16_t srcWidth,
                                            uint16_t srcHeight, uint16_t srcChannels,
                                            const int8_t* weights, uint16_t dstChannels,
                                            uint16_t kernelSize, uint16_t pad, uint16_t stride,
                                            const int32_t* bias, uint16_t outShift, int8_t* dst,
                                            uint16_t dstWidth, uint16_t dstHeight,
                                            int8_t* tmpBuffer);

/**
 * arma_convolvedw_3x3_s1_chw_q7() with a rectifier after the saturation (results 0 .. 127). A
 * failed bounded fill or copy of the padding, such as with a null src or tmpBuffer, is reported on
 * standard error and ends the call; dst is then untouched.
 */
ORVO_API void ArmAConvolvedwRelu3x3s1ChwQ7(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,
                                           uint16_t srcChannels, const int8_t* weights,
                                           uint16_t dstChannels, uint16_t kernelSize, uint16_t pad,
                                           uint16_t stride, const int32_t* bias, uint16_t outShift,
                                           int8_t* dst, uint16_t dstWidth, uint16_t dstHeight,
                                           int8_t* tmpBuffer);

/* ---- Reference convolutions in HWC order ----------------------------------------------------- */

/**
 * Square-kernel convolution of HWC tensors (the channels of one pixel side by side), walking the
 * data plainly: the readable definition of the convolution arithmetic.
 *
 * With K = kernelSize^2 * srcChannels (below 65536) and N = dstWidth * dstHeight:
 *
 * @param weights        dstChannels rows of K bytes, in the order kernel row, kernel column,
 *                       channel
 * @param dst            N pixels of dstChannels bytes; must not overlap src or tmpBuffer
 * @param dstHeight      signed; below 1 nothing is written
 * @param tmpBuffer      scratch, receives the im2col matrix: N columns of K bytes
 * @param tmpBufferSize  bytes at tmpBuffer; at least N * K
 * @return 0, or the code of the bounded copy or fill that failed (tmpBufferSize too small): then a
 *         line is printed on standard error and dst is unwritten
 *
 * Sizes above 32767 are not supported.
 */
ORVO_API int32_t ArmAConvHWCQ7Naive(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,
                                    uint16_t srcChannels, const int8_t* weights,
                                    uint16_t dstChannels, uint16_t kernelSize, uint16_t pad,
                                    uint16_t stride, const int32_t* bias, uint16_t outShift,
                                    int8_t* dst, uint16_t dstWidth, int16_t dstHeight,
                                    int8_t* tmpBuffer, uint32_t tmpBufferSize);

/** ArmAConvHWCQ7Naive() in three bands of rows, four pixels at a time. Same results. */
ORVO_API int32_t ArmAConvHWCQ7Naive1(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,
                                     uint16_t srcChannels, const int8_t* weights,
                                     uint16_t dstChannels, uint16_t kernelSize, uint16_t pad,
                                     uint16_t stride, const int32_t* bias, uint16_t outShift,
                                     int8_t* dst, uint16_t dstWidth, int16_t dstHeight,
                                     int8_t* tmpBuffer, uint32_t tmpBufferSize);

/** ArmAConvHWCQ7Naive() with four output channels at a time. Same results. */
ORVO_API int32_t ArmAConvHWCQ7Naive2(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,
                                     uint16_t srcChannels, const int8_t* weights,
                                     uint16_t dstChannels, uint16_t kernelSize, uint16_t pad,
                                     uint16_t stride, const int32_t* bias, uint16_t outShift,
                                     int8_t* dst, uint16_t dstWidth, int16_t dstHeight,
                                     int8_t* tmpBuffer, uint32_t tmpBufferSize);

/** @return the sum of vecA[i] * vecB[i] over length elements, wrapping at 32 bits */
ORVO_API int32_t MultAccumulate(const int8_t* vecA, const int8_t* vecB, uint32_t length);

/** result[i] = the sum of vec<i>[k] * vecB[k] over length elements, for the four vectors. */
ORVO_API void MultAccumulate4(const int8_t* vec0, const int8_t* vec1, const int8_t* vec2,
                              const int8_t* vec3, const int8_t* vecB, uint16_t length,
                              int32_t result[4]);

/* ---- From a tensor to a vector --------------------------------------------------------------- */

/**
 * Global depthwise convolution: dst[c] = requantised(bias[c] + plane c times weight plane c).
 *
 * @param weights   channels planes of width x height
 * @param outShift  only the low 8 bits count; 32 and more leaves the sign
 * @param dst       channels values; must not overlap src
 * @param scratch   ignored
 */
ORVO_API void ArmAConvolveGlobalChwQ7(const int8_t* src, uint32_t width, uint32_t height,
                                      uint32_t channels, const int8_t* weights, const int32_t* bias,
                                      uint16_t outShift, int8_t* dst, void* scratch);

/**
 * Fully connected layer: dst[j] = requantised(bias[j] + row j of weights times src).
 *
 * @param weights   outCount rows of inCount values
 * @param outCount  0 does nothing
 * @param outShift  only the low 8 bits count; 32 and more leaves the sign
 * @param dst       outCount values; must not overlap src
 * @param scratch   ignored
 */
ORVO_API void ArmAFcQ7(const int8_t* src, const int8_t* weights, uint32_t inCount,
                       uint32_t outCount, uint16_t outShift, const int32_t* bias, int8_t* dst,
                       void* scratch);

/* ---- Pooling and sampling -------------------------------------------------------------------- */

/**
 * 2 x 2 maximum with stride 2. A last odd row or column is ignored.
 *
 * @param dst      channels planes of ((height + 2 * pad) / 2) x ((width + 2 * pad) / 2); must not
 *                 overlap src
 * @param pad      border of -128 on every side before pooling; a negative pad writes nothing
 * @param scratch  channels * (width + 2 * pad) * (height + 2 * pad) bytes, untouched when pad is 0
 *
 * A failed bounded copy of the padding is reported on standard error and leaves dst unwritten.
 */
ORVO_API void ArmAMaxPool2x2S2ChwQ7(const int8_t* src, int8_t* dst, uint32_t width, uint32_t height,
                                    uint16_t channels, int32_t pad, int8_t* scratch);

/**
 * 2 x 2 maximum with stride 1 and no padding.
 *
 * @param src      in and out: each row is replaced by its horizontal maxima (the last value of a
 *                 row stays); a caller that needs the input afterwards must copy it first
 * @param dst      channels planes of (height - 1) x (width - 1); may be src itself, whose beginning
 *                 they then replace, and must not overlap it otherwise
 * @param scratch  ignored
 */
ORVO_API void ArmAMaxpoolK2x2S1x1ChwQ7(int8_t* src, uint32_t width, uint32_t height,
                                       uint32_t channels, int8_t* dst, void* scratch);

/**
 * Every second value of every second row, starting with the first.
 *
 * @param dst      channels planes of ceil(height / 2) x ceil(width / 2); may be src itself, and
 *                 must not overlap it otherwise
 * @param scratch  ignored
 */
ORVO_API void ArmADownsample(const int8_t* src, uint32_t width, int32_t height, uint32_t channels,
                             int8_t* dst, void* scratch);

/**
 * Global average: per channel the sum shifted left by shift, divided by the number of values,
 * rounded half away from zero, saturated.
 *
 * @param shift    only the low 8 bits count; 32 and more gives 0. The result carries that many more
 *                 fractional bits than the input.
 * @param scratch  ignored
 * @param dst      channels values; left unwritten for planes without values
 */
ORVO_API void ArmAGapQ7Chw(const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
                           uint16_t shift, void* scratch, int8_t* dst);

/* ---- Element-wise ---------------------------------------------------------------------------- */

/** Turns count grey levels into Q7 in place: each byte XOR 0x80, so that p becomes p - 128. */
ORVO_API void ArmAXorQ7(uint8_t* data, int32_t count);

/** dst[i] = max(src[i], 0). dst may equal src. */
ORVO_API void ArmAReluChwQ7(const int8_t* src, int8_t* dst, uint32_t count);

/**
 * Residual addition of two tensors at different fixed-point positions; channels that the shortcut
 * in2 lacks count as zero: dst = saturate((in1 << in1Shift) + (in2 << in2Shift) + R >> outShift)
 * with R half a step (0 when outShift is 0).
 *
 * @param dst         outChannels planes; may be in1 or in2 itself, must not overlap them otherwise
 * @param in1Shift,in2Shift  at most 8. Beyond that the shifted values wrap at 16 bits in the full
 *                    blocks of 8 values of each plane, and at 32 bits in the values after them.
 * @param in2Channels planes of in2, not more than outChannels
 * @param scratch     ignored
 */
ORVO_API void ArmAZpadPlusChwQ7(const int8_t* in1, const int8_t* in2, int8_t* dst,
                                uint16_t in1Shift, uint16_t in2Shift, uint16_t outShift,
                                uint16_t height, uint16_t width, uint16_t outChannels,
                                uint16_t in2Channels, void* scratch);

/**
 * Scales a vector to unit Euclidean length: dst[i] = src[i] * (1 / sqrt(sum of squares)), single
 * precision, each operation correctly rounded. An all-zero vector gives a quiet not-a-number in
 * every element.
 */
ORVO_API void ArmAL2Norm(const int8_t* src, int32_t count, float* dst);

/**
 * Moves the fixed-point position in place.
 *
 * @param count  values; nothing happens below 1
 * @param shift  positive: shift right, rounding half up. Zero or negative: shift left by -shift,
 *               keeping the low 8 bits (no saturation: 100 shifted left by 1 becomes -56)
 */
ORVO_API void ArmARescaleQ7(int8_t* data, int32_t count, int32_t shift);

/**
 * Inner product of two float vectors in a fixed order, which decides the last bits: four lane sums
 * over blocks of four (product rounded, then added), the lanes paired (0 with 1, 2 with 3), then
 * the up to three remaining elements. In all but the last, subnormal inputs, products and sums
 * count as zeros of their sign, on every processor and whatever its floating point is set to.
 *
 * @param n  elements; 0 and below give 0 without reading anything
 */
ORVO_API float ArmACalcDistanceFloat(const float* a, const float* b, int32_t n);

/* ---- Re-layout of int8 weights for a blocked matrix product ---------------------------------- */

/**
 * Weaves the weights of a 1 x 1 convolution: four filters at a time, so that one load brings the
 * same input position of four filters. The networks' own weights are stored ready for their kernels
 * and need none of this.
 *
 * @param weights  @p outch rows of @p inch bytes
 * @param output   outch / 4 + outch % 4 slots of 16 * (inch / 4 + inch % 4) bytes: one for each
 *                 four filters (for each element the bytes of the four), then one for each leftover
 *                 filter (its bytes as they are). Bytes of a slot beyond these stay untouched. Must
 *                 not overlap @p weights. For filters a to e:
 *
 *       | a0 b0 c0 d0 | a1 b1 c1 d1 | ... | untouched | e0 e1 e2 ... | untouched |
 *         slot 0                                        slot 1
 *
 * Nothing is written if an address is null or a count below 1.
 */
ORVO_API void conv1x1s1_sgemm_transform_kernel_int8_neon_32(const int8_t* weights, int32_t inch,
                                                            int32_t outch, int8_t* output);

/**
 * The same with pairs of elements, then an odd last one of each filter:
 *
 *       | a0 a1 b0 b1 c0 c1 d0 d1 | a2 a3 b2 b3 c2 c3 d2 d3 | a4 b4 c4 d4 | untouched | e0 e1 ...
 */
ORVO_API void conv1x1s1_sgemm_transform_kernel_int8_neon_64(const int8_t* weights, int32_t inch,
                                                            int32_t outch, int8_t* output);

/**
 * The same for a general convolution, whose filters are rows of K = inch * kernel_size bytes: slots
 * have 4 * K bytes. Nothing is written if @p outch or K is below 1; addresses are not checked.
 */
ORVO_API void conv_im2col_sgemm_transform_kernel_int8_neon_32(const int8_t* weights, int32_t inch,
                                                              int32_t outch, int32_t kernel_size,
                                                              int8_t* output);

/** The same with pairs of elements. */
ORVO_API void conv_im2col_sgemm_transform_kernel_int8_neon_64(const int8_t* weights, int32_t inch,
                                                              int32_t outch, int32_t kernel_size,
                                                              int8_t* output);

ORVO_C_END

#endif
