// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace kova_cli {

// A line on standard error that says how far long work is; nothing unless that is a terminal.
class Progress {
  public:
    Progress(std::string what, size_t total);
    ~Progress(); // takes the line away
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Advance();

  private:
    void Show();

    std::string what_;
    size_t total_;
    size_t done_ = 0;
    bool isShown_;
    std::chrono::steady_clock::time_point begin_, last_;
};

} // namespace kova_cli
