// SPDX-License-Identifier: MIT
#include "terminal/progress.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>

namespace kova_cli {
namespace {

using std::chrono::steady_clock;

constexpr size_t kBarLength = 20;
constexpr std::chrono::milliseconds kBetween{100};
constexpr std::chrono::milliseconds kAtOnce{300};

// "7 s", "12 min", "3 h".
std::string Time(double seconds) {
    const auto whole = [](double value) { return std::to_string(std::lround(value)); };
    return seconds < 100    ? whole(std::ceil(seconds)) + " s"
           : seconds < 6000 ? whole(seconds / 60) + " min"
                            : whole(seconds / 3600) + " h";
}

// "38", and below ten "3.8".
std::string Rate(double perSecond) {
    char text[32];
    std::snprintf(text, sizeof text, perSecond < 9.95 ? "%.1f" : "%.0f", perSecond);
    return text;
}

double Seconds(steady_clock::duration time) { return std::chrono::duration<double>(time).count(); }

} // namespace

Progress::Progress(std::string what)
    : what_(std::move(what)),
      isWatched_(isatty(STDERR_FILENO) != 0),
      begin_(steady_clock::now()),
      last_(begin_ + kAtOnce - kBetween) {}

Progress::~Progress() { Clear(); }

void Progress::Show(size_t done, size_t all) {
    const auto now = steady_clock::now();
    if (!isWatched_ || all == 0 || now < last_ + kBetween) {
        return;
    }
    last_ = now;
    isShown_ = true;
    wasShown_ = true;
    const size_t full = kBarLength * done / all;
    const std::string bar = std::string(full, '#') + std::string(kBarLength - full, '.');
    std::string pace;
    if (done > 0) {
        const double perSecond = static_cast<double>(done) / Seconds(now - begin_);
        pace = ", " + Rate(perSecond) + " a second, " +
               Time(static_cast<double>(all - done) / perSecond) + " left";
    }
    std::fprintf(stderr, "\r%-10s [%s] %zu of %zu%s\033[K", what_.c_str(), bar.c_str(), done, all,
                 pace.c_str());
    std::fflush(stderr);
}

void Progress::Clear() {
    if (isShown_) {
        std::fputs("\r\033[K", stderr);
        isShown_ = false;
    }
}

void Progress::Close(size_t done, const std::string& unit) {
    Clear();
    if (!wasShown_) {
        return;
    }
    const double seconds = Seconds(steady_clock::now() - begin_);
    std::fprintf(stderr, "%s: %zu %s in %s, %s a second\n", what_.c_str(), done, unit.c_str(),
                 Time(seconds).c_str(), Rate(static_cast<double>(done) / seconds).c_str());
}

} // namespace kova_cli
