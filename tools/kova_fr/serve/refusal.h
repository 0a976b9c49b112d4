// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace kova_cli {

// Thrown where a client gets no result: the status, one line that says what to do, and of a face
// that is not good enough why not.
struct Refusal {
    int status;
    std::string error;
    std::vector<std::string> reasons = {};
    unsigned retryAfter = 0; // seconds; 0: trying again does not help
};

} // namespace kova_cli
