// SPDX-License-Identifier: MIT
//
// The arrays of the recognition model, in the order of the layer numbers. Numbers are missing where
// a layer has no parameters.
#include "fr_demo/registry.h"

ModelArray g_frArray[] = {
    ORVO_LAYER(fr, 0),   ORVO_LAYER(fr, 2),   ORVO_LAYER(fr, 5),   ORVO_LAYER(fr, 7),
    ORVO_LAYER(fr, 9),   ORVO_LAYER(fr, 11),  ORVO_LAYER(fr, 14),  ORVO_LAYER(fr, 15),
    ORVO_LAYER(fr, 17),  ORVO_LAYER(fr, 19),  ORVO_LAYER(fr, 21),  ORVO_LAYER(fr, 23),
    ORVO_LAYER(fr, 25),  ORVO_LAYER(fr, 27),  ORVO_LAYER(fr, 29),  ORVO_LAYER(fr, 31),
    ORVO_LAYER(fr, 33),  ORVO_LAYER(fr, 35),  ORVO_LAYER(fr, 37),  ORVO_LAYER(fr, 39),
    ORVO_LAYER(fr, 41),  ORVO_LAYER(fr, 43),  ORVO_LAYER(fr, 46),  ORVO_LAYER(fr, 47),
    ORVO_LAYER(fr, 49),  ORVO_LAYER(fr, 51),  ORVO_LAYER(fr, 53),  ORVO_LAYER(fr, 55),
    ORVO_LAYER(fr, 57),  ORVO_LAYER(fr, 59),  ORVO_LAYER(fr, 61),  ORVO_LAYER(fr, 63),
    ORVO_LAYER(fr, 65),  ORVO_LAYER(fr, 67),  ORVO_LAYER(fr, 69),  ORVO_LAYER(fr, 71),
    ORVO_LAYER(fr, 73),  ORVO_LAYER(fr, 75),  ORVO_LAYER(fr, 77),  ORVO_LAYER(fr, 79),
    ORVO_LAYER(fr, 81),  ORVO_LAYER(fr, 83),  ORVO_LAYER(fr, 85),  ORVO_LAYER(fr, 87),
    ORVO_LAYER(fr, 90),  ORVO_LAYER(fr, 91),  ORVO_LAYER(fr, 93),  ORVO_LAYER(fr, 95),
    ORVO_LAYER(fr, 97),  ORVO_LAYER(fr, 99),  ORVO_LAYER(fr, 101), ORVO_LAYER(fr, 103),
    ORVO_LAYER(fr, 105), ORVO_LAYER(fr, 106),
};
