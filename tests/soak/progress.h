// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace orvo_soak {

// A bar on a terminal, a line for each tenth elsewhere. Any number of threads may report, if each
// reports numbers of its own.
class Progress {
  public:
    Progress(const char* what, int64_t count);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Done(int64_t rounds);

  private:
    const char* what_;
    int64_t count_;
    int64_t shown_ = -1; // steps
    int64_t steps_;
};

} // namespace orvo_soak
