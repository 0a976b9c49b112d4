// SPDX-License-Identifier: MIT
//
// What a device does for years, done in minutes. Each part runs its count of rounds, compares every
// result with the first one of its kind, and fails with one line.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace orvo_soak {

// What went wrong, in one line.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

inline void Require(bool ok, const std::string& what) {
    if (!ok) {
        throw Failure(what);
    }
}

// Something that must be noticed, done on purpose.
enum class Fault { kNone, kGrowth, kResult, kRace };

// Each returns what it has to say at its end.
std::string RunFaces(int64_t count, Fault fault);
std::string RunFinds(int64_t count, Fault fault);
std::string RunCycles(int64_t count, Fault fault);
std::string RunCalls(int64_t count, Fault fault); // of each thread
std::string RunRaces(int64_t count, Fault fault);

} // namespace orvo_soak
