// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <cstdlib>

namespace orvo_fuzz {

// Ends the program with what is wrong, by which libFuzzer keeps the input.
inline void Require(bool isTrue, const char* what, const char* where = "") {
    if (!isTrue) {
        std::printf("not so: %s %s\n", what, where);
        std::fflush(stdout);
        std::abort();
    }
}

} // namespace orvo_fuzz
