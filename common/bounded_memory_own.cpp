// SPDX-License-Identifier: MIT
#include "common/bounded_memory_own.h"

#include "orvo/bounded_memory.h"

// In a file of its own, so that a linker can put other functions in place (--wrap). WebAssembly knows
// two names of a function by one address only where they are given; see bounded_memory.cpp.
#if !defined(__EMSCRIPTEN__)
namespace orvo {

bool BoundedMemoryIsOwn() {
    return &memcpy_s == &orvo_own_memcpy_s && &memset_s == &orvo_own_memset_s;
}

} // namespace orvo
#endif
