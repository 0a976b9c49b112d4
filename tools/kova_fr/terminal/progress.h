// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <string>

namespace kova_cli {

// A bar on standard error while somebody is watching, with the rate and the time that is left;
// nothing if that is no terminal, nor where the work is done at once.
class Progress {
  public:
    explicit Progress(std::string what);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Show(size_t done, size_t all);
    // Makes room for a message.
    void Clear();
    // In place of the bar, if there was one, a line that says how much was done in which time:
    // "Reading: 400 pictures in 12 s, 33 a second".
    void Close(size_t done, const std::string& unit);

  private:
    std::string what_;
    bool isWatched_;
    bool isShown_ = false;
    bool wasShown_ = false;
    std::chrono::steady_clock::time_point begin_;
    std::chrono::steady_clock::time_point last_;
};

} // namespace kova_cli
