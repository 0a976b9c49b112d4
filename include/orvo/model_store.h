/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The models as they lie in the library: one weight and one bias array per parametric layer, the
 * registries that list them, and the key material that opens them.
 *
 * At load every array's whole 16-byte blocks are enciphered (the last length % 16 bytes are plain).
 * OrvoFrInit() deciphers them in place and wipes the key material; from then on the networks read
 * the arrays by name. Weights are in the order that the layer's kernel reads (q7_kernels.h), unused
 * bytes at the end of an array are 0; biases are at the accumulator's fixed-point position.
 *
 * The definitions are written by pack_models during the build.
 *
 * Threads: nothing may read an array while OrvoFrInit() runs.
 */
#ifndef ORVO_MODEL_STORE_H
#define ORVO_MODEL_STORE_H

#include <stdint.h>

#include "orvo/export.h"
#include "orvo/network_layers.h"

ORVO_C_BEGIN

/** One parameter array of a model. On the 32-bit target an entry has 16 bytes. */
typedef struct ModelArray {
    uint32_t elementSize; /**< 1: weights (int8_t); 4: biases (int32_t) */
    const char* name;     /**< the array's own symbol name */
    void* data;           /**< the array */
    uint32_t size;        /**< its length in bytes */
} ModelArray;

#define ORVO_TWO_ARRAYS(...) +2

/** Every array of a model, in the order of the layers, a layer's weights before its biases. */
ORVO_API extern ModelArray
    g_alignArray[0 ORVO_ALIGN_NETWORK(ORVO_TWO_ARRAYS, ORVO_NO_LAYER, ORVO_NO_LAYER)];
ORVO_API extern ModelArray
    g_frArray[0 ORVO_FR_NETWORK(ORVO_TWO_ARRAYS, ORVO_NO_LAYER, ORVO_NO_LAYER)];

/* A model's AES-128 key, wrapped by the white-box cipher (CBC with padding); the IV of the
 * wrapping; the IV from which every array's CBC stream starts. Zeroed by OrvoFrInit(). */
ORVO_API extern uint8_t g_alignWb[32];
ORVO_API extern uint8_t g_alignWbIv[16];
ORVO_API extern uint8_t g_alignAesIv[16];
ORVO_API extern uint8_t g_frWb[32];
ORVO_API extern uint8_t g_frWbIv[16];
ORVO_API extern uint8_t g_frAesIv[16];

/* ---- The arrays -------------------------------------------------------------------------------
 *
 * g_alignWeightsN and g_alignBiasN, g_frWeightsN and g_frBiasN for each layer N of
 * network_layers.h: a bias array has an int32_t an output channel, a weight array these bytes. A
 * first layer's has 8 behind its filters, and a pointwise one has room for 4k + 10 channels where
 * there are 4k + 2.
 */
#define ORVO_STORED_CHANNELS(count) ((count) + ((count) % 4 == 2 ? 8 : 0))
#define ORVO_BYTES_OF_Convolution(inputs, side, outputs) (9 * (inputs) * (outputs) + 8)
#define ORVO_BYTES_OF_Pointwise(inputs, side, outputs) \
    (ORVO_STORED_CHANNELS(inputs) * ORVO_STORED_CHANNELS(outputs))
#define ORVO_BYTES_OF_Depthwise(inputs, side, outputs) (9 * (outputs))
#define ORVO_BYTES_OF_DepthwiseRelu(inputs, side, outputs) (9 * (outputs))
#define ORVO_BYTES_OF_Global(inputs, side, outputs) ((outputs) * (side) * (side))
#define ORVO_BYTES_OF_FullyConnected(inputs, side, outputs) ((inputs) * (outputs))

#define ORVO_ALIGN_ARRAYS(kind, number, inputs, side, outputs, shift)                           \
    ORVO_API extern int8_t g_alignWeights##number[ORVO_BYTES_OF_##kind(inputs, side, outputs)]; \
    ORVO_API extern int32_t g_alignBias##number[outputs];
ORVO_ALIGN_NETWORK(ORVO_ALIGN_ARRAYS, ORVO_NO_LAYER, ORVO_NO_LAYER)

#define ORVO_FR_ARRAYS(kind, number, inputs, side, outputs, shift)                           \
    ORVO_API extern int8_t g_frWeights##number[ORVO_BYTES_OF_##kind(inputs, side, outputs)]; \
    ORVO_API extern int32_t g_frBias##number[outputs];
ORVO_FR_NETWORK(ORVO_FR_ARRAYS, ORVO_NO_LAYER, ORVO_NO_LAYER)

#undef ORVO_TWO_ARRAYS
#undef ORVO_STORED_CHANNELS
#undef ORVO_BYTES_OF_Convolution
#undef ORVO_BYTES_OF_Pointwise
#undef ORVO_BYTES_OF_Depthwise
#undef ORVO_BYTES_OF_DepthwiseRelu
#undef ORVO_BYTES_OF_Global
#undef ORVO_BYTES_OF_FullyConnected
#undef ORVO_ALIGN_ARRAYS
#undef ORVO_FR_ARRAYS

ORVO_C_END

#endif
