// SPDX-License-Identifier: MIT
#include "render/camera.h"

#include <gtest/gtest.h>

namespace facegen {
namespace {

constexpr Vec3 eyes{0, 0.1F, 0.2F}, mouth{0.05F, -0.6F, 0.3F};

TEST(FaceBox, IsTheOneTheCameraWasMadeFor) {
    for (const float distance : {4.5F, 10.0F, 30.0F}) {
        const FaceBox wanted{16, 24, 96};
        const FaceBox box = face_box(camera_for(wanted, distance, eyes, mouth), eyes, mouth);
        EXPECT_NEAR(box.left, wanted.left, 1e-3F);
        EXPECT_NEAR(box.top, wanted.top, 1e-3F);
        EXPECT_NEAR(box.size, wanted.size, 1e-3F);
    }
}

TEST(FaceBox, HasTheSideAndCentreOfItsDefinition) {
    // Far away, perspective does not matter: 2.7 times the distance, 40 % of the way down.
    const Vec3 e{0, 0, 0}, m{0, -1, 0};
    Camera camera;
    camera.distance = 1e5F;
    camera.scale = 1e5F * 20.0F; // 20 pixels a decimetre
    camera.centre_x = 100;
    camera.centre_y = 100;
    const FaceBox box = face_box(camera, e, m);
    EXPECT_NEAR(box.size, 54.0F, 0.01F);
    EXPECT_NEAR(box.left + box.size / 2, 100.0F, 0.01F);
    EXPECT_NEAR(box.top + box.size / 2, 108.0F, 0.01F);
}

TEST(FaceBox, KeepsItsSizeWhenTheHeadTurns) {
    Camera camera;
    camera.distance = 1e4F;
    camera.scale = 1e6F;
    const float straight = face_box(camera, eyes, mouth).size;
    for (const float angle : {-1.0F, -0.5F, 0.5F, 1.0F}) {
        const Mat3 turn = rotation(angle, 0.4F * angle, 0.2F);
        EXPECT_NEAR(face_box(camera, turn * eyes, turn * mouth).size, straight, 0.01F);
    }
}

TEST(FaceBox, StaysWhereItIsWhenThePictureIsEnlarged) {
    const Camera camera = camera_for({10, 20, 60}, 8, eyes, mouth);
    const FaceBox box = face_box(enlarged(camera, 2), eyes, mouth);
    EXPECT_NEAR(box.left, 20, 1e-3F);
    EXPECT_NEAR(box.top, 40, 1e-3F);
    EXPECT_NEAR(box.size, 120, 1e-3F);
}

TEST(Rotation, YawTurnsTheNoseToTheRightOfThePictureAndPitchRaisesIt) {
    const Vec3 nose{0, 0, 1};
    EXPECT_GT((rotation(0.3F, 0, 0) * nose).x, 0.2F);
    EXPECT_GT((rotation(0, 0.3F, 0) * nose).y, 0.2F);
    EXPECT_GT((rotation(0, 0, 0.3F) * Vec3{0, 1, 0}).x, 0.2F);
}

TEST(Rotation, KeepsLengths) {
    const Vec3 v{0.3F, -1.2F, 0.7F};
    EXPECT_NEAR(length(rotation(0.7F, -0.4F, 0.2F) * v), length(v), 1e-5F);
}

} // namespace
} // namespace facegen
