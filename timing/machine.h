// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace orvo_timing {

std::string CpuName();
std::string CompilerName();

} // namespace orvo_timing
