// SPDX-License-Identifier: MIT
// A person without anything behind, to be put into other pictures, and where landmarks are.
#include <algorithm>
#include <cmath>

#include "render/photo.h"

namespace facegen {
namespace {

// As the base mesh's file counts them.
constexpr std::uint32_t kLeftMouthCorner = 7162, kRightMouthCorner = 402;

Vec3 MiddleOf(const std::vector<Vec3>& points, const std::vector<std::uint32_t>& which) {
    Vec3 sum;
    for (const std::uint32_t point : which) {
        sum = sum + points[point];
    }
    return sum * (1.0f / static_cast<float>(which.size()));
}

// Where the nose stands out furthest. Which of the mesh's points that is differs from nose to nose;
// those within about a millimetre of the foremost share it.
Vec3 NoseTip(const std::vector<Vec3>& face, const std::vector<std::uint32_t>& nose) {
    constexpr float kMillimetre = 0.01f;
    float furthest = face[nose.front()].z;
    for (const std::uint32_t point : nose) {
        furthest = std::max(furthest, face[point].z);
    }
    Vec3 sum;
    float weights = 0;
    for (const std::uint32_t point : nose) {
        const float weight = std::exp((face[point].z - furthest) / kMillimetre);
        sum = sum + face[point] * weight;
        weights += weight;
    }
    return sum * (1.0f / weights);
}

std::uint8_t Byte(float share) {
    return static_cast<std::uint8_t>(255.0f * std::clamp(share, 0.0f, 1.0f) + 0.5f);
}

} // namespace

void Photographer::TakeCutout(const Person& person, const PhotoPlan& plan, std::uint64_t picture,
                              std::uint8_t* tones, std::uint8_t* cover) {
    Random random(person.seed, person.number, picture + 1, Purpose::kCamera);
    Random backdrop(person.seed, person.number, picture + 1, Purpose::kBackground);
    Portray(person, plan, random);
    const auto pixels = static_cast<std::size_t>(plan.size) * static_cast<std::size_t>(plan.size);
    tones_.assign(pixels, 0.0f);
    Develop(plan, backdrop);
    for (std::size_t i = 0; i < pixels; ++i) {
        tones[i] = Byte(tones_[i] / std::max(cover_[i], 0.25f));
        cover[i] = Byte(cover_[i]);
    }
}

FacePoints Photographer::PointsOf(const Person& person, const PhotoPlan& plan) const {
    const std::vector<std::uint32_t>& number = studio_.model.number;
    const auto skin = [&](std::uint32_t point) {
        const auto at = std::lower_bound(number.begin(), number.end(), point);
        return posed_[static_cast<std::size_t>(at - number.begin())];
    };
    const Mat3 look = Rotation(plan.expression.gazeYaw, plan.expression.gazePitch, 0);
    const auto pupil = [&](const std::vector<std::uint32_t>& points, Vec3 eye) {
        const Vec3 ahead = MiddleOf(person.eyes.points, points) - eye;
        return head_ * (eye + look * ahead - kHeadJoint);
    };
    const HeadModel& model = studio_.model;
    // The person's right side is left in the picture.
    const Vec3 places[] = {pupil(model.rightPupil, person.shape.rightEye),
                           pupil(model.leftPupil, person.shape.leftEye),
                           head_ * (NoseTip(face_, model.nose) - kHeadJoint),
                           skin(kRightMouthCorner), skin(kLeftMouthCorner)};
    const Camera camera = Enlarged(camera_, 0.5f);
    FacePoints points;
    for (std::size_t i = 0; i < 5; ++i) {
        points.at[2 * i] = camera.XOf(places[i]);
        points.at[2 * i + 1] = camera.YOf(places[i]);
    }
    return points;
}

} // namespace facegen
