// SPDX-License-Identifier: MIT
//
// Opening a model as it is stored: unwrap its key, decipher its arrays in place, wipe the key
// material.
#pragma once

#include <cstddef>
#include <cstdint>

#include "orvo/model_store.h"

namespace orvo {

struct StoredModel {
    const char* unit;    // source unit named in the messages
    const char* prefix;  // of the names of the model's objects in the messages
    uint8_t* wrappedKey; // 32 bytes
    uint8_t* wrapIv;     // 16 bytes
    uint8_t* arrayIv;    // 16 bytes
    const ModelArray* arrays;
    size_t arrayCount;
};

// Returns 0, or 1 with a message on standard error. Must succeed only once for a model: deciphering
// plain arrays would garble them.
int32_t OpenStore(const StoredModel& model);

} // namespace orvo
