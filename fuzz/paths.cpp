// SPDX-License-Identifier: MIT
#include "paths.h"

#include <algorithm>

namespace orvo_fuzz {
namespace {

const orvo::Routines* used = &orvo::kPlainRoutines;

} // namespace

std::span<const orvo::Routines* const> Paths() {
    static const orvo::Routines* paths[orvo::kMaxPaths];
    static const size_t count = [] {
        const size_t found = orvo::AvailableRoutines(paths);
        std::reverse(paths, paths + found);
        return found;
    }();
    return {paths, count};
}

void UsePath(const orvo::Routines& routines) { used = &routines; }

// What orvo::ChosenRoutines() is named for the linker, behind its mark for what stands in for it.
const orvo::Routines& UsedRoutines() __asm__("__wrap__ZN4orvo14ChosenRoutinesEv");
const orvo::Routines& UsedRoutines() { return *used; }

} // namespace orvo_fuzz
