// SPDX-License-Identifier: MIT
//
// How the environment chooses among the instruction sets. Each case chooses in a process of its
// own.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "orvo/orvo_fr.h"
#include "support/child_process.h"

namespace {

// Ends the process: 0 if `wanted`, forced by the environment, gives `expected` (null: anything).
[[noreturn]] void ExitWithChoice(const char* wanted, const char* expected) {
    if (wanted == nullptr) {
        unsetenv("ORVO_FR_PATH");
    } else {
        setenv("ORVO_FR_PATH", wanted, 1);
    }
    const char* chosen = OrvoFrGetInstructionSet();
    const bool isSame = chosen == OrvoFrGetInstructionSet();
    std::exit(isSame && (expected == nullptr || std::strcmp(chosen, expected) == 0) ? 0 : 1);
}

// What is chosen without a wish, asked of another process.
std::string Best() {
    return orvo_test::AnswerOfAChild([] {
        unsetenv("ORVO_FR_PATH");
        return std::string(OrvoFrGetInstructionSet());
    });
}

TEST(PathChoice, AnUnknownNameIsReportedOnceAndTheBestIsUsed) {
    const std::string best = Best();
    const std::string line =
        "^ORVO_FR_PATH=avx3: this build knows no such path, " + best + " is used\n$";
    EXPECT_EXIT(ExitWithChoice("avx3", best.c_str()), testing::ExitedWithCode(0), line);
}

TEST(PathChoice, AKnownNameAnEmptyOneAndNoneAreNotReported) {
    const std::string best = Best();
    EXPECT_EXIT(ExitWithChoice("plain", "plain"), testing::ExitedWithCode(0), "^$");
    EXPECT_EXIT(ExitWithChoice("", best.c_str()), testing::ExitedWithCode(0), "^$");
    EXPECT_EXIT(ExitWithChoice(nullptr, best.c_str()), testing::ExitedWithCode(0), "^$");
}

TEST(PathChoice, IsMadeWithTheWorkingMemory) {
    const auto run = [] {
        setenv("ORVO_FR_PATH", "avx3", 1);
        static uint8_t memory[ORVO_FR_MEMORY_SIZE];
        if (OrvoFrSetMemory(memory, sizeof memory) == ORVO_FR_OK) {
            std::fputs("memory is set\n", stderr);
        }
        OrvoFrGetInstructionSet();
        std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "^ORVO_FR_PATH=avx3: .*\nmemory is set\n$");
}

} // namespace
