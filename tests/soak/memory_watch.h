// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace orvo_soak {

// The process's memory over many rounds. A tenth of the rounds, at most 10,000, warm up; from then on it
// must not grow by one page, nor the heap by one byte.
class MemoryWatch {
  public:
    explicit MemoryWatch(int64_t rounds);

    // To be called after each round. @throws Failure where it has grown
    void After(int64_t round);
    // What was seen, in words.
    std::string Text() const;

  private:
    struct Memory {
        int64_t resident; // bytes
        int64_t heap;     // bytes in use; 0 where the C library does not say
    };
    static Memory Now();

    int64_t warmUp_;
    int64_t every_;
    int64_t looks_ = 0;
    Memory first_ = {};
    int64_t least_ = 0; // resident
};

} // namespace orvo_soak
