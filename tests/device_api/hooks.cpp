// SPDX-License-Identifier: MIT
#include "device_api/hooks.h"

#include <dlfcn.h>

namespace device_test {

Hooks hooks;

namespace {

// Calls the hook if it is set, else the next function of that name after this program's own.
template <typename Result, typename... Arguments>
Result HookOrNext(const std::function<Result(Arguments...)>& hook, const char* name,
                  Arguments... arguments) {
    if (hook) {
        return hook(arguments...);
    }
    return reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, name))(arguments...);
}

} // namespace
} // namespace device_test

using namespace device_test;

int32_t OrvoFrInit(void) { return HookOrNext(hooks.init, "OrvoFrInit"); }

uint32_t OrvoFrGetMemorySize(void) {
    return HookOrNext(hooks.getMemorySize, "OrvoFrGetMemorySize");
}

int32_t OrvoFrSetMemory(void* addr, uint32_t size) {
    return HookOrNext(hooks.setMemory, "OrvoFrSetMemory", addr, size);
}

int32_t OrvoFrRun(const FrImage* img, void* result, uint32_t resultSize) {
    return HookOrNext(hooks.run, "OrvoFrRun", img, result, resultSize);
}

float OrvoFrGetDistance(const float* a, uint32_t aSize, const float* b, uint32_t bSize) {
    return HookOrNext(hooks.getDistance, "OrvoFrGetDistance", a, aSize, b, bSize);
}

int32_t KOVA_MPI_SYS_Munmap(void* vir, uint32_t size) {
    return HookOrNext(hooks.munmap, "KOVA_MPI_SYS_Munmap", vir, size);
}

int32_t KOVA_MPI_VGS_BeginJob(int32_t* handle) {
    return HookOrNext(hooks.beginJob, "KOVA_MPI_VGS_BeginJob", handle);
}

int32_t KOVA_MPI_VGS_AddScaleTask(int32_t handle, const kova_vgs_task* task, uint32_t mode) {
    return HookOrNext(hooks.addScaleTask, "KOVA_MPI_VGS_AddScaleTask", handle, task, mode);
}
