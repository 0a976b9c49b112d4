// SPDX-License-Identifier: MIT
#include "render/camera.h"

namespace facegen {
namespace {

// The side goes by the true distance of eyes and mouth, not by its foreshortened picture, so that a
// turned or nodding head keeps a box of its size.
float side(const Camera& camera, Vec3 eyes, Vec3 mouth) {
    const Vec3 centre = mix(eyes, mouth, box_centre);
    return box_per_eye_mouth * length(mouth - eyes) * camera.scale / camera.depth_of(centre);
}

} // namespace

FaceBox face_box(const Camera& camera, Vec3 eyes, Vec3 mouth) {
    FaceBox box;
    box.size = side(camera, eyes, mouth);
    box.left = mix(camera.x_of(eyes), camera.x_of(mouth), box_centre) - box.size / 2;
    box.top = mix(camera.y_of(eyes), camera.y_of(mouth), box_centre) - box.size / 2;
    return box;
}

Camera camera_for(const FaceBox& box, float distance, Vec3 eyes, Vec3 mouth) {
    Camera camera;
    camera.distance = distance;
    camera.scale = box.size / side(camera, eyes, mouth);
    const FaceBox at_origin = face_box(camera, eyes, mouth);
    camera.centre_x = box.left - at_origin.left;
    camera.centre_y = box.top - at_origin.top;
    return camera;
}

Camera enlarged(const Camera& camera, float factor) {
    return {camera.distance, camera.scale * factor, camera.centre_x * factor,
            camera.centre_y * factor};
}

} // namespace facegen
