// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

// A second, hidden name for each of the bounded functions, which nothing can replace.
extern "C" {
__attribute__((visibility("hidden"))) int orvo_own_memcpy_s(void* dst, size_t dstSize,
                                                            const void* src, size_t count);
__attribute__((visibility("hidden"))) int orvo_own_memset_s(void* dst, size_t dstSize, int value,
                                                            size_t count);
}

namespace orvo {

// Whether memcpy_s and memset_s are the library's own, as opposed to a platform's or a test's. The
// own ones fail for no other reason than a wrong size or a null address, so a caller that knows its
// sizes to be right may do the work of such a copy another way.
bool BoundedMemoryIsOwn();

} // namespace orvo
