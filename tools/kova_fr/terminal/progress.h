// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <string>

namespace kova_cli {

// A bar on standard error while somebody is watching: nothing if that is no terminal.
class Progress {
  public:
    explicit Progress(std::string what);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Show(size_t done, size_t all);
    // Makes room for a message.
    void Clear();

  private:
    std::string what_;
    bool isWatched_;
    bool isShown_ = false;
    std::chrono::steady_clock::time_point last_{};
};

} // namespace kova_cli
