// SPDX-License-Identifier: MIT
#include "render/camera.h"

namespace facegen {
namespace {

// The side goes by the true distance of eyes and mouth, not by its foreshortened picture, so that a
// turned or nodding head keeps a box of its size.
float Side(const Camera& camera, Vec3 eyes, Vec3 mouth) {
    const Vec3 centre = Mix(eyes, mouth, kBoxCentre);
    return kBoxPerEyeMouth * Length(mouth - eyes) * camera.scale / camera.DepthOf(centre);
}

} // namespace

FaceBox FaceBoxOf(const Camera& camera, Vec3 eyes, Vec3 mouth) {
    FaceBox box;
    box.size = Side(camera, eyes, mouth);
    box.left = Mix(camera.XOf(eyes), camera.XOf(mouth), kBoxCentre) - box.size / 2;
    box.top = Mix(camera.YOf(eyes), camera.YOf(mouth), kBoxCentre) - box.size / 2;
    return box;
}

Camera CameraFor(const FaceBox& box, float distance, Vec3 eyes, Vec3 mouth) {
    Camera camera;
    camera.distance = distance;
    camera.scale = box.size / Side(camera, eyes, mouth);
    const FaceBox atOrigin = FaceBoxOf(camera, eyes, mouth);
    camera.centreX = box.left - atOrigin.left;
    camera.centreY = box.top - atOrigin.top;
    return camera;
}

Camera Enlarged(const Camera& camera, float factor) {
    return {camera.distance, camera.scale * factor, camera.centreX * factor,
            camera.centreY * factor};
}

} // namespace facegen
