// SPDX-License-Identifier: MIT
#include "bench/peers/machine_class.h"

#include <cpuinfo.h>

#include <algorithm>
#include <cstdlib>
#include <oneapi/dnnl/dnnl.hpp>
#include <stdexcept>

#include "compute_a/routines.h"

namespace orvo_bench {
namespace {

constexpr char kOwnVariable[] = "ORVO_FR_PATH";
constexpr char kOneDnnVariable[] = "ONEDNN_MAX_CPU_ISA";

struct OneDnnLimit {
    const char* name;
    dnnl::cpu_isa isa;
};

constexpr OneDnnLimit kOneDnnLimits[] = {
    {"AVX512_CORE_AMX", dnnl::cpu_isa::avx512_core_amx},
    {"AVX512_CORE_VNNI", dnnl::cpu_isa::avx512_core_vnni},
    {"AVX2_VNNI", dnnl::cpu_isa::avx2_vnni},
    {"AVX2", dnnl::cpu_isa::avx2},
    {"SSE41", dnnl::cpu_isa::sse41},
};

// XNNPACK of 2022 has nothing for VNNI or AMX: with AVX-512 it has all that it can use. "no VBMI" is
// AVX-512 VNNI without VBMI.
const MachineClass kClasses[] = {
    {"AMX", "amx", "AVX512_CORE_AMX", Instructions::kAll},
    {"AVX-512 VNNI", "avx512vnni", "AVX512_CORE_VNNI", Instructions::kAll},
    {"no VBMI", "avxvnni_evex", "AVX512_CORE_VNNI", Instructions::kAll},
    {"AVX-VNNI", "avxvnni", "AVX2_VNNI", Instructions::kAvx2},
    {"AVX2", "avx2", "AVX2", Instructions::kAvx2},
    {"SSE4.1", "sse41", "SSE41", Instructions::kSse41},
};

MachineClass ClassOf(const std::string& path) {
    const auto* found = std::ranges::find(kClasses, path, &MachineClass::path);
    return found == std::end(kClasses) ? MachineClass{path, path, ""} : *found;
}

void HoldOneDnn(const std::string& limit) {
    if (limit.empty()) {
        return;
    }
    setenv(kOneDnnVariable, limit.c_str(), 1);
    const auto* wanted = std::ranges::find(kOneDnnLimits, limit, &OneDnnLimit::name);
    if (wanted == std::end(kOneDnnLimits) || dnnl::get_effective_cpu_isa() != wanted->isa) {
        throw std::runtime_error("oneDNN is not kept to " + limit);
    }
}

#if defined(__x86_64__)
void StrikeOutAvx512() {
    for (bool* flag : {&cpuinfo_isa.avx512f, &cpuinfo_isa.avx512cd, &cpuinfo_isa.avx512dq,
                       &cpuinfo_isa.avx512bw, &cpuinfo_isa.avx512vl, &cpuinfo_isa.avx512vbmi,
                       &cpuinfo_isa.avx512vnni, &cpuinfo_isa.avx512bf16}) {
        *flag = false;
    }
}

void StrikeOutAvx() {
    for (bool* flag : {&cpuinfo_isa.avx, &cpuinfo_isa.avx2, &cpuinfo_isa.fma3, &cpuinfo_isa.fma4,
                       &cpuinfo_isa.f16c, &cpuinfo_isa.xop}) {
        *flag = false;
    }
}

void HoldXnnpack(Instructions most) {
    if (!cpuinfo_initialize()) {
        throw std::runtime_error("libcpuinfo could not be initialised");
    }
    if (most != Instructions::kAll) {
        StrikeOutAvx512();
    }
    if (most == Instructions::kSse41) {
        StrikeOutAvx();
    }
}
#else
void HoldXnnpack(Instructions) {}
#endif

} // namespace

std::vector<MachineClass> MachineClasses() {
    if (const char* path = std::getenv(kOwnVariable)) {
        return {ClassOf(path)};
    }
    const orvo::Routines* paths[orvo::kMaxPaths];
    const size_t count = orvo::AvailableRoutines(paths);
    std::vector<MachineClass> classes;
    for (size_t i = 0; i < count; ++i) {
        // Plain code is no class: no machine has less than one of the others in the same family.
        if (count == 1 || std::string("plain") != paths[i]->name) {
            classes.push_back(ClassOf(paths[i]->name));
        }
    }
    return classes;
}

void HoldTo(const MachineClass& machine) {
    setenv(kOwnVariable, machine.path.c_str(), 1);
    if (machine.path != orvo::ChosenRoutines().name) {
        throw std::runtime_error("this machine does not have the path " + machine.path);
    }
    HoldOneDnn(machine.oneDnn);
    HoldXnnpack(machine.xnnpack);
}

} // namespace orvo_bench
