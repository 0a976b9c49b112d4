// SPDX-License-Identifier: MIT
#include "orvo/bounded_memory.h"

#include <cerrno>
#include <cstring>

// Weak, so that a program linked with the static library may define its own, too.
#define ORVO_REPLACEABLE __attribute__((weak))

ORVO_REPLACEABLE int memcpy_s(void* dst, size_t dstSize, const void* src, size_t count) {
    if (dst == nullptr || src == nullptr) {
        return EINVAL;
    }
    if (count > dstSize) {
        return ERANGE;
    }
    std::memcpy(dst, src, count);
    return 0;
}

ORVO_REPLACEABLE int memset_s(void* dst, size_t dstSize, int value, size_t count) {
    if (dst == nullptr) {
        return EINVAL;
    }
    if (count > dstSize) {
        return ERANGE;
    }
    std::memset(dst, value, count);
    return 0;
}
