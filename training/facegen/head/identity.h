// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "head/head_model.h"
#include "head/head_regions.h"
#include "head/shape_space.h"
#include "random.h"

namespace facegen {

enum class AgeBand { child, young, middle, old };
enum class SkinTone { light, medium, dark };

// Who a person is: everything that stays from picture to picture.
struct Identity {
    float ethnicity[ethnicities] = {};
    float male = 0; // 0 to 1
    AgeBand age = AgeBand::young;
    float wrinkles = 0; // 0 to 1
    float reflectance = 0.3F;
    float hair_reflectance = 0.05F;
    float oiliness = 0.5F;
    bool scanned = false; // shaped by the second space

    SkinTone tone() const;
    int main_ethnicity() const;
};

Identity draw_identity(Random& random);

// The person's points, with the middle of the eyes at the origin.
struct Shape {
    std::vector<Vec3> points, normals;
    Vec3 left_eye, right_eye; // middles of the eyeballs
    float eye_radius = 0;
    Vec3 eyes, mouth; // what the face box goes by: the eyes' middle and the upper lip's edge
};

// `space` is used for people who are `scanned` alone.
Shape draw_shape(const HeadModel& model, const ShapeSpace& space, const Identity& identity,
                 Random& random);

} // namespace facegen
