// SPDX-License-Identifier: MIT
// A system call fails, once or from then on, of all that a command makes once it has opened the first of the
// user's files: writing, opening, syncing, moving, locking, mapping and the rest.
#include <elf.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <set>

#include "faulted_commands.h"

namespace kova_fr_test {
namespace {

#if defined(__x86_64__)

// Those that nobody looks at, that cannot fail, or without which the program could not end. Standard error
// stays whole: what is said there is looked at.
bool MayFail(const user_regs_struct& call) {
    static const std::set<unsigned long long> kLeftAlone = {
        SYS_exit,         SYS_exit_group,  SYS_rt_sigaction,    SYS_rt_sigprocmask,
        SYS_rt_sigreturn, SYS_futex,       SYS_munmap,          SYS_madvise,
        SYS_gettid,       SYS_getpid,      SYS_tgkill,          SYS_tkill,
        SYS_kill,         SYS_sched_yield, SYS_set_robust_list, SYS_sched_getaffinity,
        SYS_brk,          SYS_rseq,        SYS_arch_prctl,      SYS_clock_gettime};
    const bool isStandardError =
        (call.orig_rax == SYS_write || call.orig_rax == SYS_writev) && call.rdi == STDERR_FILENO;
    return !isStandardError && !kLeftAlone.contains(call.orig_rax);
}

int ErrorOf(unsigned long long call) {
    switch (call) {
        case SYS_mmap:
        case SYS_mprotect:
        case SYS_clone:
        case SYS_clone3:
            return ENOMEM;
        case SYS_write:
        case SYS_pwrite64:
        case SYS_ftruncate:
            return ENOSPC;
        case SYS_open:
        case SYS_openat:
            return EMFILE;
        default:
            return EIO;
    }
}

// A path argument's first bytes.
std::string PathAt(pid_t child, unsigned long long address) {
    std::string path;
    while (path.size() < 200 && path.find('\0') == std::string::npos) {
        const long word = ptrace(PTRACE_PEEKDATA, child, address + path.size(), nullptr);
        path.append(reinterpret_cast<const char*>(&word), sizeof word);
    }
    return path.substr(0, path.find('\0'));
}

struct Fault {
    size_t at = 0; // counted from 1; 0: none
    bool forGood = false;
};

// One run under a tracer.
class Traced {
  public:
    Traced(const FaultedCommand& command, Fault fault) : fault_(fault), folder_(command.folder()) {
        int out[2];
        int err[2];
        EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(err, O_CLOEXEC), 0);
        child_ = fork();
        if (child_ == 0) {
            dup2(out[1], STDOUT_FILENO);
            dup2(err[1], STDERR_FILENO);
            Become(command.arguments());
        }
        close(out[1]);
        close(err[1]);
        Follow();
        // What a command prints fits into a pipe.
        run.out = Drained(out[0]);
        run.err = Drained(err[0]);
    }

    Outcome run{};
    size_t calls = 0; // that may fail
    bool isUnlinkFaulted = false;

  private:
    [[noreturn]] static void Become(const std::vector<std::string>& arguments) {
        std::vector<char*> words = {const_cast<char*>(KovaFrProgram())};
        for (const std::string& argument : arguments) {
            words.push_back(const_cast<char*>(argument.c_str()));
        }
        words.push_back(nullptr);
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        execv(words[0], words.data());
        _exit(126);
    }

    static std::string Drained(int end) {
        std::string text;
        char chunk[4096];
        for (ssize_t count; (count = read(end, chunk, sizeof chunk)) > 0;) {
            text.append(chunk, static_cast<size_t>(count));
        }
        close(end);
        return text;
    }

    // Whether this call, at whose start the program stands, is to fail.
    bool IsToFail(const user_regs_struct& call) {
        if (!hasBegun_) {
            hasBegun_ =
                call.orig_rax == SYS_openat && PathAt(child_, call.rsi).starts_with(folder_);
        }
        if (!hasBegun_ || !MayFail(call)) {
            return false;
        }
        ++calls;
        const bool isTheOne = calls == fault_.at;
        failing_ = isTheOne ? call.orig_rax : failing_;
        return isTheOne ||
               (fault_.forGood && fault_.at != 0 && calls > fault_.at && call.orig_rax == failing_);
    }

