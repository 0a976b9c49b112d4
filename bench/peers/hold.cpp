// SPDX-License-Identifier: MIT
//
// oneDNN reads the best instruction set that it may take from an environment variable. XNNPACK asks
// libcpuinfo, whose answers are a record that programs can write.
#include "bench/peers/hold.h"

#include <cpuinfo.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace orvo_bench {
namespace {

#if CPUINFO_ARCH_X86_64
enum class Best { kSse41, kAvx2, kAvx512, kAny };

struct Limit {
    std::string_view path;
    const char* oneDnn; // null: none
    Best best;
};

// A machine for our plain path alone may have no more, but the engines have nothing below SSE4.1.
constexpr Limit kLimits[] = {
    {"plain", "SSE41", Best::kSse41},
    {"sse41", "SSE41", Best::kSse41},
    {"avx2", "AVX2", Best::kAvx2},
    {"avxvnni", "AVX2_VNNI", Best::kAvx2},
    {"avxvnni_evex", "AVX512_CORE_VNNI", Best::kAvx512},
    {"avx512vnni", "AVX512_CORE_VNNI", Best::kAvx512},
    {"amx", nullptr, Best::kAny},
};

void HoldXnnpackTo(Best best) {
    if (!cpuinfo_initialize()) {
        throw std::runtime_error("libcpuinfo could not be initialised");
    }
    if (best < Best::kAvx512) {
        cpuinfo_isa.avx512f = false;
        cpuinfo_isa.avx512bw = false;
        cpuinfo_isa.avx512dq = false;
        cpuinfo_isa.avx512vl = false;
        cpuinfo_isa.avx512vbmi = false;
        cpuinfo_isa.avx512vnni = false;
    }
    if (best < Best::kAvx2) {
        cpuinfo_isa.avx = false;
        cpuinfo_isa.avx2 = false;
        cpuinfo_isa.fma3 = false;
        cpuinfo_isa.f16c = false;
    }
}
#endif

} // namespace

void HoldPeersTo(std::string_view path) {
#if CPUINFO_ARCH_X86_64
    for (const Limit& limit : kLimits) {
        if (limit.path == path) {
            if (limit.oneDnn != nullptr) {
                setenv("ONEDNN_MAX_CPU_ISA", limit.oneDnn, 0); // what the user has set counts
            }
            HoldXnnpackTo(limit.best);
            return;
        }
    }
    throw std::runtime_error("it is not known what the engines may use beside the path " +
                             std::string(path));
#else
    static_cast<void>(path);
#endif
}

} // namespace orvo_bench
