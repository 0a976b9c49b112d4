// SPDX-License-Identifier: MIT
//
// The arrays of the alignment model, in the order of the layer numbers. Numbers are missing where a
// layer has no parameters.
#include "fr_demo/registry.h"

ModelArray g_alignArray[] = {
    ORVO_LAYER(align, 0),  ORVO_LAYER(align, 1),  ORVO_LAYER(align, 2),  ORVO_LAYER(align, 4),
    ORVO_LAYER(align, 5),  ORVO_LAYER(align, 7),  ORVO_LAYER(align, 8),  ORVO_LAYER(align, 10),
    ORVO_LAYER(align, 11), ORVO_LAYER(align, 13), ORVO_LAYER(align, 14), ORVO_LAYER(align, 16),
    ORVO_LAYER(align, 17), ORVO_LAYER(align, 20), ORVO_LAYER(align, 21), ORVO_LAYER(align, 23),
    ORVO_LAYER(align, 24), ORVO_LAYER(align, 26), ORVO_LAYER(align, 27), ORVO_LAYER(align, 29),
    ORVO_LAYER(align, 30), ORVO_LAYER(align, 32), ORVO_LAYER(align, 33), ORVO_LAYER(align, 35),
    ORVO_LAYER(align, 36), ORVO_LAYER(align, 39), ORVO_LAYER(align, 40), ORVO_LAYER(align, 42),
    ORVO_LAYER(align, 43), ORVO_LAYER(align, 45), ORVO_LAYER(align, 46), ORVO_LAYER(align, 48),
    ORVO_LAYER(align, 49), ORVO_LAYER(align, 51), ORVO_LAYER(align, 52), ORVO_LAYER(align, 54),
    ORVO_LAYER(align, 55), ORVO_LAYER(align, 58),
};
