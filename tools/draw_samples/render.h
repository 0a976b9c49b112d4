// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "portrait.h"

namespace draw_samples {

// A square picture of `size` rows, red, green and blue a byte each. The same portrait, size and
// seed give the same picture.
std::vector<uint8_t> Render(const Portrait& portrait, int size, uint64_t seed);

} // namespace draw_samples
