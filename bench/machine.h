// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace orvo_bench {

std::string CpuName();
std::string CompilerName();

} // namespace orvo_bench
