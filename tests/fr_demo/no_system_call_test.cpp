// SPDX-License-Identifier: MIT
//
// A run asks nothing of the operating system, not even the first one of a process.
#include <gtest/gtest.h>

#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "orvo/orvo_fr.h"

namespace {

constexpr int kNoFilter = 3; // exit status where the kernel or an emulator filters nothing

// Every system call ends the process from now on, but the one that ends it anyway.
bool ForbidSystemCalls() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
    };
    const sock_fprog filter = {sizeof program / sizeof program[0], program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

[[noreturn]] void Exit(int status) {
    syscall(SYS_exit_group, status);
    std::abort();
}

struct Prepared {
    std::vector<uint8_t> memory = std::vector<uint8_t>(ORVO_FR_MEMORY_SIZE, 1);
    std::vector<uint8_t> pixels = std::vector<uint8_t>(256 * 256, 100);
    float feature[128] = {};

    bool isReady = OrvoFrInit() == ORVO_FR_OK &&
                   OrvoFrSetMemory(memory.data(), ORVO_FR_MEMORY_SIZE) == ORVO_FR_OK;
};

class NoSystemCall : public testing::Test {
  protected:
    void SetUp() override {
        const auto filterWorks = [] {
            if (!ForbidSystemCalls()) {
                Exit(kNoFilter);
            }
            (void)getppid();
            Exit(kNoFilter);
        };
        const pid_t child = fork();
        if (child == 0) {
            filterWorks();
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        if (WIFEXITED(status) && WEXITSTATUS(status) == kNoFilter) {
            GTEST_SKIP() << "system calls cannot be filtered here";
        }
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSYS);
    }
};

TEST_F(NoSystemCall, IsMadeByTheFirstRun) {
    const auto run = [] {
        Prepared prepared;
        const FrImage image = {prepared.pixels.data(), 256, 256, 256};
        if (!prepared.isReady || !ForbidSystemCalls()) {
            Exit(2);
        }
        Exit(OrvoFrRun(&image, prepared.feature, ORVO_FR_FEATURE_BYTES) == ORVO_FR_OK ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

} // namespace
#else
TEST(NoSystemCall, IsMadeByTheFirstRun) {
    GTEST_SKIP() << "a sanitizer's own calls would be among them";
}
#endif
