// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "head/head_model.h"
#include "head/head_regions.h"
#include "head/shape_space.h"
#include "random.h"

namespace facegen {

enum class AgeBand { kChild, kYoung, kMiddle, kOld };
enum class SkinTone { kLight, kMedium, kDark };

// Who a person is: everything that stays from picture to picture.
struct Identity {
    float ethnicity[kEthnicities] = {};
    float male = 0; // 0 to 1
    AgeBand age = AgeBand::kYoung;
    float wrinkles = 0; // 0 to 1
    float reflectance = 0.3f;
    float hairReflectance = 0.05f;
    float oiliness = 0.5f;
    bool scanned = false; // shaped by the second space
    bool broad = false;   // drawn as `Studio::broad` says
    float drawnBrows = 0.5f;

    SkinTone Tone() const;
    int MainEthnicity() const;
};

Identity DrawIdentity(Random& random);

// The person's points, with the middle of the eyes at the origin.
struct Shape {
    std::vector<Vec3> points, normals;
    Vec3 leftEye, rightEye; // middles of the eyeballs
    float eyeRadius = 0;
    Vec3 eyes, mouth; // what the face box goes by: the eyes' middle and the upper lip's edge
};

// `space` is used for people who are `scanned` alone.
Shape DrawShape(const HeadModel& model, const ShapeSpace& space, const Identity& identity,
                Random& random);

} // namespace facegen
