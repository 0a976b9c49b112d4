// SPDX-License-Identifier: MIT
#pragma once

#include "vec3.h"

namespace facegen {

// The square box of a face in a picture, in pixels; left and top may lie outside.
struct FaceBox {
    float left = 0, top = 0, size = 0;
};

constexpr float kBoxPerEyeMouth = 2.7f; // side over the distance from the eyes' middle to the mouth
constexpr float kBoxCentre = 0.4f;      // how far from the eyes to the mouth its centre lies

// A pinhole camera that looks along -z from (0, 0, distance): +x right, +y up in the picture.
struct Camera {
    float distance = 10;
    float scale = 1;                // pixels a decimetre at distance 1
    float centreX = 0, centreY = 0; // where the axis meets the picture

    float XOf(Vec3 p) const { return centreX + scale * p.x / (distance - p.z); }
    float YOf(Vec3 p) const { return centreY - scale * p.y / (distance - p.z); }
    float DepthOf(Vec3 p) const { return distance - p.z; }
};

// The box of a face whose eyes' middle and mouth lie at these places.
FaceBox FaceBoxOf(const Camera& camera, Vec3 eyes, Vec3 mouth);

// The camera at this distance for which the face has that box.
Camera CameraFor(const FaceBox& box, float distance, Vec3 eyes, Vec3 mouth);

// The same view in pixels `factor` times as fine.
Camera Enlarged(const Camera& camera, float factor);

} // namespace facegen
