// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

#include "evaluation/eval_features.h"

namespace kova_cli {

// How the pictures of a study are read: --crop, --any-quality, --strict.
void AddReadingOptions(CLI::App& command, FeatureReading& reading);

} // namespace kova_cli
