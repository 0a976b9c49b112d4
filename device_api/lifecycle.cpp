// SPDX-License-Identifier: MIT
//
// Initialisation, shut-down and the distance of two features.
#include <pthread.h>

#include "device_api/diagnostics.h"
#include "device_api/state.h"
#include "orvo/kova_fr.h"
#include "orvo/kova_mpi.h"
#include "orvo/orvo_fr.h"

// Static, so that a program that links the static library keeps these names for itself.
static pthread_mutex_t g_frApiMutex = PTHREAD_MUTEX_INITIALIZER;
static uint32_t g_frApiInited;  // 1 between a successful kova_fr_init() and kova_fr_deinit()
static uint64_t g_frMemPhyAddr; // the working memory: physical address,
static uint64_t g_frMemVirAddr; // user-space address, in a slot of the same width,
static uint32_t g_frMemSize;    // and size in bytes

namespace orvo {

ApiLock::ApiLock() : isHeld_(pthread_mutex_lock(&g_frApiMutex) == 0) {}
ApiLock::~ApiLock() {
    if (isHeld_) {
        pthread_mutex_unlock(&g_frApiMutex);
    }
}

bool ApiIsInited() { return g_frApiInited != 0; }

} // namespace orvo

uint32_t kova_fr_init(void) {
    const orvo::ApiLock lock;
    if (g_frApiInited == 1) {
        KOVA_FR_INFO("fr already inited\n");
        return KOVA_FR_ERR_EXIST;
    }
    // The core cannot be de-initialised: after the first time it answers that it is initialised.
    const int32_t initStatus = OrvoFrInit();
    if (initStatus != ORVO_FR_OK && initStatus != ORVO_FR_REPEAT_INIT) {
        KOVA_FR_INFO("fr init failed,Error(%#x)\n", static_cast<uint32_t>(initStatus));
        return KOVA_FR_ERR_NOT_READY;
    }
    const uint32_t size = OrvoFrGetMemorySize();
    if (size == 0) {
        KOVA_FR_INFO("Get memory size 0\n");
        return KOVA_FR_ERR_NOMEM;
    }
    uint64_t phyAddr = 0;
    void* virAddr = nullptr;
    const int32_t allocStatus =
        KOVA_MPI_SYS_MmzAlloc_Cached(&phyAddr, &virAddr, "FR_MEM", nullptr, size);
    if (allocStatus != 0) {
        KOVA_FR_INFO("malloc failed, Error(%#x)\n", static_cast<uint32_t>(allocStatus));
        return KOVA_FR_ERR_NOMEM;
    }
    const int32_t memoryStatus = OrvoFrSetMemory(virAddr, size);
    if (memoryStatus != ORVO_FR_OK) {
        KOVA_FR_INFO("OrvoFrSetMemory failed, Error(0x%x)\n", static_cast<uint32_t>(memoryStatus));
        if (phyAddr != 0 && virAddr != nullptr) {
            (void)KOVA_MPI_SYS_MmzFree(phyAddr, virAddr);
        }
        return KOVA_FR_ERR_NOMEM;
    }
    g_frMemPhyAddr = phyAddr;
    g_frMemVirAddr = orvo::ToAddress(virAddr);
    g_frMemSize = size;
    g_frApiInited = 1;
    return KOVA_FR_OK;
}

uint32_t kova_fr_deinit(void) {
    const orvo::ApiLock lock;
    if (g_frApiInited == 0) {
        KOVA_FR_INFO("fr already deinited\n");
        return KOVA_FR_ERR_UNEXIST;
    }
    if (g_frMemPhyAddr != 0 && g_frMemVirAddr != 0) {
        const int32_t status =
            KOVA_MPI_SYS_MmzFree(g_frMemPhyAddr, orvo::ToPointer(g_frMemVirAddr));
        if (status != 0) {
            KOVA_FR_INFO("free failed, Error(%#x)\n", static_cast<uint32_t>(status));
            return static_cast<uint32_t>(status);
        }
    }
    g_frApiInited = 0;
    g_frMemSize = 0;
    g_frMemPhyAddr = 0;
    g_frMemVirAddr = 0;
    return KOVA_FR_OK;
}

uint32_t kova_fr_get_distance(const float* feature_a, int32_t feature_a_len, const float* feature_b,
                              int32_t feature_b_len, float* result) {
    if (feature_a == nullptr) {
        KOVA_FR_INFO("Error: feature_a null!\n");
        return KOVA_FR_ERR_NULL_PTR;
    }
    if (feature_a_len != KOVA_FR_FEATURE_LEN) {
        KOVA_FR_INFO("Error: feature_a_len(%d) must be %d!\n", feature_a_len, KOVA_FR_FEATURE_LEN);
        return KOVA_FR_ERR_ILLEGAL_PARAM;
    }
    if (feature_b == nullptr) {
        KOVA_FR_INFO("Error: feature_b null!\n");
        return KOVA_FR_ERR_NULL_PTR;
    }
    if (feature_b_len != KOVA_FR_FEATURE_LEN) {
        KOVA_FR_INFO("Error: feature_b_len(%d) must be %d!\n", feature_b_len, feature_a_len);
        return KOVA_FR_ERR_ILLEGAL_PARAM;
    }
    if (result == nullptr) {
        KOVA_FR_INFO("Error: result null!\n");
        return KOVA_FR_ERR_NULL_PTR;
    }
    const orvo::ApiLock lock;
    if (g_frApiInited == 0) {
        KOVA_FR_INFO("fr already deinited\n");
        return KOVA_FR_ERR_UNEXIST;
    }
    *result = OrvoFrGetDistance(feature_a, ORVO_FR_FEATURE_BYTES, feature_b, ORVO_FR_FEATURE_BYTES);
    return KOVA_FR_OK;
}
