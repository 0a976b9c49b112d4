// SPDX-License-Identifier: MIT
//
// What the parts of the device API share of its state. The state itself, one for the process, is
// private to lifecycle.cpp; every call into the core and every access to it happens under one
// mutex.
#pragma once

#include <cstdint>

namespace orvo {

// Holds the mutex for a scope. Where it cannot be locked, which POSIX has no case of for such a mutex, the
// call goes on; but what is another thread's is not unlocked.
class ApiLock {
  public:
    ApiLock();
    ~ApiLock();
    ApiLock(const ApiLock&) = delete;
    ApiLock& operator=(const ApiLock&) = delete;

  private:
    bool isHeld_;
};

// Whether kova_fr_init() has succeeded since the last kova_fr_deinit(). To be asked under the lock.
bool ApiIsInited();

// Addresses travel in 64-bit slots on every target.
inline void* ToPointer(uint64_t address) {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(address));
}
inline uint64_t ToAddress(const void* pointer) {
    return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(pointer));
}

} // namespace orvo
