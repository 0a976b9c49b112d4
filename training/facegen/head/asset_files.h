// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "vec3.h"

namespace facegen {

// The three text formats of the head assets. Each reader throws std::runtime_error that names the
// file (and the line) when it meets something it does not know how to read.

// A corner of a face: which point, and which texture coordinate.
struct Corner {
    std::uint32_t point = 0, texture = 0;
};

struct ObjFace {
    std::array<Corner, 4> corner;
    int corners = 4; // 3 or 4
    int group = 0;
};

struct ObjFile {
    std::vector<Vec3> points;
    std::vector<std::array<float, 2>> texture;
    std::vector<std::string> groups; // group names in order of first use
    std::vector<ObjFace> faces;
};

ObjFile ParseObj(std::string_view text, const std::string& name);

// How something worn (eyes, hair) follows the base mesh: each of its points lies at a weighted sum
// of three base points plus an offset.
struct Fitting {
    struct Point {
        std::array<std::uint32_t, 3> base{};
        std::array<float, 3> weight{};
        Vec3 offset;
    };
    // Offsets along an axis are scaled by the distance of two base points over a given length.
    struct Scale {
        std::uint32_t from = 0, to = 0;
        float length = 0; // 0: this axis is not scaled
    };
    std::array<Scale, 3> scale; // x, y, z
    std::vector<Point> points;
};

Fitting ParseFitting(std::string_view text, const std::string& name);

// Points that a morph target moves, and how far.
struct Target {
    std::vector<std::uint32_t> point;
    std::vector<Vec3> shift;
};

Target ParseTarget(std::string_view text, const std::string& name);

std::string ReadText(const std::filesystem::path& file);
std::string ReadGzippedText(const std::filesystem::path& file);

} // namespace facegen
