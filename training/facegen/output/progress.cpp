// SPDX-License-Identifier: MIT
#include "output/progress.h"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace facegen {
namespace {

constexpr int kBarWidth = 30;

} // namespace

Progress::Progress(std::uint64_t total)
    : total_(total), start_(Clock::now()), shown_(start_), terminal_(isatty(STDERR_FILENO) != 0) {}

void Progress::Add(std::uint64_t count) {
    const std::lock_guard lock(mutex_);
    done_ += count;
    if (terminal_ && Clock::now() - shown_ > std::chrono::milliseconds(250)) {
        Show();
    }
}

void Progress::Show() {
    shown_ = Clock::now();
    const double seconds = std::chrono::duration<double>(shown_ - start_).count();
    const double rate = static_cast<double>(done_) / seconds;
    const double left = rate > 0 ? static_cast<double>(total_ - done_) / rate : 0;
    const auto filled =
        static_cast<std::size_t>(total_ > 0 ? kBarWidth * done_ / total_ : kBarWidth);
    const std::string bar = std::string(filled, '#') + std::string(kBarWidth - filled, '.');
    std::fprintf(stderr, "\r[%s] %llu/%llu  %.0f/s  %.0f s left   ", bar.c_str(),
                 static_cast<unsigned long long>(done_), static_cast<unsigned long long>(total_),
                 rate, left);
}

void Progress::Finish() {
    const std::lock_guard lock(mutex_);
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    std::fprintf(stderr, "%s%llu pictures in %.1f s, %.0f a second\n", terminal_ ? "\r\x1b[K" : "",
                 static_cast<unsigned long long>(done_), seconds,
                 static_cast<double>(done_) / (seconds > 0 ? seconds : 1));
}

} // namespace facegen
