// SPDX-License-Identifier: MIT
//
// Charts as SVG: sharp at every size, readable in every browser, and text that a writer of a few
// lines can make without a library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kova_cli {

struct Axis {
    std::string title;
    double from = 0, to = 1;
    bool isLogarithmic = false;
    bool isPercent = true; // of the labels
    int steps = 5;         // between labels, unless logarithmic
};

struct Series {
    std::string name;
    std::string colour;
    std::vector<std::pair<double, double>> points;
    bool isBars = false; // points are left edges and heights of bars as wide as their distance
};

struct Mark {
    double x, y;
    std::string label;
};

struct Chart {
    std::string title, subtitle;
    Axis x, y;
    std::vector<Series> series;
    std::vector<Mark> marks;
};

std::vector<uint8_t> Svg(const Chart& chart);

} // namespace kova_cli
