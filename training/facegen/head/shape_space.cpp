// SPDX-License-Identifier: MIT
#include "head/shape_space.h"

#include <map>
#include <stdexcept>

#include "output/npy.h"

namespace facegen {
namespace {

// Components behind these carry a fiftieth of the variance, and lumps about the mouth.
constexpr std::size_t components_drawn = 60;

Vec3 vector_at(const NpyFile& file, std::size_t row) {
    const float* values = file.data<float>() + 3 * row;
    return {values[0], values[1], values[2]};
}

void check(const NpyFile& file, const char* type, std::size_t dimensions,
           const std::filesystem::path& name) {
    if (file.type != type || file.shape.size() != dimensions) {
        throw std::runtime_error(name.string() + ": not what `register_shapes` writes");
    }
}

} // namespace

ShapeSpace load_shape_space(const std::filesystem::path& folder,
                            const std::vector<std::uint32_t>& numbers,
                            const std::vector<Vec3>& base) {
    const NpyFile points = read_npy(folder / "points.npy");
    const NpyFile neutral = read_npy(folder / "neutral.npy");
    const NpyFile components = read_npy(folder / "components.npy");
    check(points, "<i4", 1, folder / "points.npy");
    check(neutral, "<f4", 2, folder / "neutral.npy");
    check(components, "<f4", 3, folder / "components.npy");
    const std::size_t count = points.shape[0];
    if (neutral.shape[0] != count || neutral.shape[1] != 3 || components.shape[1] != count ||
        components.shape[2] != 3) {
        throw std::runtime_error(folder.string() + ": its files do not fit one another");
    }
    std::map<std::uint32_t, std::size_t> row_of;
    for (std::size_t row = 0; row < count; ++row) {
        row_of[static_cast<std::uint32_t>(points.data<std::int32_t>()[row])] = row;
    }
    ShapeSpace space;
    space.neutral.resize(numbers.size());
    space.components.assign(std::min(components.shape[0], components_drawn),
                            std::vector<Vec3>(numbers.size()));
    Vec3 lowest_shift;
    float lowest = 1e9F;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const auto at = row_of.find(numbers[i]);
        if (at == row_of.end()) {
            continue;
        }
        space.neutral[i] = vector_at(neutral, at->second) - base[i];
        if (base[i].y < lowest) {
            lowest = base[i].y;
            lowest_shift = space.neutral[i];
        }
        for (std::size_t c = 0; c < space.components.size(); ++c) {
            space.components[c][i] = vector_at(components, c * count + at->second);
        }
    }
    // Shoulders, which the space does not have, go where the bottom of the neck went.
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (row_of.count(numbers[i]) == 0) {
            space.neutral[i] = lowest_shift;
        }
    }
    return space;
}

void add_scanned_shape(std::vector<Vec3>& points, const ShapeSpace& space, Random& random) {
    // Some faces are near the average, others far from it.
    const float reach = random.uniform(0.7F, 1.0F);
    for (std::size_t i = 0; i < points.size(); ++i) {
        points[i] += space.neutral[i];
    }
    for (const std::vector<Vec3>& component : space.components) {
        const float weight = reach * random.normal_within(1.0F, 2.2F);
        for (std::size_t i = 0; i < points.size(); ++i) {
            points[i] += component[i] * weight;
        }
    }
}

} // namespace facegen
