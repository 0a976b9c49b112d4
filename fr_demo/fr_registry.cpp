// SPDX-License-Identifier: MIT
//
// The arrays of the recognition model, in the order of the layer numbers. Numbers are missing where
// a layer has no parameters.
#include "fr_demo/registry.h"

#define ORVO_ENTRIES(kind, number, ...) ORVO_ENTRIES_OF(fr, number),

ModelArray g_frArray[] = {ORVO_FR_NETWORK(ORVO_ENTRIES, ORVO_NO_LAYER, ORVO_NO_LAYER)};
