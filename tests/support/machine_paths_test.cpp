// SPDX-License-Identifier: MIT
//
// The paths that this build has, beside those that this machine can run: says which are which, in
// lines that paths_that_ran.sh looks for, and that the library takes the ones it is asked for.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "orvo/orvo_fr.h"
#include "support/machine.h"

namespace {

constexpr const char* kPaths[] = {ORVO_PATH_NAMES};

TEST(MachinePaths, AreListed) {
    for (const char* path : kPaths) {
        std::printf("[machine] %s %s\n", orvo_test::MachineHas(path) ? "has" : "lacks", path);
    }
    EXPECT_TRUE(orvo_test::MachineHas("plain"));
    EXPECT_FALSE(orvo_test::MachineHas("abacus"));
}

#if !defined(__EMSCRIPTEN__) // where no process can be started

// A process chooses its path once, so each is asked for in a process of its own.
TEST(MachinePaths, AreTakenByTheLibrary) {
    for (const char* path : kPaths) {
        if (std::strcmp(path, "amx_model") == 0) {
            continue; // not in the library
        }
        const auto isTaken = [path] {
            setenv("ORVO_FR_PATH", path, 1);
            std::_Exit(std::strcmp(OrvoFrGetInstructionSet(), path) == 0 ? 0 : 1);
        };
        if (orvo_test::MachineHas(path)) {
            EXPECT_EXIT(isTaken(), testing::ExitedWithCode(0), "^$") << path;
        } else {
            EXPECT_EXIT(isTaken(), testing::ExitedWithCode(1), ": this machine does not have it, ")
                << path;
        }
    }
}

#endif

} // namespace
