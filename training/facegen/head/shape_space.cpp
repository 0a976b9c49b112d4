// SPDX-License-Identifier: MIT
#include "head/shape_space.h"

#include <fstream>
#include <map>
#include <stdexcept>

#include "output/npy.h"

namespace facegen {
namespace {

// Components behind these carry a fiftieth of the variance, and lumps about the mouth.
constexpr std::size_t kComponentsDrawn = 60;
constexpr float kLeastMove = 2e-4f; // decimetres

Vec3 VectorAt(const NpyFile& file, std::size_t row) {
    const float* values = file.Data<float>() + 3 * row;
    return {values[0], values[1], values[2]};
}

void Check(const NpyFile& file, const char* type, std::size_t dimensions,
           const std::filesystem::path& name) {
    if (file.type != type || file.shape.size() != dimensions) {
        throw std::runtime_error(name.string() + ": not what `register_shapes` writes");
    }
}

void LoadExpressions(ShapeSpace& space, const std::filesystem::path& folder,
                     const std::map<std::uint32_t, std::size_t>& rowOf,
                     const std::vector<std::uint32_t>& numbers) {
    const NpyFile moves = ReadNpy(folder / "expressions.npy");
    Check(moves, "<f4", 3, folder / "expressions.npy");
    std::ifstream names(folder / "expressions.txt");
    const std::size_t rows = rowOf.size();
    for (std::size_t e = 0; e < moves.shape[0]; ++e) {
        ShapeSpace::Expression expression;
        if (moves.shape[1] != rows || moves.shape[2] != 3 || !(names >> expression.name)) {
            throw std::runtime_error(folder.string() + ": its files do not fit one another");
        }
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            const auto at = rowOf.find(numbers[i]);
            const Vec3 shift = at == rowOf.end() ? Vec3{} : VectorAt(moves, e * rows + at->second);
            if (Length(shift) > kLeastMove) {
                expression.moves.point.push_back(static_cast<std::uint32_t>(i));
                expression.moves.shift.push_back(shift);
            }
        }
        space.expressions.push_back(std::move(expression));
    }
}

} // namespace

ShapeSpace LoadShapeSpace(const std::filesystem::path& folder,
                          const std::vector<std::uint32_t>& numbers,
                          const std::vector<Vec3>& base) {
    const NpyFile points = ReadNpy(folder / "points.npy");
    const NpyFile neutral = ReadNpy(folder / "neutral.npy");
    const NpyFile components = ReadNpy(folder / "components.npy");
    Check(points, "<i4", 1, folder / "points.npy");
    Check(neutral, "<f4", 2, folder / "neutral.npy");
    Check(components, "<f4", 3, folder / "components.npy");
    const std::size_t count = points.shape[0];
    if (neutral.shape[0] != count || neutral.shape[1] != 3 || components.shape[1] != count ||
        components.shape[2] != 3) {
        throw std::runtime_error(folder.string() + ": its files do not fit one another");
    }
    std::map<std::uint32_t, std::size_t> rowOf;
    for (std::size_t row = 0; row < count; ++row) {
        rowOf[static_cast<std::uint32_t>(points.Data<std::int32_t>()[row])] = row;
    }
    ShapeSpace space;
    space.neutral.resize(numbers.size());
    space.components.assign(std::min(components.shape[0], kComponentsDrawn),
                            std::vector<Vec3>(numbers.size()));
    Vec3 lowestShift;
    float lowest = 1e9f;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const auto at = rowOf.find(numbers[i]);
        if (at == rowOf.end()) {
            continue;
        }
        space.neutral[i] = VectorAt(neutral, at->second) - base[i];
        if (base[i].y < lowest) {
            lowest = base[i].y;
            lowestShift = space.neutral[i];
        }
        for (std::size_t c = 0; c < space.components.size(); ++c) {
            space.components[c][i] = VectorAt(components, c * count + at->second);
        }
    }
    // Shoulders, which the space does not have, go where the bottom of the neck went.
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (rowOf.count(numbers[i]) == 0) {
            space.neutral[i] = lowestShift;
        }
    }
    if (std::filesystem::exists(folder / "expressions.npy")) {
        LoadExpressions(space, folder, rowOf, numbers);
    }
    return space;
}

void AddScannedShape(std::vector<Vec3>& points, const ShapeSpace& space, float least,
                     Random& random) {
    // Some faces are near the average, others far from it.
    const float reach = random.Uniform(least, 1.0f);
    for (std::size_t i = 0; i < points.size(); ++i) {
        points[i] += space.neutral[i];
    }
    for (const std::vector<Vec3>& component : space.components) {
        const float weight = reach * random.NormalWithin(1.0f, 2.2f);
        for (std::size_t i = 0; i < points.size(); ++i) {
            points[i] += component[i] * weight;
        }
    }
}

} // namespace facegen
