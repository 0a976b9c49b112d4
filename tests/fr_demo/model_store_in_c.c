/* SPDX-License-Identifier: MIT */
/* The model store as a program in C99 has it; compared in registry_test.cpp. */
#include <stddef.h>

#include "orvo/model_store.h"

#define ORVO_BYTES(kind, number, ...) +sizeof g_frWeights##number + sizeof g_frBias##number

extern const size_t g_sizesInC[4];
const size_t g_sizesInC[4] = {sizeof g_alignArray, sizeof g_frArray, sizeof g_alignWeights1,
                              0 ORVO_FR_NETWORK(ORVO_BYTES, ORVO_NO_LAYER, ORVO_NO_LAYER)};
