// SPDX-License-Identifier: MIT
//
// The path with tiles needs the operating system's permission, which a process is given for good.
// Each case asks in a process of its own.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "orvo/orvo_fr.h"

namespace {

constexpr long kPermitted = 0x1022; // ARCH_GET_XCOMP_PERM
constexpr unsigned long kTileData = 1ul << 18;

bool ProcessorHasTiles() {
    std::ifstream cpuinfo("/proc/cpuinfo");
    std::stringstream text;
    text << cpuinfo.rdbuf();
    return text.str().find(" amx_int8") != std::string::npos;
}

bool TilesArePermitted() {
    unsigned long permitted = 0;
    return syscall(SYS_arch_prctl, kPermitted, &permitted) == 0 && (permitted & kTileData) != 0;
}

// Enough without tiles, and too little for a signal's frame with their 8 KB.
void UseSmallSignalStack() {
    static char memory[8192];
    stack_t stack{};
    stack.ss_sp = memory;
    stack.ss_size = sizeof memory;
    if (sigaltstack(&stack, nullptr) != 0) {
        std::_Exit(2);
    }
}

[[noreturn]] void ExitWith(bool success) { std::_Exit(success ? 0 : 1); }

class TilePermission : public testing::Test {
  protected:
    void SetUp() override {
        if (!ProcessorHasTiles()) {
            GTEST_SKIP() << "this processor has no tiles";
        }
    }
};

TEST_F(TilePermission, IsAskedForByDefault) {
    const auto run = [] {
        unsetenv("ORVO_FR_PATH");
        stack_t none{};
        none.ss_flags = SS_DISABLE;
        sigaltstack(&none, nullptr);
        ExitWith(std::strcmp(OrvoFrGetInstructionSet(), "amx") == 0 && TilesArePermitted());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(TilePermission, RefusedLeavesThePathWithoutTiles) {
    const auto run = [] {
        unsetenv("ORVO_FR_PATH");
        UseSmallSignalStack();
        ExitWith(std::strcmp(OrvoFrGetInstructionSet(), "avx512vnni") == 0 && !TilesArePermitted());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(TilePermission, RefusedIsReportedWhereTilesWereNamed) {
    const auto run = [] {
        setenv("ORVO_FR_PATH", "amx", 1);
        UseSmallSignalStack();
        ExitWith(std::strcmp(OrvoFrGetInstructionSet(), "avx512vnni") == 0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0),
                "^ORVO_FR_PATH=amx: this machine does not have it, avx512vnni is used\n$");
}

TEST_F(TilePermission, IsNotAskedForWhereAnotherPathIsNamed) {
    const auto run = [] {
        setenv("ORVO_FR_PATH", "avx512vnni", 1);
        ExitWith(std::strcmp(OrvoFrGetInstructionSet(), "avx512vnni") == 0 && !TilesArePermitted());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

} // namespace
