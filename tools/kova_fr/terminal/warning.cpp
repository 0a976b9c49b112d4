// SPDX-License-Identifier: MIT
#include "terminal/warning.h"

#include <unistd.h>

#include <cstdio>

#include "terminal/label.h"

namespace kova_cli {

void Warn(const std::string& text) {
    const char* const emptied = isatty(STDERR_FILENO) != 0 ? "\r\033[K" : "";
    std::fprintf(stderr, "%skova-fr: %s\n", emptied, OneLine(text).c_str());
}

} // namespace kova_cli
