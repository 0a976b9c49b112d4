// SPDX-License-Identifier: MIT
//
// Single layers of the networks as a textbook writes them: the measure of what the plain path gains
// by its order of loops. Compiled with -O2, see CMakeLists.txt.
#pragma once

#include "bench/own_layers.h"

namespace orvo_bench {

// What stands in the place of a path's name.
inline constexpr char kNaivePath[] = "naive";

// Like OwnStep(), with activations of its own.
Step NaiveStep(const Layer& layer);

} // namespace orvo_bench
