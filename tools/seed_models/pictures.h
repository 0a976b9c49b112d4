// SPDX-License-Identifier: MIT
#pragma once

#include "tools/seed_models/q7_batch.h"

namespace orvo::seed {

// The part of a picture that is sampled, in units of the picture's side.
struct Window {
    double left;
    double top;
    double right;
    double bottom;
};

// Samples a window of simple synthetic portraits: a shaded oval with eyes, brows, nose and mouth
// of random place, size and tone before a tilted background. Each picture has `channels` equal
// planes of size x size, already in Q7.
Batch DrawPictures(int pictures, int channels, int size, const Window& window);

} // namespace orvo::seed
