// SPDX-License-Identifier: MIT
//
// Single layers of the networks on this library's kernels, with random weights.
#pragma once

#include <functional>

#include "bench/networks.h"

namespace orvo_bench {

using Step = std::function<void()>;

// All steps share one set of activation slots and one scratch, as in a run of the network. The
// input is whatever the step before left.
Step OwnStep(const Layer& layer);

} // namespace orvo_bench
