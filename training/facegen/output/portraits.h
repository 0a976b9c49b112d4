// SPDX-License-Identifier: MIT
#pragma once

#include "output/shards.h"

namespace facegen {

// Pictures as people have them of themselves, to show and not to train on: friendly light, calm
// faces from the front and from three-quarters, nothing worn or held before the face, no blur.

// One folder a person with PNG files of 256 x 256.
void RenderPortraits(const Studio& studio, const Job& job);

// All people of the job in one PNG, in two rows. With panoramas they stand before one of them.
void RenderGroup(const Studio& studio, const Job& job);

} // namespace facegen
