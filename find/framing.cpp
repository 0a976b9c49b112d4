// SPDX-License-Identifier: MIT
//
// The finder knows where a face's middle is to two percent of its side, but faces between two of its
// levels come out up to a fifth too small, and the recogniser was trained on faces as the alignment
// network frames them. So that network is shown the face turned upright, as large as it is used to,
// and has the last word on the side. Single precision in the order that stands here.
#include "find/framing.h"

#include <cmath>

#include "find/upright.h"
#include "orvo/image_tools.h"
#include "orvo/orvo_fr.h"

namespace orvo::find {
namespace {

constexpr float kWindow = 1.75f;    // its side in sides of the face
constexpr float kUnits = 128.0f;    // of an answer in a window
constexpr float kLeastRatio = 0.5f; // of the new side to the old one: what is beyond is no box
constexpr float kMostRatio = 2.0f;

float InEighths(float value) { return std::floor(value * 8.0f + 0.5f) * 0.125f; }

} // namespace

OrvoFindFace FramedByAnswer(const OrvoFindFace& face, const int8_t* answer) {
    const int32_t width = answer[2] - answer[0];
    const int32_t height = answer[3] - answer[1];
    const float unit = face.side * kWindow / kUnits;
    const float side = InEighths(static_cast<float>(width + height) * unit * 0.5f);
    if (width <= 0 || height <= 0 || !(side >= 1.0f) || side < kLeastRatio * face.side ||
        side > kMostRatio * face.side) {
        return face;
    }
    // Both know the middle equally well: halfway from the finder's to the network's.
    const float u = static_cast<float>(answer[0] + answer[2] - 128) * unit * 0.25f;
    const float v = static_cast<float>(answer[1] + answer[3] - 128) * unit * 0.25f;
    const Axis axis = AxisOf(face);
    const float half = face.side * 0.5f;
    const float x = face.left + half + (axis.cosine * u - axis.sine * v);
    const float y = face.top + half + (axis.sine * u + axis.cosine * v);
    OrvoFindFace framed = face;
    framed.left = InEighths(x - side * 0.5f);
    framed.top = InEighths(y - side * 0.5f);
    framed.side = side;
    return framed;
}

OrvoFindFace Framed(const OrvoFindPicture& picture, const OrvoFindFace& face, float* floats,
                    uint8_t* room, uint8_t* crop) {
    OrvoFindFace window = face;
    window.side = face.side * kWindow;
    window.left = face.left - (window.side - face.side) * 0.5f;
    window.top = face.top - (window.side - face.side) * 0.5f;
    Upright(picture, window, floats, room, crop);
    ImageResizeBilin(crop, g_frInnerImage, ORVO_FIND_CROP_SIZE, ORVO_FIND_CROP_SIZE,
                     ORVO_FIND_CROP_SIZE, ORVO_FR_ALIGN_SIZE, ORVO_FR_ALIGN_SIZE);
    AlignRun(g_frInnerImage);
    return FramedByAnswer(face, AlignGetOutput());
}

} // namespace orvo::find
