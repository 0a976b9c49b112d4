// SPDX-License-Identifier: MIT
#include "common/bounded_memory_own.h"

#include "orvo/bounded_memory.h"

// In a file of its own, so that a linker can put other functions in place (--wrap).
namespace orvo {
namespace {

// Two names of one function have one address. Clang takes two names for two functions and would
// answer at once, so it is not shown what it compares.
template <typename Function>
bool IsSame(Function* a, Function* b) {
    __asm__("" : "+r"(a));
    return a == b;
}

} // namespace

bool BoundedMemoryIsOwn() {
    return IsSame(&memcpy_s, &orvo_own_memcpy_s) && IsSame(&memset_s, &orvo_own_memset_s);
}

} // namespace orvo
