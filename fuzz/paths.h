// SPDX-License-Identifier: MIT
//
// The library chooses one path for the life of a process. Here the exported kernels run with one path after
// the other: the linker puts UsedRoutines() in the place of orvo::ChosenRoutines() (see CMakeLists.txt).
#pragma once

#include <cstring>
#include <span>

#include "compute_a/routines.h"
#include "require.h"

namespace orvo_fuzz {

// Every path of this machine, the plain one first.
std::span<const orvo::Routines* const> Paths();

void UsePath(const orvo::Routines& routines);

// What a path leaves in `result` has to be what the plain one leaves there. `result` is filled before each
// call; `expected` has room for as much. The call restores what it changes beside the result.
template <typename Call>
void SameOnAllPaths(const char* kernel, void* result, void* expected, size_t bytes,
                    const Call& call) {
    for (const orvo::Routines* path : Paths()) {
        const bool isFirst = path == Paths().front();
        UsePath(*path);
        std::memset(result, 0x5A, bytes);
        call();
        if (isFirst) {
            std::memcpy(expected, result, bytes);
        } else if (std::memcmp(expected, result, bytes) != 0) {
            std::printf("%s differs on path %s\n", kernel, path->name);
            Require(false, "all paths give the same bytes");
        }
    }
}

} // namespace orvo_fuzz
