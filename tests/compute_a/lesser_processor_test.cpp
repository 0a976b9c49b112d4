// SPDX-License-Identifier: MIT
//
// Which path is chosen on processors that have less than this one. The library is loaded by a process whose
// CPUID faults, and the answers that it gets leave some of the instruction sets out: for each path just those
// that it needs, and those without one of them.
#include <cpuid.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "support/child_process.h"

namespace {

constexpr long kSetFaulting = 0x1012; // ARCH_CPUID_SET: 0 makes it fault

enum Register { kEax, kEbx, kEcx, kEdx };

// Where CPUID says that a processor has an instruction set.
struct Feature {
    const char* name;
    uint32_t leaf, subleaf;
    Register in;
    uint32_t bit;
};

constexpr Feature kFeatures[] = {
    {"sse4.1", 1, 0, kEcx, 19},    {"avx2", 7, 0, kEbx, 5},        {"avx512f", 7, 0, kEbx, 16},
    {"avx512dq", 7, 0, kEbx, 17},  {"avx512bw", 7, 0, kEbx, 30},   {"avx512vl", 7, 0, kEbx, 31},
    {"avx512vbmi", 7, 0, kEcx, 1}, {"avx512vnni", 7, 0, kEcx, 11}, {"amx_tile", 7, 0, kEdx, 24},
    {"amx_int8", 7, 0, kEdx, 25},  {"avx_vnni", 7, 1, kEax, 4},
};

using Features = std::vector<std::string>;

// Best first.
struct Path {
    const char* name;
    Features needs;
};

const std::vector<Path>& Paths() {
    static const std::vector<Path> paths = {
        {"amx",
         {"avx512f", "avx512dq", "avx512bw", "avx512vl", "avx512vbmi", "avx512vnni", "amx_tile",
          "amx_int8"}},
        {"avx512vnni", {"avx512f", "avx512dq", "avx512bw", "avx512vl", "avx512vbmi", "avx512vnni"}},
        {"avxvnni", {"avx2", "avx_vnni"}},
        {"avxvnni_evex", {"avx2", "avx512f", "avx512vl", "avx512vnni"}},
        {"avx2", {"avx2"}},
        {"sse41", {"sse4.1"}},
        {"plain", {}},
    };
    return paths;
}

bool HasAll(const Features& has, const Features& needs) {
    return std::all_of(needs.begin(), needs.end(), [&](const std::string& need) {
        return std::find(has.begin(), has.end(), need) != has.end();
    });
}

bool ProcessorHas(const Feature& feature) {
    uint32_t r[4] = {};
    return __get_cpuid_count(feature.leaf, feature.subleaf, &r[kEax], &r[kEbx], &r[kEcx],
                             &r[kEdx]) != 0 &&
           (r[feature.in] >> feature.bit & 1) != 0;
}

// What the process is not to see.
std::vector<Feature> hidden;

void AnswerCpuid(int signal, siginfo_t*, void* context) {
    auto* const registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    const auto* const instruction = reinterpret_cast<const uint8_t*>(registers[REG_RIP]);
    if (instruction[0] != 0x0F || instruction[1] != 0xA2) {
        ::signal(signal, SIG_DFL); // a fault of another kind
        return;
    }
    const auto leaf = static_cast<uint32_t>(registers[REG_RAX]);
    const auto subleaf = static_cast<uint32_t>(registers[REG_RCX]);
    uint32_t r[4];
    syscall(SYS_arch_prctl, kSetFaulting, 1);
    __cpuid_count(leaf, subleaf, r[kEax], r[kEbx], r[kEcx], r[kEdx]);
    syscall(SYS_arch_prctl, kSetFaulting, 0);
    for (const Feature& feature : hidden) {
        if (feature.leaf == leaf && (leaf != 7 || feature.subleaf == subleaf)) {
            r[feature.in] &= ~(1u << feature.bit);
        }
    }
    registers[REG_RAX] = r[kEax];
    registers[REG_RBX] = r[kEbx];
    registers[REG_RCX] = r[kEcx];
    registers[REG_RDX] = r[kEdx];
    registers[REG_RIP] += 2;
}

bool MakeCpuidFault() {
    struct sigaction answer = {};
    answer.sa_sigaction = AnswerCpuid;
    answer.sa_flags = SA_SIGINFO;
    return sigaction(SIGSEGV, &answer, nullptr) == 0 &&
           syscall(SYS_arch_prctl, kSetFaulting, 0) == 0;
}

// In a process of its own, where the library is loaded for the first time: the name of the path.
std::string Choose(const Features& features) {
    for (const Feature& feature : kFeatures) {
        if (std::find(features.begin(), features.end(), feature.name) == features.end()) {
            hidden.push_back(feature);
        }
    }
    unsetenv("ORVO_FR_PATH");
    if (!MakeCpuidFault() || dlopen(ORVO_PLATFORM_LIBRARY, RTLD_NOW | RTLD_GLOBAL) == nullptr) {
        _exit(1);
    }
    void* const library = dlopen(ORVO_LIBRARY, RTLD_NOW);
    void* const function = library == nullptr ? nullptr : dlsym(library, "OrvoFrGetInstructionSet");
    if (function == nullptr) {
        _exit(2);
    }
    return reinterpret_cast<const char* (*)()>(function)();
}

std::string ChosenWith(const Features& features) {
    return orvo_test::AnswerOfAChild([&] { return Choose(features); });
}

class LesserProcessor : public testing::Test {
  protected:
    void SetUp() override {
        if (syscall(SYS_arch_prctl, kSetFaulting, 1) != 0) {
            GTEST_SKIP() << "CPUID cannot be made to fault here";
        }
    }

    // Says nothing where this processor itself has too little.
    static void Check(const Features& features) {
        Features has;
        std::string all;
        for (const Feature& feature : kFeatures) {
            const bool wanted =
                std::find(features.begin(), features.end(), feature.name) != features.end();
            if (wanted && ProcessorHas(feature)) {
                has.push_back(feature.name);
                all += std::string(" ") + feature.name;
            }
        }
        const auto best = std::find_if(Paths().begin(), Paths().end(),
                                       [&](const Path& path) { return HasAll(has, path.needs); });
        EXPECT_EQ(ChosenWith(has), best->name) << "with" << all;
    }
};

TEST_F(LesserProcessor, TakesTheBestPathForWhichItHasAll) {
    for (const Path& path : Paths()) {
        Check(path.needs);
    }
}

TEST_F(LesserProcessor, TakesNoPathForWhichItLacksOne) {
    for (const Path& path : Paths()) {
        for (const std::string& lacking : path.needs) {
            Features others = path.needs;
            others.erase(std::find(others.begin(), others.end(), lacking));
            Check(others);
        }
    }
}

} // namespace
