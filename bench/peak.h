// SPDX-License-Identifier: MIT
//
// What the machine can multiply at most: a loop over registers alone of the instructions by which a
// path turns int8 products into 32-bit sums.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace orvo_bench {

struct Peak {
    const char* path;         // as in the table of inner routines
    const char* instructions; // in words
    void (*run)(size_t steps);
    uint64_t productsPerStep;
};

// Null for a path that has no such loop here.
const Peak* PeakOf(std::string_view path);

} // namespace orvo_bench
