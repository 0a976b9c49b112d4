// SPDX-License-Identifier: MIT
#include "render/camera.h"

#include <gtest/gtest.h>

namespace facegen {
namespace {

constexpr Vec3 kEyes{0, 0.1f, 0.2f}, kMouth{0.05f, -0.6f, 0.3f};

TEST(FaceBox, IsTheOneTheCameraWasMadeFor) {
    for (const float distance : {4.5f, 10.0f, 30.0f}) {
        const FaceBox wanted{16, 24, 96};
        const FaceBox box = FaceBoxOf(CameraFor(wanted, distance, kEyes, kMouth), kEyes, kMouth);
        EXPECT_NEAR(box.left, wanted.left, 1e-3f);
        EXPECT_NEAR(box.top, wanted.top, 1e-3f);
        EXPECT_NEAR(box.size, wanted.size, 1e-3f);
    }
}

TEST(FaceBox, HasTheSideAndCentreOfItsDefinition) {
    // Far away, perspective does not matter: 2.7 times the distance, 40 % of the way down.
    const Vec3 e{0, 0, 0}, m{0, -1, 0};
    Camera camera;
    camera.distance = 1e5f;
    camera.scale = 1e5f * 20.0f; // 20 pixels a decimetre
    camera.centreX = 100;
    camera.centreY = 100;
    const FaceBox box = FaceBoxOf(camera, e, m);
    EXPECT_NEAR(box.size, 54.0f, 0.01f);
    EXPECT_NEAR(box.left + box.size / 2, 100.0f, 0.01f);
    EXPECT_NEAR(box.top + box.size / 2, 108.0f, 0.01f);
}

TEST(FaceBox, KeepsItsSizeWhenTheHeadTurns) {
    Camera camera;
    camera.distance = 1e4f;
    camera.scale = 1e6f;
    const float straight = FaceBoxOf(camera, kEyes, kMouth).size;
    for (const float angle : {-1.0f, -0.5f, 0.5f, 1.0f}) {
        const Mat3 turn = Rotation(angle, 0.4f * angle, 0.2f);
        EXPECT_NEAR(FaceBoxOf(camera, turn * kEyes, turn * kMouth).size, straight, 0.01f);
    }
}

TEST(FaceBox, StaysWhereItIsWhenThePictureIsEnlarged) {
    const Camera camera = CameraFor({10, 20, 60}, 8, kEyes, kMouth);
    const FaceBox box = FaceBoxOf(Enlarged(camera, 2), kEyes, kMouth);
    EXPECT_NEAR(box.left, 20, 1e-3f);
    EXPECT_NEAR(box.top, 40, 1e-3f);
    EXPECT_NEAR(box.size, 120, 1e-3f);
}

TEST(Rotation, YawTurnsTheNoseToTheRightOfThePictureAndPitchRaisesIt) {
    const Vec3 nose{0, 0, 1};
    EXPECT_GT((Rotation(0.3f, 0, 0) * nose).x, 0.2f);
    EXPECT_GT((Rotation(0, 0.3f, 0) * nose).y, 0.2f);
    EXPECT_GT((Rotation(0, 0, 0.3f) * Vec3{0, 1, 0}).x, 0.2f);
}

TEST(Rotation, KeepsLengths) {
    const Vec3 v{0.3f, -1.2f, 0.7f};
    EXPECT_NEAR(Length(Rotation(0.7f, -0.4f, 0.2f) * v), Length(v), 1e-5f);
}

} // namespace
} // namespace facegen
