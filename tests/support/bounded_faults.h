// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <vector>

namespace orvo_test {

// A test that links support/bounded_faults.cpp supplies memcpy_s and memset_s itself, as a platform
// may, so that it sees every bounded copy and fill of the library and can make any of them fail.
struct BoundedCall {
    bool isCopy; // memcpy_s, else memset_s
    void* dst;
    size_t dstSize;
    const void* src; // memcpy_s only
    int value;       // memset_s only
    size_t count;
    int result;
};

// Starts recording with an empty record and no faults.
void RecordBoundedCalls();
const std::vector<BoundedCall>& BoundedCalls();

// The n-th bounded call (from 1) after this one returns `code` and writes nothing; with `forGood`
// every later one as well.
void FailBoundedCall(int n, int code, bool forGood = false);

// No faults, no recording.
void StopBoundedFaults();

} // namespace orvo_test
