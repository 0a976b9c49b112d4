// SPDX-License-Identifier: MIT
#include "find/recognise.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "orvo/orvo_find.h"
#include "orvo/orvo_fr.h"

namespace orvo::find {
namespace {

constexpr int32_t kSide = ORVO_FIND_CROP_SIZE;
constexpr uint32_t kCropBytes = kSide * kSide;
constexpr int32_t kLength = ORVO_FIND_FEATURE_LENGTH;

// What it makes of a crop stays where the recogniser keeps it.
const float* Answer(const uint8_t* crop) {
    for (uint32_t plane = 0; plane < 3; ++plane) {
        std::memcpy(g_frInnerImage + plane * kCropBytes, crop, kCropBytes);
    }
    FrRun(g_frInnerImage);
    return FrGetOutput();
}

// Sums in double precision and in this order, so that every processor gives the same bytes. Opposite
// features have no mean direction: the first stays.
void TakeMean(float* feature, const float* other) {
    double sums[kLength];
    double squares = 0;
    for (int32_t i = 0; i < kLength; ++i) {
        sums[i] = static_cast<double>(feature[i]) + static_cast<double>(other[i]);
        squares += sums[i] * sums[i];
    }
    if (squares == 0) {
        return;
    }
    const double inverse = 1 / std::sqrt(squares);
    for (int32_t i = 0; i < kLength; ++i) {
        feature[i] = static_cast<float>(sums[i] * inverse);
    }
}

} // namespace

void Recognise(const uint8_t* crop, float* feature) {
    std::memcpy(feature, Answer(crop), kLength * sizeof *feature);
}

void TakeMirrored(uint8_t* crop, float* feature) {
    for (int32_t row = 0; row < kSide; ++row) {
        std::reverse(crop + row * kSide, crop + (row + 1) * kSide);
    }
    TakeMean(feature, Answer(crop));
}

} // namespace orvo::find
