// SPDX-License-Identifier: MIT
#include "timing/machine.h"

#include <fstream>

namespace orvo_timing {

std::string CpuName() {
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);) {
        if (line.starts_with("model name")) {
            return line.substr(line.find(':') + 2);
        }
    }
    return "unknown";
}

std::string CompilerName() {
#if defined(__clang__)
    return __VERSION__;
#else
    return "GCC " __VERSION__;
#endif
}

} // namespace orvo_timing
