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

// Whether every byte of the box, taken with the picture's rows 256 bytes apart, lies inside the
// picture's plane. A left edge outside the picture then falls into the end of the row above.
inline bool LiesInPlane(const FaceBox& box) {
    return ORVO_FR_IMAGE_SIZE * box.top + box.left >= 0 &&
           ORVO_FR_IMAGE_SIZE * (box.bottom - 1) + box.right <=
               ORVO_FR_IMAGE_SIZE * ORVO_FR_IMAGE_SIZE;
}

inline FaceBox CutToPicture(const FaceBox& box) noexcept {
    return {std::max(box.left, 0), std::max(box.top, 0),
            std::min(box.right, int32_t{ORVO_FR_IMAGE_SIZE}),
            std::min(box.bottom, int32_t{ORVO_FR_IMAGE_SIZE})};
}

// The answered box corner for corner where its bytes can be read. Otherwise, since untrained or
// enciphered weights can answer anything, what of it lies inside the picture, or the whole picture
// if nothing does.
inline FaceBox BoxOfAnswer(const int8_t answer[4]) {
    const FaceBox box{ToPixels(answer[0]), ToPixels(answer[1]), ToPixels(answer[2]),
                      ToPixels(answer[3])};
    if (!box.empty() && LiesInPlane(box)) {
        return box;
    }
    const FaceBox cut = CutToPicture(box);
    return cut.empty() ? FaceBox{0, 0, ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE} : cut;
}

} // namespace orvo
