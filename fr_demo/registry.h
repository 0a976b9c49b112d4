// SPDX-License-Identifier: MIT
//
// How a model's registry lists the arrays of one layer.
#pragma once

#include "orvo/model_store.h"

// On the camera chip an entry is four 32-bit words.
static_assert(sizeof(void*) != 4 || sizeof(ModelArray) == 16);

#define ORVO_ARRAY(name) \
    { sizeof name[0], #name, name, sizeof name }
#define ORVO_ENTRIES_OF(net, number) \
    ORVO_ARRAY(g_##net##Weights##number), ORVO_ARRAY(g_##net##Bias##number)
