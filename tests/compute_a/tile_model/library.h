// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace orvo_test {

// How many matrix products the AMX path has left to the routines of AVX-512.
size_t ProductsWithoutTiles();

} // namespace orvo_test
