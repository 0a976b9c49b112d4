// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "head/asset_files.h"
#include "random.h"
#include "vec3.h"

namespace facegen {

// A second space of head shapes, learnt from scans of people and laid onto the base mesh by
// `python3 -m training.data.register_shapes`: a neutral head, and components that vary together as
// they do among people, each as large as its deviation. Points are those of the head model.
struct ShapeSpace {
    std::vector<Vec3> neutral;                 // shift of each point from the base mesh
    std::vector<std::vector<Vec3>> components; // shift of each point; the widest first

    // The scans' own expressions at full strength, where the folder has them. They fit every head.
    struct Expression {
        std::string name;
        Target moves;
    };
    std::vector<Expression> expressions;

    bool Empty() const { return components.empty(); }
};

// `numbers`: by point of the head model, its number in the base mesh's file.
ShapeSpace LoadShapeSpace(const std::filesystem::path& folder,
                          const std::vector<std::uint32_t>& numbers, const std::vector<Vec3>& base);

// Moves points of the base mesh to a head drawn from the space; `least` to 1: how far from the average.
void AddScannedShape(std::vector<Vec3>& points, const ShapeSpace& space, float least,
                     Random& random);

} // namespace facegen
