// SPDX-License-Identifier: MIT
#include "terminal/progress.h"

#include <unistd.h>

#include <cstdio>

namespace kova_cli {
namespace {

constexpr size_t kBarLength = 30;
constexpr std::chrono::milliseconds kBetween{100};

} // namespace

Progress::Progress(std::string what)
    : what_(std::move(what)), isWatched_(isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() { Clear(); }

void Progress::Show(size_t done, size_t all) {
    const auto now = std::chrono::steady_clock::now();
    if (!isWatched_ || all == 0 || now - last_ < kBetween) {
        return;
    }
    last_ = now;
    isShown_ = true;
    const size_t full = kBarLength * done / all;
    const std::string bar = std::string(full, '#') + std::string(kBarLength - full, '.');
    std::fprintf(stderr, "\r%-10s [%s] %zu of %zu\033[K", what_.c_str(), bar.c_str(), done, all);
    std::fflush(stderr);
}

void Progress::Clear() {
    if (isShown_) {
        std::fputs("\r\033[K", stderr);
        isShown_ = false;
    }
}

} // namespace kova_cli
