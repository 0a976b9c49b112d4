// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace orvo {

// Features that lie one behind another. Where every number among them is 0 or of an ordinary size,
// their distances take a shorter way to the same bits; a part of ordinary ones is ordinary, too.
struct Features {
    const float* values; // count * ORVO_FR_FEATURE_LENGTH
    size_t count;
    bool areOrdinary;
};

// Looks through all numbers, which takes about as long as the distances of one feature to them do:
// once for many such calls where there are many.
Features LookThrough(const float* values, size_t count);

// The distances of one feature to others: distances[i] has the very bits of
// OrvoFrGetDistance(feature, ..., others.values + i * ORVO_FR_FEATURE_LENGTH, ...), on every
// processor and whatever the numbers are. Needs neither the models nor the working memory, keeps no
// state, and any number of threads may call it.
void Distances(const float* feature, const Features& others, float* distances);

} // namespace orvo
