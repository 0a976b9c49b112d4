// SPDX-License-Identifier: MIT
//
// The arrays of the finder's model, in the order of the layer numbers.
#include "fr_demo/registry.h"

#include "find/model.h"

namespace orvo::find {

#define ORVO_ENTRIES(kind, number, ...) ORVO_ENTRIES_OF(find, number),

const ModelArray g_findArray[kArrayCount] = {
    ORVO_FIND_NETWORK(ORVO_ENTRIES, ORVO_NO_LAYER) ORVO_LOOK_NETWORK(ORVO_ENTRIES, ORVO_NO_LAYER)
        ORVO_CLOSE_NETWORK(ORVO_ENTRIES, ORVO_NO_LAYER)};

} // namespace orvo::find
