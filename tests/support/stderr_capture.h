// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace orvo_test {

// Takes over file descriptor 2 while it lives; text() gives what was written there so far.
class StderrCapture {
  public:
    StderrCapture();
    ~StderrCapture();
    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    std::string text();

  private:
    int saved_;
    int file_;
};

} // namespace orvo_test
