// SPDX-License-Identifier: MIT
//
// The finder's model as it lies in the library, in the same form as the recogniser's models
// (orvo/model_store.h) but exported by nobody. pack_models writes the definitions.
#pragma once

#include <cstdint>

#include "orvo/find_layers.h"
#include "orvo/model_store.h"

namespace orvo::find {

extern uint8_t g_findWb[32];
extern uint8_t g_findWbIv[16];
extern uint8_t g_findAesIv[16];

// Channels are whole fours, so that nothing is stored beside the weights.
#define ORVO_BYTES_OF_Pointwise(inputs, outputs) ((inputs) * (outputs))
#define ORVO_BYTES_OF_Depthwise(inputs, outputs) (9 * (outputs))
#define ORVO_BYTES_OF_FullyConnected(inputs, outputs) ((inputs) * (outputs))
#define ORVO_FIND_ARRAYS(kind, number, inputs, stride, outputs, shift)          \
    extern int8_t g_findWeights##number[ORVO_BYTES_OF_##kind(inputs, outputs)]; \
    extern int32_t g_findBias##number[outputs];                                 \
    static_assert((inputs) % 4 == 0 && (outputs) % 4 == 0);
ORVO_FIND_NETWORK(ORVO_FIND_ARRAYS, ORVO_NO_LAYER)
ORVO_LOOK_NETWORK(ORVO_FIND_ARRAYS, ORVO_NO_LAYER)
ORVO_CLOSE_NETWORK(ORVO_FIND_ARRAYS, ORVO_NO_LAYER)
#undef ORVO_BYTES_OF_Pointwise
#undef ORVO_BYTES_OF_Depthwise
#undef ORVO_BYTES_OF_FullyConnected
#undef ORVO_FIND_ARRAYS

#define ORVO_TWO_ARRAYS(...) +2
inline constexpr int32_t kArrayCount = 0 ORVO_FIND_NETWORK(ORVO_TWO_ARRAYS, ORVO_NO_LAYER)
    ORVO_LOOK_NETWORK(ORVO_TWO_ARRAYS, ORVO_NO_LAYER)
        ORVO_CLOSE_NETWORK(ORVO_TWO_ARRAYS, ORVO_NO_LAYER);
#undef ORVO_TWO_ARRAYS

// Every array in the order of the layers, a layer's weights before its biases.
extern const ModelArray g_findArray[kArrayCount];

} // namespace orvo::find
