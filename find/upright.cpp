// SPDX-License-Identifier: MIT
//
// Single precision in the order that stands here; nothing is fused but in AffineWarpFloat().
#include "find/upright.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>

#include "find/levels.h"
#include "find/surroundings.h"
#include "orvo/image_tools.h"

namespace orvo::find {
namespace {

constexpr int32_t kCrop = ORVO_FIND_CROP_SIZE;
constexpr float kLastPixel = 0.5f * (kCrop - 1); // from the middle

// Pixels of a level from one pixel of the crop to the next: more would lose what lies between.
constexpr float kMostScale = 1.5f;

constexpr float kMostCoordinate = 65536.0f;
constexpr int32_t kMostSides = 64; // side of the box, in smaller sides of the picture

// The box in pixels of the level that it is sampled from.
struct LevelBox {
    int32_t level;
    float x, y;  // middle
    float scale; // pixels of the level from one pixel of the crop to the next
};

LevelBox BoxAtLevel(const OrvoFindFace& face) {
    const float half = face.side * 0.5f;
    LevelBox box = {0, face.left + half, face.top + half, face.side / kCrop};
    while (box.scale > kMostScale) {
        ++box.level;
        box.x *= 0.5f;
        box.y *= 0.5f;
        box.scale *= 0.5f;
    }
    return box;
}

// The part of a level that a crop is sampled from, whichever way the face leans: a square around the
// pixel in the box's middle, of this many to each side.
int32_t ReachOf(float scale) {
    constexpr float kDiagonal = 67.2f; // 47.5 * sqrt(2) and a little
    return static_cast<int32_t>(kDiagonal * scale) + 3;
}
constexpr int32_t kMostReach = 103;

// The same of a face that leans as it does: its corners are as far to the side as up or down.
int32_t LeaningReachOf(float a, float b) {
    return static_cast<int32_t>(kLastPixel * (std::fabs(a) + std::fabs(b))) + 2;
}
constexpr size_t kMostSurroundings = 2 * kMostReach + 1;

bool IsSmall(float value) { return value >= -kMostCoordinate && value <= kMostCoordinate; }

} // namespace

Axis AxisOf(const OrvoFindFace& face) {
    const OrvoFindPoint* const p = face.points;
    // Two vectors vote: from pupil to pupil, and from the pupils down to the mouth. Of a face in
    // profile the first is short.
    const float eyesX = p[1].x - p[0].x;
    const float eyesY = p[1].y - p[0].y;
    const float downX = (p[3].x + p[4].x) * 0.5f - (p[0].x + p[1].x) * 0.5f;
    const float downY = (p[3].y + p[4].y) * 0.5f - (p[0].y + p[1].y) * 0.5f;
    const float x = eyesX + downY;
    const float y = eyesY - downX;
    const float length = std::sqrt(x * x + y * y);
    if (!(length >= 1.0f)) {
        return {1.0f, 0.0f};
    }
    return {x / length, y / length};
}

float RollOf(const Axis& axis) {
    // The arc tangent up to 45 degrees as a polynomial, the rest by symmetry.
    const float x = std::fabs(axis.cosine);
    const float y = std::fabs(axis.sine);
    const float t = std::min(x, y) / std::max(x, y);
    const float t2 = t * t;
    float angle = -0.67145587f;
    for (const float coefficient :
         {3.01646812f, -6.67074337f, 11.08904566f, -19.05788404f, 57.29447426f}) {
        angle = angle * t2 + coefficient;
    }
    angle = angle * t;
    angle = y > x ? 90.0f - angle : angle;
    angle = axis.cosine < 0.0f ? 180.0f - angle : angle;
    return axis.sine < 0.0f ? -angle : angle;
}

bool CanTurnUpright(const OrvoFindPicture& picture, const OrvoFindFace& face) {
    const auto smaller = static_cast<float>(std::min(picture.width, picture.height));
    return IsSmall(face.left) && IsSmall(face.top) && face.side >= 1.0f && IsSmall(face.side) &&
           face.side <= kMostSides * smaller &&
           std::all_of(std::begin(face.points), std::end(face.points),
                       [](const OrvoFindPoint& p) { return IsSmall(p.x) && IsSmall(p.y); });
}

uint32_t UprightBytes() {
    return static_cast<uint32_t>((kMostSurroundings * kMostSurroundings + kCrop * kCrop) *
                                 sizeof(float));
}

void Upright(const OrvoFindPicture& picture, const OrvoFindFace& face, float* floats, uint8_t* room,
             uint8_t* crop) {
    const LevelBox box = BoxAtLevel(face);
    const int32_t reach = ReachOf(box.scale);
    const int32_t size = 2 * reach + 1;
    const int32_t left = static_cast<int32_t>(std::floor(box.x)) - reach;
    const int32_t top = static_cast<int32_t>(std::floor(box.y)) - reach;
    float* const surroundings = floats;
    float* const warped = floats + kMostSurroundings * kMostSurroundings;

    const Axis axis = AxisOf(face);
    const float a = axis.cosine * box.scale;
    const float b = axis.sine * box.scale;
    // What is sampled when the face leans like this. Positions count from the whole square's corner.
    const int32_t margin = reach - LeaningReachOf(a, b);
    MakeSurroundings(picture, box.level, {left + margin, top + margin, size - 2 * margin}, room,
                     surroundings + ptrdiff_t{margin} * (size + 1), static_cast<size_t>(size));
    const float x = box.x - static_cast<float>(left);
    const float y = box.y - static_cast<float>(top);
    const float matrix[6] = {a, -b, x - kLastPixel * a + kLastPixel * b - 0.5f,
                             b, a,  y - kLastPixel * b - kLastPixel * a - 0.5f};
    const auto side = static_cast<uint32_t>(size);
    AffineWarpFloat(surroundings, side, side, warped, kCrop, kCrop, 1, matrix, 0.0f);
    for (int32_t i = 0; i < kCrop * kCrop; ++i) {
        crop[i] = static_cast<uint8_t>(warped[i] + 0.5f);
    }
}

} // namespace orvo::find
