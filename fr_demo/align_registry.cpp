// SPDX-License-Identifier: MIT
//
// The arrays of the alignment model, in the order of the layer numbers. Numbers are missing where a
// layer has no parameters.
#include "fr_demo/registry.h"

#define ORVO_ENTRIES(kind, number, ...) ORVO_ENTRIES_OF(align, number),

ModelArray g_alignArray[] = {ORVO_ALIGN_NETWORK(ORVO_ENTRIES, ORVO_NO_LAYER, ORVO_NO_LAYER)};
