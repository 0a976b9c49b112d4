// SPDX-License-Identifier: MIT
#pragma once

#include "head/head_model.h"
#include "head/identity.h"
#include "random.h"
#include "wear/piece.h"

namespace facegen {

struct Glasses {
    Piece frame, lenses;
    float frame_reflectance = 0.05F, lens_reflectance = 0.02F;
};

// New for each picture: glasses say nothing about who wears them.
Glasses draw_glasses(const Shape& shape, bool dark, Random& random);

struct Cap {
    Piece crown, brim;
};

Cap draw_cap(const HeadModel& model, const Shape& shape, Random& random);

// A surgical mask, now and then pulled below the nose.
Piece draw_face_mask(const HeadModel& model, const Shape& shape, Random& random);

} // namespace facegen
