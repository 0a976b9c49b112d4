// SPDX-License-Identifier: MIT
#include "support/machine.h"

#include <fstream>
#include <initializer_list>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

#if defined(__x86_64__)
#include <sys/syscall.h>
#include <unistd.h>
#elif defined(__aarch64__) || defined(__riscv)
#include <csetjmp>
#include <csignal>
#endif

namespace orvo_test {
namespace {

#if defined(__x86_64__)

std::set<std::string> ProcessorFlags() {
    std::ifstream cpuinfo("/proc/cpuinfo");
    for (std::string line; std::getline(cpuinfo, line);) {
        if (line.rfind("flags", 0) == 0) {
            std::istringstream words(line.substr(line.find(':') + 1));
            return {std::istream_iterator<std::string>(words), {}};
        }
    }
    return {};
}

bool HasFlags(std::initializer_list<const char*> names) {
    static const std::set<std::string> flags = ProcessorFlags();
    for (const char* name : names) {
        if (flags.count(name) == 0) {
            return false;
        }
    }
    return true;
}

// Whether the operating system could give a process the tiles' state; it is not asked to.
bool SystemSupportsTiles() {
    constexpr long kSupported = 0x1021; // ARCH_GET_XCOMP_SUPP
    constexpr unsigned long kTileState = 1ul << 17 | 1ul << 18;
    unsigned long supported = 0;
    return syscall(SYS_arch_prctl, kSupported, &supported) == 0 &&
           (supported & kTileState) == kTileState;
}

bool Has(const std::string& path) {
    const bool avx512 =
        HasFlags({"avx512f", "avx512bw", "avx512dq", "avx512vl", "avx512vbmi", "avx512_vnni"});
    return (path == "sse41" && HasFlags({"sse4_1"})) || (path == "avx2" && HasFlags({"avx2"})) ||
           (path == "avx512vnni" && avx512) ||
           (path == "amx" && avx512 && HasFlags({"amx_tile", "amx_int8"}) &&
            SystemSupportsTiles()) ||
           (path == "avxvnni" && HasFlags({"avx2", "avx_vnni"})) ||
           (path == "avxvnni_evex" && HasFlags({"avx2", "avx512f", "avx512vl", "avx512_vnni"})) ||
           path == "amx_model";
}

#elif defined(__aarch64__) || defined(__riscv)

sigjmp_buf afterRefusal;

void LeaveInstruction(int) { siglongjmp(afterRefusal, 1); }

// Whether this can be done without the processor's refusing an instruction.
template <typename Instruction>
bool CanDo(const Instruction& instruction) {
    struct sigaction leave = {};
    struct sigaction before = {};
    leave.sa_handler = LeaveInstruction;
    sigaction(SIGILL, &leave, &before);
    volatile bool done = false;
    if (sigsetjmp(afterRefusal, 1) == 0) {
        instruction();
        done = true;
    }
    sigaction(SIGILL, &before, nullptr);
    return done;
}

#if defined(__aarch64__)

bool Has(const std::string& path) {
    const auto dot = [] {
        __asm__ volatile(".inst 0x4e829420" ::: "v0"); // sdot v0.4s, v1.16b, v2.16b
    };
    return path == "neon" || (path == "neon_dot" && CanDo(dot));
}

#else

// Only version 1.0 of the vectors has this instruction.
bool Has(const std::string& path) {
    const auto configure = [] {
        __asm__ volatile(".4byte 0xcc087557" ::: "a0"); // vsetivli a0, 16, e8, m1, ta, ma
    };
    return path == "rvv" && CanDo(configure);
}

#endif

#else

// What the target always has.
bool Has(const std::string& path) { return path == "neon" || path == "wasm_simd"; }

#endif

} // namespace

bool MachineHas(const char* path) { return std::string(path) == "plain" || Has(path); }

} // namespace orvo_test
