// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace orvo::find {

// The largest whole number whose square is no larger than this, which is less than 2^62.
inline int64_t WholeRoot(int64_t square) {
    int64_t root = 0;
    for (int64_t bit = int64_t{1} << 30; bit > 0; bit >>= 1) {
        if ((root + bit) * (root + bit) <= square) {
            root += bit;
        }
    }
    return root;
}

} // namespace orvo::find
