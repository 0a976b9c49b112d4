// SPDX-License-Identifier: MIT
// The definitions and nothing that calls them: a linker that is told to put other functions in
// their place (--wrap) does so where an object leaves the name undefined, as all callers must.
#include "orvo/bounded_memory.h"

#include <cerrno>
#include <cstring>

#include "common/bounded_memory_own.h"

#if defined(__GNUC__) && !defined(__clang__)
// GCC finds for itself that the functions do not throw, and then misses that on their aliases.
#pragma GCC diagnostic ignored "-Wmissing-attributes"
#endif

extern "C" {
int orvo_own_memcpy_s(void* dst, size_t dstSize, const void* src, size_t count) {
    if (dst == nullptr || src == nullptr) {
        return EINVAL;
    }
    if (count > dstSize) {
        return ERANGE;
    }
    std::memcpy(dst, src, count);
    return 0;
}

int orvo_own_memset_s(void* dst, size_t dstSize, int value, size_t count) {
    if (dst == nullptr) {
        return EINVAL;
    }
    if (count > dstSize) {
        return ERANGE;
    }
    std::memset(dst, value, count);
    return 0;
}

// Weak, so that a program linked with the static library may define its own, too.
#if defined(__APPLE__)
// There are no aliases there. Functions of their own are taken for somebody else's, which costs the
// kernels their shorter way round padding, and nothing else.
__attribute__((weak)) int memcpy_s(void* dst, size_t dstSize, const void* src, size_t count) {
    return orvo_own_memcpy_s(dst, dstSize, src, count);
}
__attribute__((weak)) int memset_s(void* dst, size_t dstSize, int value, size_t count) {
    return orvo_own_memset_s(dst, dstSize, value, count);
}
#else
__attribute__((weak, alias("orvo_own_memcpy_s"))) int memcpy_s(void* dst, size_t dstSize,
                                                               const void* src, size_t count);
__attribute__((weak, alias("orvo_own_memset_s"))) int memset_s(void* dst, size_t dstSize, int value,
                                                               size_t count);
#endif
}
