// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>

namespace facegen {

// A line on the terminal that says how far the work is, how fast it goes and how long it takes yet.
// Where standard error is no terminal nothing is written until the end.
class Progress {
  public:
    explicit Progress(std::uint64_t total);
    void Add(std::uint64_t count); // from any thread
    void Finish();

  private:
    void Show();

    using Clock = std::chrono::steady_clock;
    std::mutex mutex_;
    std::uint64_t total_, done_ = 0;
    Clock::time_point start_, shown_;
    bool terminal_;
};

} // namespace facegen
