// SPDX-License-Identifier: MIT
//
// From the alignment network's answer to the part of the picture that the crop is made of.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "orvo/orvo_fr.h"

namespace orvo {

// A region of the picture: left and top inclusive, right and bottom exclusive.
struct FaceBox {
    int32_t left, top, right, bottom;

    bool empty() const { return left >= right || top >= bottom; }
};

// The alignment network answers in units of 2 pixels.
inline int32_t ToPixels(int8_t answer) {
    return static_cast<int32_t>(std::floor((answer * 256 + 64) * 0.0078125));
}

// What of the answered box lies inside the picture, or the whole picture if nothing does: untrained
// or enciphered weights can answer anything, and nothing outside the picture may be read.
inline FaceBox BoxOfAnswer(const int8_t answer[4]) {
    const FaceBox cut{std::max(ToPixels(answer[0]), 0), std::max(ToPixels(answer[1]), 0),
                      std::min(ToPixels(answer[2]), int32_t{ORVO_FR_IMAGE_SIZE}),
                      std::min(ToPixels(answer[3]), int32_t{ORVO_FR_IMAGE_SIZE})};
    return cut.empty() ? FaceBox{0, 0, ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE} : cut;
}

} // namespace orvo
