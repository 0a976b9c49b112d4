// SPDX-License-Identifier: MIT
#include "support/bounded_faults.h"

#include <cerrno>
#include <cstring>

#include "orvo/bounded_memory.h"

namespace orvo_test {
namespace {

std::vector<BoundedCall> calls;
bool recording = false;
int countdown = 0; // the call that brings it to 0 fails
int faultCode = 0;
bool faultForGood = false;

int InjectedFault() {
    if (countdown == 0) {
        return 0;
    }
    if (countdown == 1) {
        if (!faultForGood) {
            countdown = 0;
        }
        return faultCode;
    }
    --countdown;
    return 0;
}

} // namespace

void RecordBoundedCalls() {
    calls.clear();
    recording = true;
    countdown = 0;
}

const std::vector<BoundedCall>& BoundedCalls() { return calls; }

void FailBoundedCall(int n, int code, bool forGood) {
    countdown = n;
    faultCode = code;
    faultForGood = forGood;
}

void StopBoundedFaults() {
    recording = false;
    countdown = 0;
}

} // namespace orvo_test

extern "C" int memcpy_s(void* dst, size_t dstSize, const void* src, size_t count) {
    using namespace orvo_test;
    int result = InjectedFault();
    if (result == 0) {
        result = dst == nullptr || src == nullptr ? EINVAL : count > dstSize ? ERANGE : 0;
    }
    if (recording) {
        calls.push_back({true, dst, dstSize, src, 0, count, result});
    }
    if (result == 0) {
        std::memcpy(dst, src, count);
    }
    return result;
}

extern "C" int memset_s(void* dst, size_t dstSize, int value, size_t count) {
    using namespace orvo_test;
    int result = InjectedFault();
    if (result == 0) {
        result = dst == nullptr ? EINVAL : count > dstSize ? ERANGE : 0;
    }
    if (recording) {
        calls.push_back({false, dst, dstSize, nullptr, value, count, result});
    }
    if (result == 0) {
        std::memset(dst, value, count);
    }
    return result;
}
