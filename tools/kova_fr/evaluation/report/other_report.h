// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "evaluation/charts/error_charts.h"

namespace kova_cli {

// The curve of a report.json that an earlier evaluation wrote; none for an empty path. It is named
// after its folder, where reports have the same name. The Failure names the file.
OtherCurve ReadOtherCurve(const std::string& path);

} // namespace kova_cli
