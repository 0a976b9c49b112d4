// SPDX-License-Identifier: MIT
#pragma once

#include "tools/seed_models/q7_batch.h"
#include "tools/seed_models/seeder.h"

namespace orvo::seed {

// Draw every layer of a network by running it. `in`: one plane of 24 x 24, or three of 96 x 96.
// The result is the last layer's: the four box corners, or the feature before normalisation.
Batch SeedAlign(const Batch& in, Seeder* seeder);
Batch SeedFr(const Batch& in, Seeder* seeder);

} // namespace orvo::seed
