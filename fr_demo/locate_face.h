// SPDX-License-Identifier: MIT
//
// From a 256 x 256 picture to the face in it: what OrvoFrRun() does before recognition, and what a
// program does that shows the box and the crop. Working memory must be set.
#pragma once

#include "fr_demo/face_box.h"
#include "orvo/image_tools.h"
#include "orvo/orvo_fr.h"

namespace orvo {

// The box that the alignment network finds. `small` has room for ORVO_FR_ALIGN_SIZE rows and
// columns, which the network turns into its own input.
inline FaceBox LocateFace(const FrImage& picture, uint8_t* small) {
    ImageResizeBilin(picture.addr, small, picture.height, picture.width, picture.stride,
                     ORVO_FR_ALIGN_SIZE, ORVO_FR_ALIGN_SIZE);
    AlignRun(small);
    return BoxOfAnswer(AlignGetOutput());
}

// One plane of ORVO_FR_CROP_SIZE rows and columns. The row pitch is 256 here whatever the picture's
// stride is: the contract of OrvoFrRun().
inline void CropFace(const FrImage& picture, const FaceBox& box, uint8_t* crop) {
    ImageResizeBilin(picture.addr + box.top * ORVO_FR_IMAGE_SIZE + box.left, crop,
                     box.bottom - box.top, box.right - box.left, ORVO_FR_IMAGE_SIZE,
                     ORVO_FR_CROP_SIZE, ORVO_FR_CROP_SIZE);
}

} // namespace orvo
