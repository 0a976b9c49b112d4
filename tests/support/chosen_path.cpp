// SPDX-License-Identifier: MIT
//
// Linked into the tests that run once for every instruction set: proves that the one which the
// environment asks for is the one that runs, and skips where the processor does not have it. What
// has run is said in a line of its own, which paths_that_ran.sh looks for.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "orvo/orvo_fr.h"

namespace {

bool IsThere() {
    const char* wanted = std::getenv("ORVO_FR_PATH");
    return wanted == nullptr || std::strcmp(wanted, OrvoFrGetInstructionSet()) == 0;
}

class ChosenPath : public testing::Environment {
  public:
    void SetUp() override {
        if (!IsThere()) {
            GTEST_SKIP() << "this processor does not have " << std::getenv("ORVO_FR_PATH");
        }
    }
    void TearDown() override {
        const testing::UnitTest& tests = *testing::UnitTest::GetInstance();
        if (IsThere() && tests.test_to_run_count() > tests.skipped_test_count()) {
            std::printf("[path] %s\n", OrvoFrGetInstructionSet());
        }
    }
};

const testing::Environment* const chosenPath =
    testing::AddGlobalTestEnvironment(new ChosenPath); // GoogleTest deletes it

} // namespace
