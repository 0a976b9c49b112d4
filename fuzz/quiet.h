// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>

namespace orvo_fuzz {

// Refusals are reported on standard error, by the thousand a second here. They are still put into words,
// which may go wrong as well, but go nowhere. Sanitizers and libFuzzer do not write through `stderr`.
inline void SilenceDiagnostics() {
    static std::FILE* const nowhere = std::fopen("/dev/null", "we");
    if (nowhere != nullptr) {
        stderr = nowhere;
    }
}

} // namespace orvo_fuzz