    void Follow() {
        int status = 0;
        EXPECT_EQ(waitpid(child_, &status, 0), child_); // stopped at its exec
        ptrace(PTRACE_SETOPTIONS, child_, nullptr, PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD);
        bool isEntry = true;
        int error = 0;
        int signal = 0;
        while (true) {
            ptrace(PTRACE_SYSCALL, child_, nullptr, signal);
            EXPECT_EQ(waitpid(child_, &status, 0), child_);
            if (WIFEXITED(status) || WIFSIGNALED(status)) {
                run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
                return;
            }
            signal = 0;
            if (WSTOPSIG(status) != (SIGTRAP | 0x80)) {
                signal = WSTOPSIG(status); // its own
                continue;
            }
            if (++steps_ > kMostSteps) {
                kill(child_, SIGKILL); // it would go on for ever
                continue;
            }
            user_regs_struct call;
            ptrace(PTRACE_GETREGS, child_, nullptr, &call);
            if (isEntry && IsToFail(call)) {
                error = ErrorOf(call.orig_rax);
                isUnlinkFaulted |= call.orig_rax == SYS_unlink || call.orig_rax == SYS_unlinkat;
                call.orig_rax = ~0ull; // none
                ptrace(PTRACE_SETREGS, child_, nullptr, &call);
            } else if (!isEntry && error != 0) {
                call.rax = static_cast<unsigned long long>(-error);
                ptrace(PTRACE_SETREGS, child_, nullptr, &call);
                error = 0;
            }
            isEntry = !isEntry;
        }
    }

    static constexpr size_t kMostSteps = 20000; // ten times as many as the longest command takes

    Fault fault_;
    std::string folder_;
    size_t steps_ = 0;
    pid_t child_ = 0;
    bool hasBegun_ = false;
    unsigned long long failing_ = ~0ull;
};

class CallFaults : public testing::TestWithParam<std::string> {};

TEST_P(CallFaults, LeaveALineAndWholeFiles) {
    FaultedCommand command(GetParam(), WordsOf(GetParam()));
    command.PutBack();
    const Traced whole(command, {});
    ASSERT_EQ(command.Complaint(whole.run, false), "");
    ASSERT_GT(whole.calls, 10u);
    int refused = 0;
    for (const size_t at : Positions(whole.calls)) {
        for (const bool forGood : {false, true}) {
            SCOPED_TRACE("call " + std::to_string(at) + (forGood ? "+" : "") + " of " +
                         std::to_string(whole.calls));
            command.PutBack();
            const Traced faulted(command, {at, forGood});
            EXPECT_EQ(command.Complaint(faulted.run, true), "");
            EXPECT_EQ(command.ComplaintAboutNextRun(), "");
            refused += faulted.run.status == 0 ? 0 : 1;
        }
    }
    EXPECT_GT(refused, 0);
    RecordProperty("calls", static_cast<int>(whole.calls));
}

// Each call, since one of them is what tells an old gallery from none.
TEST(GalleryFaults, NoCallThatFailsOnceLosesWhoWasEnrolled) {
    FaultedCommand command("EnrollIntoAGallery", WordsOf("EnrollIntoAGallery"));
    command.PutBack();
    const size_t calls = Traced(command, {}).calls;
    for (size_t at = 1; at <= calls; ++at) {
        SCOPED_TRACE("call " + std::to_string(at) + " of " + std::to_string(calls));
        command.PutBack();
        const Traced faulted(command, {at, false});
        EXPECT_EQ(command.Complaint(faulted.run, true), "");
    }
}

INSTANTIATE_TEST_SUITE_P(Of, CallFaults, testing::ValuesIn(FaultedCommandNames()),
                         [](const auto& command) { return command.param; });

#else

TEST(CallFaults, AreForX8664Alone) { GTEST_SKIP() << "the tracer knows the registers of x86-64"; }

#endif

} // namespace
} // namespace kova_fr_test
