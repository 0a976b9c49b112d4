// SPDX-License-Identifier: MIT
#include "platform/host/call_trace.h"

#include <algorithm>
#include <cstring>

namespace kova_host {
namespace {

// Enough for any test; a recording that is never stopped must not eat the machine's memory.
constexpr size_t kMostCallsKept = 4096;

constexpr const char* kFunctionNames[kFunctionCount] = {
    "KOVA_MPI_SYS_MmzAlloc",     "KOVA_MPI_SYS_MmzAlloc_Cached", "KOVA_MPI_SYS_MmzFree",
    "KOVA_MPI_SYS_Mmap",         "KOVA_MPI_SYS_Munmap",          "KOVA_MPI_VGS_BeginJob",
    "KOVA_MPI_VGS_AddScaleTask", "KOVA_MPI_VGS_EndJob",          "KOVA_MPI_VGS_CancelJob",
};

} // namespace

Function FunctionNamed(const char* name) {
    size_t i = 0;
    while (i < kFunctionCount && (name == nullptr || std::strcmp(name, kFunctionNames[i]) != 0)) {
        ++i;
    }
    return static_cast<Function>(i);
}

kova_mpi_host_call NewCall(Function function) {
    kova_mpi_host_call call{};
    call.function = kFunctionNames[function];
    call.handle = -1;
    return call;
}

void RecordCall(CallTrace& trace, const kova_mpi_host_call& call) noexcept {
    if (!trace.recording) {
        return;
    }
    ++trace.callCount;
    try {
        if (trace.calls.size() < kMostCallsKept) {
            trace.calls.push_back(call);
        }
    } catch (...) { // there is no memory for it
        return;
    }
}

int32_t OutOfMemory(Function function) {
    return function < kBeginJob ? KOVA_SYS_ERR_NOMEM : KOVA_VGS_ERR_NOMEM;
}

Fault TakeFault(CallTrace& trace, Function function) {
    Fault& fault = trace.faults[function];
    if (fault.kind == Fault::kNone) {
        return Fault{};
    }
    if (fault.countdown > 1) {
        --fault.countdown;
        return Fault{};
    }
    const Fault taken = fault;
    if (!fault.forGood) {
        fault = Fault{};
    }
    return taken;
}

void CopyName(char (&to)[KOVA_MPI_HOST_NAME_SIZE], const char* from) {
    const size_t length = std::min(std::strlen(from), sizeof to - 1);
    std::memcpy(to, from, length);
    to[length] = '\0';
}

} // namespace kova_host
