// SPDX-License-Identifier: MIT
//
// The device API's module state, one for the process. Every call into the core and every access to
// the rest of this state happens under the mutex.
#pragma once

#include <pthread.h>

#include <cstdint>

extern pthread_mutex_t g_frApiMutex;
extern uint32_t g_frApiInited;  // 1 between a successful kova_fr_init() and kova_fr_deinit()
extern uint64_t g_frMemPhyAddr; // the working memory: physical address,
extern uint64_t g_frMemVirAddr; // user-space address, in a slot of the same width,
extern uint32_t g_frMemSize;    // and size in bytes

namespace orvo {

// Holds the mutex for a scope.
class ApiLock {
  public:
    ApiLock() { pthread_mutex_lock(&g_frApiMutex); }
    ~ApiLock() { pthread_mutex_unlock(&g_frApiMutex); }
    ApiLock(const ApiLock&) = delete;
    ApiLock& operator=(const ApiLock&) = delete;
};

// Addresses travel in 64-bit slots on every target.
inline void* ToPointer(uint64_t address) {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(address));
}
inline uint64_t ToAddress(const void* pointer) {
    return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(pointer));
}

} // namespace orvo
