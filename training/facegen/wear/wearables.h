// SPDX-License-Identifier: MIT
#pragma once

#include "head/head_model.h"
#include "head/identity.h"
#include "random.h"
#include "wear/piece.h"

namespace facegen {

struct Glasses {
    Piece frame, lenses;
    float frameReflectance = 0.05f, lensReflectance = 0.02f;
};

// New for each picture: glasses say nothing about who wears them.
Glasses DrawGlasses(const Shape& shape, bool dark, Random& random);

struct Cap {
    Piece crown, brim;
};

Cap DrawCap(const HeadModel& model, const Shape& shape, Random& random);

// A surgical mask, now and then pulled below the nose.
Piece DrawFaceMask(const HeadModel& model, const Shape& shape, Random& random);

} // namespace facegen
