// SPDX-License-Identifier: MIT
#include "soak/progress.h"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace orvo_soak {
namespace {

constexpr int64_t kBarSteps = 50;
constexpr int64_t kLineSteps = 10;

bool IsTerminal() { return isatty(STDOUT_FILENO) == 1; }

} // namespace

Progress::Progress(const char* what, int64_t count)
    : what_(what), count_(count), steps_(IsTerminal() ? kBarSteps : kLineSteps) {
    Done(0);
}

Progress::~Progress() {
    if (steps_ == kBarSteps) {
        std::printf("\r%*s\r", static_cast<int>(kBarSteps) + 20, "");
        std::fflush(stdout);
    }
}

void Progress::Done(int64_t rounds) {
    const int64_t step = rounds * steps_ / count_;
    if (step == shown_) {
        return;
    }
    shown_ = step;
    const int percent = static_cast<int>(100 * step / steps_);
    if (steps_ == kBarSteps) {
        std::string bar(kBarSteps, '.');
        bar.replace(0, static_cast<size_t>(step), static_cast<size_t>(step), '#');
        std::printf("\r%-8s [%s] %3d %%", what_, bar.c_str(), percent);
    } else {
        std::printf("%s %d %%\n", what_, percent);
    }
    std::fflush(stdout);
}

} // namespace orvo_soak
