// SPDX-License-Identifier: MIT
#include "refusing_memory.h"

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "orvo/bounded_memory.h"

namespace orvo_test {
namespace {

int countdown = 0; // the call that finds 1 here is the one

bool IsRefused() { return countdown > 0 && --countdown == 0; }

} // namespace

void RefuseBoundedCall(int n) { countdown = n; }

} // namespace orvo_test

extern "C" int memcpy_s(void* dst, size_t dstSize, const void* src, size_t count) {
    if (count > dstSize || orvo_test::IsRefused()) {
        return ERANGE;
    }
    std::memcpy(dst, src, count);
    return 0;
}

extern "C" int memset_s(void* dst, size_t dstSize, int value, size_t count) {
    if (count > dstSize || orvo_test::IsRefused()) {
        return ERANGE;
    }
    std::memset(dst, value, count);
    return 0;
}
