// SPDX-License-Identifier: MIT
#include "common/bounded_memory_own.h"

#include "orvo/bounded_memory.h"

namespace orvo {

bool BoundedMemoryIsOwn() {
    return &memcpy_s == &orvo_own_memcpy_s && &memset_s == &orvo_own_memset_s;
}

} // namespace orvo
