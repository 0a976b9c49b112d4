// SPDX-License-Identifier: MIT
#include "grey/structure.h"

#include <cmath>

namespace orvo_grey {
namespace {

constexpr uint32_t kCells = 12; // in each direction; so many rows has the lowest frame

double CellMean(const uint8_t* pixels, uint32_t width, uint32_t height, uint32_t stride) {
    uint64_t sum = 0;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            sum += pixels[uint64_t{y} * stride + x];
        }
    }
    return static_cast<double>(sum) / (static_cast<double>(width) * height);
}

uint32_t Border(uint32_t cell, uint32_t size) {
    return static_cast<uint32_t>(uint64_t{cell} * size / kCells);
}

} // namespace

double Structure(const uint8_t* pixels, uint32_t width, uint32_t height, uint32_t stride) {
    // Positions are counted from the middle, so that the plane's three terms are orthogonal and
    // each takes its own share of the squares away.
    double sum = 0;
    double squares = 0;
    double along = 0;
    double down = 0;
    double spread = 0; // of the positions, in one direction
    for (uint32_t row = 0; row < kCells; ++row) {
        const uint32_t top = Border(row, height);
        for (uint32_t column = 0; column < kCells; ++column) {
            const uint32_t left = Border(column, width);
            const double mean =
                CellMean(pixels + uint64_t{top} * stride + left, Border(column + 1, width) - left,
                         Border(row + 1, height) - top, stride);
            const double x = column - 0.5 * (kCells - 1);
            const double y = row - 0.5 * (kCells - 1);
            sum += mean;
            squares += mean * mean;
            along += mean * x;
            down += mean * y;
            spread += x * x;
        }
    }
    constexpr double kAll = kCells * kCells;
    const double rest = squares - sum * sum / kAll - (along * along + down * down) / spread;
    return std::sqrt(rest > 0 ? rest / kAll : 0);
}

} // namespace orvo_grey
