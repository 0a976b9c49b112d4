// SPDX-License-Identifier: MIT
// enroll that is killed: at every system call of its last part, one run a call, with the process
// number of this machine and as number 1 of a process namespace, as in a container. The gallery is
// whole after each, holds everything that was ever reported as added, and nothing else lies about.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "picture_files.h"
#include "program.h"

namespace kova_fr_test {
namespace {

using nlohmann::json;

// What a run did until it ended, or was killed at the start of a system call.
struct Traced {
    int status = -1; // exit status; -1 where it was killed
    size_t calls = 0;
};

constexpr size_t kNever = SIZE_MAX;
constexpr int kCannotStart = 126;

[[noreturn]] void BecomeKovaFr(const std::vector<std::string>& arguments) {
    std::vector<char*> words = {const_cast<char*>(KovaFrProgram())};
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    const int silence = open("/dev/null", O_WRONLY);
    dup2(silence, STDOUT_FILENO);
    dup2(silence, STDERR_FILENO);
    // A sanitizer's search for leaks is a tracer itself.
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    execv(words[0], words.data());
    _exit(kCannotStart);
}

// A child in a process namespace of its own, where it has number 1; 0 in the child, -1 where the
// system forbids it.
pid_t ForkAsNumberOne() {
    for (const unsigned long flags : {CLONE_NEWPID | 0ul, CLONE_NEWPID | CLONE_NEWUSER | 0ul}) {
        const auto child = static_cast<pid_t>(syscall(SYS_clone, flags | SIGCHLD, 0, 0, 0, 0));
        if (child >= 0) {
            return child;
        }
    }
    return -1;
}

Traced RunUntil(size_t lastCall, pid_t (*makeChild)(), const std::vector<std::string>& arguments) {
    const pid_t child = makeChild();
    if (child == 0) {
        BecomeKovaFr(arguments);
    }
    Traced run;
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child); // stopped at its exec
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD);
    bool isEntry = true;
    while (true) {
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        EXPECT_EQ(waitpid(child, &status, 0), child);
        if (WIFEXITED(status)) {
            run.status = WEXITSTATUS(status);
            return run;
        }
        if (WIFSIGNALED(status)) {
            return run;
        }
        run.calls += isEntry ? 1 : 0;
        if (isEntry && run.calls == lastCall) {
            kill(child, SIGKILL);
            EXPECT_EQ(waitpid(child, &status, 0), child);
            return run;
        }
        isEntry = !isEntry;
    }
}

class Killed : public testing::Test {
  protected:
    Killed() { WriteFile(picture_, GreyPng(Pattern(256, 256))); }

    Traced Enroll(size_t lastCall, pid_t (*makeChild)(), const std::string& name) {
        return RunUntil(lastCall, makeChild, {"enroll", "--crop", gallery_, name, picture_});
    }

    json Listed() {
        const Outcome run = KovaFr({"gallery", "--json", gallery_});
        EXPECT_EQ(run.status, 0) << run.err;
        return run.status == 0 ? json::parse(run.out) : json();
    }

    // From the last call backwards: those before the folder is locked change nothing.
    void KillAtEveryCall(pid_t (*makeChild)()) {
        const Traced whole = Enroll(kNever, makeChild, "first");
        ASSERT_EQ(whole.status, 0);
        const Traced again = Enroll(kNever, makeChild, "second");
        ASSERT_EQ(again.status, 0);
        constexpr size_t kLastPart = 90;
        ASSERT_GT(again.calls, kLastPart);
        size_t atLeast = 2;
        for (size_t back = 0; back < kLastPart; ++back) {
            const Traced run = Enroll(again.calls - back, makeChild, "killed");
            const json listed = Listed();
            ASSERT_TRUE(listed.contains("names")) << "damaged after call " << run.calls;
            size_t features = 0;
            for (const json& one : listed["names"]) {
                features += one["features"].get<size_t>();
            }
            atLeast += run.status == 0 ? 1 : 0;
            EXPECT_GE(features, atLeast) << "lost after call " << run.calls;
            atLeast = features;
        }
        EXPECT_GT(atLeast, 2u) << "no run came as far as the gallery";
        EXPECT_EQ(Enroll(kNever, makeChild, "last").status, 0);
        EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"g", "p.png"})) << "stale files";
    }

    TempFolder folder_;
    const std::string gallery_ = folder_ / "g";
    const std::string picture_ = folder_ / "p.png";
};

TEST_F(Killed, EnrollLosesNothingAndLeavesNothing) { KillAtEveryCall(fork); }

TEST_F(Killed, EnrollInAContainerLosesNothingAndLeavesNothing) {
    const pid_t child = ForkAsNumberOne();
    if (child == 0) {
        _exit(getpid() == 1 ? 0 : 1);
    }
    int status = 1;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        GTEST_SKIP() << "this system allows no process namespaces";
    }
    ASSERT_EQ(status, 0);
    KillAtEveryCall(ForkAsNumberOne);
}

// What earlier versions left behind in a container.
TEST_F(Killed, StageOfAKilledRunDoesNotStopTheNext) {
    WriteFile(folder_ / ".kova-fr-1-1.part", "half a gallery");
    const Outcome run = Shell("unshare -r --pid --fork \"$KOVA_FR\" enroll --crop " + gallery_ +
                              " ada " + picture_);
    if (run.err.find("unshare") != std::string::npos) {
        GTEST_SKIP() << "this system allows no process namespaces: " << run.err;
    }
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"g", "p.png"}));
}

// Only files that nobody writes any more are removed.
TEST_F(Killed, StageOfARunningProgramStays) {
    const std::string stage = folder_ / ".kova-fr-0123456789abcdef.part";
    WriteFile(stage, "being written");
    const Outcome run =
        Shell("flock " + stage + " \"$KOVA_FR\" enroll --crop " + gallery_ + " ada " + picture_);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(std::filesystem::exists(stage));
    WriteFile(folder_ / "my.part", "somebody else's");
    EXPECT_EQ(KovaFr({"enroll", "--crop", gallery_, "ada", picture_}).status, 0);
    EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"g", "my.part", "p.png"}));
}

} // namespace
} // namespace kova_fr_test
