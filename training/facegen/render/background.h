// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "random.h"

namespace facegen {

// Fills width x height tones, 0 to 1 as they appear in the picture.
void DrawBackground(std::vector<float>& tones, int width, int height, Random& random);

// In front of a face: a hand, an arm, a phone, a scarf, a bar. Blends it in; `unit` is the side of
// the face box and (x, y) its middle, in pixels.
void DrawOccluder(std::vector<float>& tones, int width, int height, float x, float y, float unit,
                  float skinTone, Random& random);

} // namespace facegen
