// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "orvo/kova_mpi_host.h"

namespace kova_host {

// The functions of kova_mpi.h that can be recorded and made to fail.
enum Function : size_t {
    kMmzAlloc,
    kMmzAllocCached,
    kMmzFree,
    kMmap,
    kMunmap,
    kBeginJob,
    kAddScaleTask,
    kEndJob,
    kCancelJob,
    kFunctionCount
};

// What a test has ordered for one function.
struct Fault {
    enum Kind { kNone, kFail, kBlankPhy, kBlankVir };

    Kind kind = kNone;
    uint32_t countdown = 0; // the call that finds 1 here is the one
    int32_t code = 0;
    bool forGood = false;
};

struct CallTrace {
    std::array<Fault, kFunctionCount> faults;
    std::vector<kova_mpi_host_call> calls;
    uint32_t callCount = 0;
    bool recording = false;
};

// @return kFunctionCount if there is no function of that name
Function FunctionNamed(const char* name);

kova_mpi_host_call NewCall(Function function);

// Where there is no memory for the record, the count alone knows of the call.
void RecordCall(CallTrace& trace, const kova_mpi_host_call& call) noexcept;

// What `function` answers where this process has no memory left.
int32_t OutOfMemory(Function function);

// Counts a call of `function` and says what is to happen to it.
Fault TakeFault(CallTrace& trace, Function function);

// Makes a call: its body runs unless the call is to fail; what it returns is recorded either way.
// The body may complete the record of the call. No exception leaves it: those who call are built
// without them, and would keep their locks.
template <typename Body>
int32_t MakeCall(CallTrace& trace, Function function, kova_mpi_host_call& call, Body body) {
    const Fault fault = TakeFault(trace, function);
    try {
        call.result = fault.kind == Fault::kFail ? fault.code : body(fault.kind);
    } catch (const std::bad_alloc&) {
        call.result = OutOfMemory(function);
    }
    RecordCall(trace, call);
    return call.result;
}

// Copies as much of a name as the public records keep.
void CopyName(char (&to)[KOVA_MPI_HOST_NAME_SIZE], const char* from);

} // namespace kova_host
