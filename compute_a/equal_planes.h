// SPDX-License-Identifier: MIT
//
// A 3 x 3 convolution of equal planes is one of a single plane, by the sums of the filters that the
// planes have: the recognition network starts with three copies of a grey picture. The products' sums are
// the same numbers, and so are the bytes, whatever wraps. A plane alone is equal to itself.
#pragma once

#include "compute_a/routines.h"

namespace orvo {

// Returns false, having done nothing, where planes differ or the path has no routine for one plane.
bool ConvolveEqualPlanes(const Routines& routines, const Convolution3x3& convolution);

} // namespace orvo
