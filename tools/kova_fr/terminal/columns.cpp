// SPDX-License-Identifier: MIT
#include "terminal/columns.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

namespace kova_cli {

std::optional<size_t> OutputColumns() {
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return size.ws_col;
    }
    const char* const text = std::getenv("COLUMNS");
    const long columns = text == nullptr ? 0 : std::strtol(text, nullptr, 10);
    return columns > 0 ? std::optional(static_cast<size_t>(columns)) : std::nullopt;
}

} // namespace kova_cli
