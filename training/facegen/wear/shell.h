// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include "head/head_model.h"
#include "wear/piece.h"

namespace facegen {

// How far the shell stands off the skin at a point, and its field there (see Coverage): where the
// field is below `fieldFloor` all over a triangle, the triangle is left out.
struct ShellPoint {
    Vec3 offset;
    float field;
};

// A layer over part of the skin that follows its every move: short hair, a beard, a cap, a mask.
// `at` is asked once for each point of the skin that is not inside the mouth.
Piece GrowShell(const HeadModel& model, const std::vector<Vec3>& points, float fieldFloor,
                const std::function<ShellPoint(std::uint32_t)>& at);

// Moves each offset towards the mean of its neighbours, so that the shell bridges hollows.
void SmoothShell(Piece& shell, int rounds);

} // namespace facegen
