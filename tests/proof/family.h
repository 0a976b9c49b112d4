// SPDX-License-Identifier: MIT
//
// A family of cases that is compared byte by byte on every path, and the count of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace orvo_proof {

struct Plan {
    uint64_t seeds = 100; // of each of the networks' shapes
    uint64_t every = 1;   // which cases are taken: each of this many
    bool spoil = false;   // a bit of the first case's result on the last path is turned over
};

class Family {
  public:
    Family(const char* name, const Plan& plan) : name_(name), plan_(plan) {}

    // Whether the next case is among those that are taken.
    bool Takes() { return seen_++ % plan_.every == 0; }

    // Runs a case on every path. `run` fills the bytes that it is given; before it they differ from the
    // expected ones everywhere, so that a byte which is not written counts. They lie between two
    // margins, which are to stay as they are.
    void Compare(std::span<const uint8_t> expected, const std::function<void(uint8_t* dst)>& run,
                 const std::function<std::string()>& describe);

    // Prints the line of the family. Returns how many bytes differ.
    uint64_t Report() const;

  private:
    const char* name_;
    Plan plan_;
    uint64_t seen_ = 0;
    uint64_t cases_ = 0;
    uint64_t comparisons_ = 0;
    uint64_t bytes_ = 0;
    uint64_t differing_ = 0;
    std::string first_;                 // what differed first
    std::vector<uint8_t> wanted_, got_; // with margins
};

template <typename T>
std::span<const uint8_t> AsBytes(const T& values) {
    return {reinterpret_cast<const uint8_t*>(values.data()),
            values.size() * sizeof(typename T::value_type)};
}

} // namespace orvo_proof
