// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

#include "orvo/bounded_memory.h"

namespace orvo {

// Writes scratch from front to back through the bounded functions, each call bounded by what is
// left. Both return the bounded function's result; after a failure nothing was written or counted.
struct BoundedWriter {
    int8_t* to;
    size_t left;

    int Fill(int value, size_t count) {
        const int ret = memset_s(to, left, value, count);
        Advance(ret, count);
        return ret;
    }

    int Copy(const int8_t* from, size_t count) {
        const int ret = memcpy_s(to, left, from, count);
        Advance(ret, count);
        return ret;
    }

  private:
    void Advance(int ret, size_t count) {
        if (ret == 0) {
            to += count;
            left -= count;
        }
    }
};

} // namespace orvo
