// SPDX-License-Identifier: MIT
//
// Linked into the tests that run once for every instruction set: proves that the one which the
// environment asks for is the one that runs, and skips where the processor does not have it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "orvo/orvo_fr.h"

namespace {

class ChosenPath : public testing::Environment {
  public:
    void SetUp() override {
        const char* wanted = std::getenv("ORVO_FR_PATH");
        if (wanted != nullptr && std::strcmp(wanted, OrvoFrGetInstructionSet()) != 0) {
            GTEST_SKIP() << "this processor does not have " << wanted;
        }
    }
};

const testing::Environment* const chosenPath =
    testing::AddGlobalTestEnvironment(new ChosenPath); // GoogleTest deletes it

} // namespace
