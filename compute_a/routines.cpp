// SPDX-License-Identifier: MIT
#include "compute_a/routines.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#if defined(__aarch64__) && defined(__linux__)
#include <sys/auxv.h>
#elif defined(__x86_64__)
#include <cpuid.h>
#endif
#if defined(__x86_64__) && defined(__linux__)
#include <sys/syscall.h>
#include <unistd.h>
#elif defined(ORVO_HAVE_RVV)
#include <sys/auxv.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace orvo {
namespace {

constexpr char kPathVariable[] = "ORVO_FR_PATH";

#if defined(__x86_64__)
bool HasSse41() { return __builtin_cpu_supports("sse4.1"); }

bool HasAvx2() { return __builtin_cpu_supports("avx2"); }

// The compilers' names for AVX-VNNI are newer than some compilers.
bool HasAvxVnni() {
    constexpr unsigned kAvxVnni = 1u << 4; // of CPUID 7, sub-leaf 1
    unsigned a, b, c, d;
    return HasAvx2() && __get_cpuid_count(7, 1, &a, &b, &c, &d) != 0 && (a & kAvxVnni) != 0;
}

bool HasAvxVnniEvex() {
    return HasAvx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512vnni");
}

bool HasAvx512Vnni() {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vnni");
}
#endif

#if defined(__x86_64__) && defined(__linux__)
// What the tiles' registers are to the processor and to the operating system.
constexpr unsigned kTileInstructions = 1u << 24 | 1u << 25; // CPUID 7: AMX-TILE and AMX-INT8
constexpr unsigned kTileState = 1u << 17 | 1u << 18;        // XCR0: configuration and data
constexpr long kAskForState = 0x1023;                       // ARCH_REQ_XCOMP_PERM
constexpr long kTileData = 18;

// Of a processor whose AVX-512 is in use, so that its XCR0 can be read.
bool HasTilesBesideAvx512() {
    unsigned a, b, c, d;
    if (__get_cpuid_count(7, 0, &a, &b, &c, &d) == 0 ||
        (d & kTileInstructions) != kTileInstructions) {
        return false;
    }
    unsigned low, high;
    __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return (low & kTileState) == kTileState;
}

// Linux lets a process use the tiles' 8 KB of state once it has asked, for all its threads and for
// good. It refuses where a thread's alternate signal stack would be too small for them.
bool HasAmx() {
    return HasAvx512Vnni() && HasTilesBesideAvx512() &&
           syscall(SYS_arch_prctl, kAskForState, kTileData) == 0;
}
#endif

#if defined(__aarch64__) && defined(__APPLE__)
bool HasDotProduct() { return true; } // every processor that macOS runs on
#elif defined(__aarch64__) && defined(__linux__)
bool HasDotProduct() {
    constexpr unsigned long kDotProduct = 1ul << 20; // HWCAP_ASIMDDP
    return (getauxval(AT_HWCAP) & kDotProduct) != 0;
}
#elif defined(__aarch64__)
bool HasDotProduct() { return false; } // nobody to ask
#endif

#if defined(ORVO_HAVE_RVV)
// What Linux says of the processors that this process may run on; false where it does not know the
// question.
bool AskLinux(uint64_t& extensions) {
    constexpr long kProbe = 258; // riscv_hwprobe
    struct {
        int64_t key;
        uint64_t value;
    } pair{4, 0}; // the base and what extends it
    if (syscall(kProbe, &pair, 1, 0, nullptr, 0) != 0 || pair.key < 0) {
        return false;
    }
    extensions = pair.value;
    return true;
}

// Whether vectors that the process has are those of version 1.0: a configuration, bytes in single
// registers whose tails may be anything, that earlier versions did not have.
bool VectorsAreThoseOfVersion1() {
    constexpr unsigned long kConfiguration = 0xC0;
    unsigned long length, configuration;
    // vsetvli length, 16, e8, m1, ta, ma, spelt for assemblers that are told of no vectors
    __asm__ volatile(
        ".insn i 0x57, 0x7, %0, %2, 0xC0\n\t"
        "csrr %1, 0xC21"
        : "=r"(length), "=&r"(configuration)
        : "r"(16ul));
    return configuration == kConfiguration && length == 16;
}

// Before Linux knew the question it told of vectors by a letter's bit alone, and makers' kernels set
// it for earlier versions as well.
bool HasVectors() {
    constexpr uint64_t kVectors = 1u << 2;                 // RISCV_HWPROBE_IMA_V
    constexpr unsigned long kLetterV = 1ul << ('V' - 'A'); // in AT_HWCAP
    uint64_t extensions = 0;
    if (AskLinux(extensions)) {
        return (extensions & kVectors) != 0;
    }
    return (getauxval(AT_HWCAP) & kLetterV) != 0 && VectorsAreThoseOfVersion1();
}
#endif

bool Always() { return true; }

struct Path {
    const Routines& routines;
    bool (*available)();
};

// Best first.
constexpr Path kPaths[] = {
#if defined(__x86_64__)
#if defined(__linux__)
    {kAmxRoutines, HasAmx},
#endif
    {kAvx512VnniRoutines, HasAvx512Vnni},
    {kAvxVnniRoutines, HasAvxVnni},
    {kAvxVnniEvexRoutines, HasAvxVnniEvex},
    {kAvx2Routines, HasAvx2},
    {kSse41Routines, HasSse41},
#endif
#if defined(__aarch64__)
    {kNeonDotRoutines, HasDotProduct},
#endif
#if defined(__ARM_NEON)
    {kNeonRoutines, Always},
#endif
#if defined(ORVO_HAVE_RVV)
    {kRvvRoutines, HasVectors},
#endif
#if defined(__wasm_simd128__)
    {kWasmSimdRoutines, Always},
#endif
    {kPlainRoutines, Always},
};

// What the environment asks for; null where it asks for nothing.
const char* WantedPath() {
    const char* wanted = std::getenv(kPathVariable);
    return wanted == nullptr || *wanted == '\0' ? nullptr : wanted;
}

// Paths are asked for one by one: naming another is how a process is kept from asking for tiles.
const Routines* Choose(const char* wanted) {
    for (const Path& path : kPaths) {
        if (wanted != nullptr && std::strcmp(path.routines.name, wanted) == 0 && path.available()) {
            return &path.routines;
        }
    }
    for (const Path& path : kPaths) {
        if (path.available()) {
            return &path.routines;
        }
    }
    return &kPlainRoutines;
}

// A wish that cannot be met is no failure, but whoever wished should know.
void ReportOther(const char* wanted, const Routines& chosen) {
    const bool isKnown = std::any_of(std::begin(kPaths), std::end(kPaths), [=](const Path& path) {
        return std::strcmp(path.routines.name, wanted) == 0;
    });
    std::fprintf(stderr, "%s=%s: %s, %s is used\n", kPathVariable, wanted,
                 isKnown ? "this machine does not have it" : "this build knows no such path",
                 chosen.name);
}

} // namespace

size_t AvailableRoutines(const Routines* paths[kMaxPaths]) {
    static_assert(std::size(kPaths) <= kMaxPaths);
    size_t count = 0;
    for (const Path& path : kPaths) {
        if (path.available()) {
            paths[count++] = &path.routines;
        }
    }
    return count;
}

const Routines& ChosenRoutines() {
    // Two threads may both find nothing and choose; they choose the same, and the first reports.
    static std::atomic<const Routines*> chosen{nullptr};
    const Routines* routines = chosen.load(std::memory_order_acquire);
    if (routines == nullptr) {
        const char* wanted = WantedPath();
        const Routines* first = nullptr;
        routines = Choose(wanted);
        if (chosen.compare_exchange_strong(first, routines, std::memory_order_acq_rel) &&
            wanted != nullptr && std::strcmp(routines->name, wanted) != 0) {
            ReportOther(wanted, *routines);
        }
    }
    return *routines;
}

} // namespace orvo
