// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "head/head_model.h"
#include "head/shape_space.h"
#include "random.h"

namespace facegen {

struct Expression {
    struct Part {
        std::size_t unit;
        float weight;
    };
    std::vector<Part> parts;   // of the head model's units
    std::vector<Part> scanned; // of the second space's expressions
    float strength = 0;        // about 0 to 1
    float openMouth = 0;
    float gazeYaw = 0, gazePitch = 0; // radians
};

Expression DrawExpression(const HeadModel& model, Random& random);

// A smile with the mouth shut.
Expression Smile(const HeadModel& model, float strength);

// Makes it `factor` times as strong, as far as faces go.
void Strengthen(Expression& expression, float factor);

// Keeps the mouth nearly shut, as under a mask.
void QuietenMouth(Expression& expression, const HeadModel& model, const ShapeSpace& space);

// Moves the points of a face whose dominant ethnicity is given.
void Apply(const Expression& expression, const HeadModel& model, const ShapeSpace& space,
           int ethnicity, std::vector<Vec3>& points);

} // namespace facegen
