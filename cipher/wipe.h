// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstring>

namespace orvo {

// Zeroes memory that held a secret. The empty statement claims to read the bytes, so the compiler
// may not drop the fill as a store to an object that nobody looks at again.
inline void Wipe(void* data, size_t size) {
    std::memset(data, 0, size);
    __asm__ __volatile__("" : : "r"(data) : "memory");
}

} // namespace orvo
