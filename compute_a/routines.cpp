// SPDX-License-Identifier: MIT
#include "compute_a/routines.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#if defined(__aarch64__)
#include <sys/auxv.h>
#endif

namespace orvo {
namespace {

constexpr char kPathVariable[] = "ORVO_FR_PATH";

#if defined(__x86_64__)
bool HasAvx512Vnni() {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vnni");
}
#endif

#if defined(__aarch64__)
bool HasDotProduct() {
    constexpr unsigned long kDotProduct = 1ul << 20; // HWCAP_ASIMDDP
    return (getauxval(AT_HWCAP) & kDotProduct) != 0;
}
#endif

const Routines* Choose() {
    const Routines* paths[kMaxPaths];
    const size_t count = AvailableRoutines(paths);
    const char* wanted = std::getenv(kPathVariable);
    for (size_t i = 0; wanted != nullptr && i < count; ++i) {
        if (std::strcmp(paths[i]->name, wanted) == 0) {
            return paths[i];
        }
    }
    return paths[0];
}

} // namespace

size_t AvailableRoutines(const Routines* paths[kMaxPaths]) {
    size_t count = 0;
#if defined(__x86_64__)
    if (HasAvx512Vnni()) {
        paths[count++] = &kAvx512VnniRoutines;
    }
    if (__builtin_cpu_supports("avx2")) {
        paths[count++] = &kAvx2Routines;
    }
#endif
#if defined(__aarch64__)
    if (HasDotProduct()) {
        paths[count++] = &kNeonDotRoutines;
    }
#endif
#if defined(__ARM_NEON)
    paths[count++] = &kNeonRoutines;
#endif
#if defined(__wasm_simd128__)
    paths[count++] = &kWasmSimdRoutines;
#endif
    paths[count++] = &kPlainRoutines;
    return count;
}

const Routines& ChosenRoutines() {
    // Two threads may both find nothing and choose; they choose the same.
    static std::atomic<const Routines*> chosen{nullptr};
    const Routines* routines = chosen.load(std::memory_order_acquire);
    if (routines == nullptr) {
        routines = Choose();
        chosen.store(routines, std::memory_order_release);
    }
    return *routines;
}

} // namespace orvo
