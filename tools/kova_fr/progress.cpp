// SPDX-License-Identifier: MIT
#include "progress.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

namespace kova_cli {
namespace {

constexpr std::chrono::milliseconds kPause{100};
constexpr size_t kBarLength = 30;
constexpr const char* kClearLine = "\r\033[K";

} // namespace

Progress::Progress(std::string what, size_t total)
    : what_(std::move(what)),
      total_(total),
      isShown_(isatty(STDERR_FILENO) == 1),
      begin_(std::chrono::steady_clock::now()),
      last_(begin_) {}

Progress::~Progress() {
    if (isShown_) {
        std::fputs(kClearLine, stderr);
    }
}

void Progress::Advance() {
    ++done_;
    const auto now = std::chrono::steady_clock::now();
    if (isShown_ && now - last_ >= kPause) {
        last_ = now;
        Show();
    }
}

void Progress::Show() {
    const double seconds = std::chrono::duration<double>(last_ - begin_).count();
    const double rate = static_cast<double>(done_) / seconds;
    const size_t filled = kBarLength * done_ / total_;
    const std::string bar = std::string(filled, '#') + std::string(kBarLength - filled, '.');
    std::fprintf(stderr, "%s%s [%s] %zu of %zu, %.0f a second, %.0f s left", kClearLine,
                 what_.c_str(), bar.c_str(), done_, total_, rate,
                 static_cast<double>(total_ - done_) / rate);
}

} // namespace kova_cli
