// SPDX-License-Identifier: MIT
//
// Every kernel that the networks call, with the kind of layer it belongs to:
//
//   ORVO_ROUTE(kind, name, (parameters), (arguments))
//
// Define ORVO_ROUTE before including this, as a function through which the networks' calls go. It
// is undefined again at the end.

#define ORVO_CONVOLUTION(part, name)                                                            \
    ORVO_ROUTE(part, name,                                                                      \
               (const int8_t* src, uint16_t srcWidth, uint16_t srcHeight, uint16_t srcChannels, \
                const int8_t* weights, uint16_t dstChannels, uint16_t kernelSize, uint16_t pad, \
                uint16_t stride, const int32_t* bias, uint16_t outShift, int8_t* dst,           \
                uint16_t dstWidth, uint16_t dstHeight, int8_t* tmpBuffer),                      \
               (src, srcWidth, srcHeight, srcChannels, weights, dstChannels, kernelSize, pad,   \
                stride, bias, outShift, dst, dstWidth, dstHeight, tmpBuffer))

ORVO_CONVOLUTION(orvo_timing::kConv, arma_convolve_chw_q7)
ORVO_CONVOLUTION(orvo_timing::kPointwise, ArmAConvolve1x1s1p0ChwQ7)
ORVO_CONVOLUTION(orvo_timing::kDepthwise, arma_convolvedw_3x3_s1_chw_q7)
ORVO_CONVOLUTION(orvo_timing::kDepthwise, ArmAConvolvedwRelu3x3s1ChwQ7)

ORVO_ROUTE(orvo_timing::kMaxPool, ArmAMaxPool2x2S2ChwQ7,
           (const int8_t* src, int8_t* dst, uint32_t width, uint32_t height, uint16_t channels,
            int32_t pad, int8_t* scratch),
           (src, dst, width, height, channels, pad, scratch))
ORVO_ROUTE(orvo_timing::kMaxPool, ArmAMaxpoolK2x2S1x1ChwQ7,
           (int8_t * src, uint32_t width, uint32_t height, uint32_t channels, int8_t* dst,
            void* scratch),
           (src, width, height, channels, dst, scratch))
ORVO_ROUTE(orvo_timing::kDownsample, ArmADownsample,
           (const int8_t* src, uint32_t width, int32_t height, uint32_t channels, int8_t* dst,
            void* scratch),
           (src, width, height, channels, dst, scratch))
ORVO_ROUTE(orvo_timing::kRelu, ArmAReluChwQ7, (const int8_t* src, int8_t* dst, uint32_t count),
           (src, dst, count))
ORVO_ROUTE(orvo_timing::kAdd, ArmAZpadPlusChwQ7,
           (const int8_t* in1, const int8_t* in2, int8_t* dst, uint16_t in1Shift, uint16_t in2Shift,
            uint16_t outShift, uint16_t height, uint16_t width, uint16_t outChannels,
            uint16_t in2Channels, void* scratch),
           (in1, in2, dst, in1Shift, in2Shift, outShift, height, width, outChannels, in2Channels,
            scratch))
ORVO_ROUTE(orvo_timing::kHead, ArmAGapQ7Chw,
           (const int8_t* src, uint32_t width, uint32_t height, uint32_t channels, uint16_t shift,
            void* scratch, int8_t* dst),
           (src, width, height, channels, shift, scratch, dst))
ORVO_ROUTE(orvo_timing::kHead, ArmAConvolveGlobalChwQ7,
           (const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
            const int8_t* weights, const int32_t* bias, uint16_t outShift, int8_t* dst,
            void* scratch),
           (src, width, height, channels, weights, bias, outShift, dst, scratch))
ORVO_ROUTE(orvo_timing::kHead, ArmAFcQ7,
           (const int8_t* src, const int8_t* weights, uint32_t inCount, uint32_t outCount,
            uint16_t outShift, const int32_t* bias, int8_t* dst, void* scratch),
           (src, weights, inCount, outCount, outShift, bias, dst, scratch))
ORVO_ROUTE(orvo_timing::kHead, ArmAL2Norm, (const int8_t* src, int32_t count, float* dst),
           (src, count, dst))
ORVO_ROUTE(orvo_timing::kFlip, ArmAXorQ7, (uint8_t * data, int32_t count), (data, count))

#undef ORVO_CONVOLUTION
#undef ORVO_ROUTE
