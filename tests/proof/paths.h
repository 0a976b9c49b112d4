// SPDX-License-Identifier: MIT
//
// The library chooses its path once in the life of a process. Here it is chosen anew for each call, so that
// the plain result is worked out once for all paths: the program has a ChosenRoutines() of its own, and
// the library's under another name.
#pragma once

#include <span>

namespace orvo_proof {

// What this machine runs, best first; the plain path is the last.
std::span<const char* const> Paths();

void UsePath(size_t path);

} // namespace orvo_proof
