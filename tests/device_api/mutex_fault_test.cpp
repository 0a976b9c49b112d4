// SPDX-License-Identifier: MIT
// A mutex that cannot be locked. With this program's pthread_mutex_lock between the library and the system's.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <functional>
#include <vector>

#include "device_api/device_fixture.h"

using namespace device_test;

namespace {

// The calls of the library's functions each begin with the library's own mutex; what they lock after it is
// the platform's and the C library's.
int locksUntilFault = 0; // the lock that finds 1 here fails; 0: none
bool isWatching = false;
std::vector<pthread_mutex_t*> refused;
int unlockedWithoutLock = 0;

using MutexFunction = int (*)(pthread_mutex_t*);

// Found on first use without a guarded static: where the machine has no atomics, the guard locks a mutex itself.
MutexFunction Found(MutexFunction& next, const char* name) {
    if (next == nullptr) {
        next = reinterpret_cast<MutexFunction>(dlsym(RTLD_NEXT, name));
    }
    return next;
}

MutexFunction nextLock = nullptr;
MutexFunction nextUnlock = nullptr;

bool FailsNow() { return isWatching && locksUntilFault != 0 && --locksUntilFault == 0; }

} // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (FailsNow()) {
        refused.push_back(mutex);
        return EINVAL;
    }
    return Found(nextLock, "pthread_mutex_lock")(mutex);
}

extern "C" int pthread_mutex_unlock(pthread_mutex_t* mutex) {
    if (isWatching && !refused.empty() && refused.back() == mutex) {
        ++unlockedWithoutLock;
        return EPERM;
    }
    return Found(nextUnlock, "pthread_mutex_unlock")(mutex);
}

namespace {

// The first lock of the call fails, which is that of the library's own mutex.
uint32_t WithRefusedLock(const std::function<uint32_t()>& call) {
    refused.clear();
    locksUntilFault = 1;
    isWatching = true;
    const uint32_t code = call();
    isWatching = false;
    locksUntilFault = 0;
    EXPECT_EQ(refused.size(), 1u);
    return code;
}

TEST(DeviceMutex, WhatCouldNotBeLockedIsNotUnlocked) {
    const MediaFrame frame(64, 48, 64);
    Feature feature{};
    Feature again{};
    float distance = 0;
    const Outcome outcome = Observe([&]() -> uint32_t {
        EXPECT_EQ(WithRefusedLock(kova_fr_init), KOVA_FR_OK);
        EXPECT_EQ(WithRefusedLock([&] { return Extract(frame.image(0), feature); }), KOVA_FR_OK);
        EXPECT_EQ(WithRefusedLock([&] {
                      return kova_fr_get_distance(feature.data(), 128, feature.data(), 128,
                                                  &distance);
                  }),
                  KOVA_FR_OK);
        EXPECT_EQ(WithRefusedLock(kova_fr_init), KOVA_FR_ERR_EXIST);
        EXPECT_EQ(WithRefusedLock(kova_fr_deinit), KOVA_FR_OK);
        EXPECT_EQ(WithRefusedLock(kova_fr_deinit), KOVA_FR_ERR_UNEXIST);
        // The next calls find the mutex as it was.
        EXPECT_EQ(kova_fr_init(), KOVA_FR_OK);
        EXPECT_EQ(Extract(frame.image(0), again), KOVA_FR_OK);
        return kova_fr_deinit();
    });
    EXPECT_EQ(outcome.code, KOVA_FR_OK);
    EXPECT_EQ(unlockedWithoutLock, 0);
    EXPECT_TRUE(SameBits(feature, again));
    EXPECT_NEAR(distance, 1.0f, 1e-5f);
    EXPECT_EQ(Usage().blocks, 1u); // the test's frame
}

} // namespace
