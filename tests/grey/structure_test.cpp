// SPDX-License-Identifier: MIT
#include "grey/structure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "support/random.h"

namespace {

using orvo_grey::Structure;
using orvo_test::Random;

constexpr int kCells = 12;

struct Picture {
    int width;
    int height;
    int stride;
    std::vector<uint8_t> pixels;
};

template <typename Level>
Picture Made(int width, int height, int spare, Level level) {
    Picture picture{width, height, width + spare, {}};
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < picture.stride; ++x) {
            picture.pixels.push_back(static_cast<uint8_t>(x < width ? level(x, y) : 255));
        }
    }
    return picture;
}

double StructureOf(const Picture& picture) {
    return Structure(picture.pixels.data(), static_cast<uint32_t>(picture.width),
                     static_cast<uint32_t>(picture.height), static_cast<uint32_t>(picture.stride));
}

double CellMean(const Picture& picture, int column, int row) {
    double sum = 0;
    int count = 0;
    for (int y = row * picture.height / kCells; y < (row + 1) * picture.height / kCells; ++y) {
        for (int x = column * picture.width / kCells; x < (column + 1) * picture.width / kCells;
             ++x) {
            sum += picture.pixels[static_cast<size_t>(y * picture.stride + x)];
            ++count;
        }
    }
    return sum / count;
}

// The definition: the plane is searched for until no step of its three numbers makes the rest smaller.
double PlainStructure(const Picture& picture) {
    double means[kCells][kCells];
    for (int row = 0; row < kCells; ++row) {
        for (int column = 0; column < kCells; ++column) {
            means[row][column] = CellMean(picture, column, row);
        }
    }
    double plane[3] = {128, 0, 0};
    const auto rest = [&] {
        double squares = 0;
        for (int row = 0; row < kCells; ++row) {
            for (int column = 0; column < kCells; ++column) {
                const double off = means[row][column] - plane[0] - plane[1] * (column - 5.5) -
                                   plane[2] * (row - 5.5);
                squares += off * off;
            }
        }
        return std::sqrt(squares / (kCells * kCells));
    };
    double best = rest();
    for (double step = 64; step > 1e-9; step /= 2) {
        for (bool moved = true; moved;) {
            moved = false;
            for (double& number : plane) {
                for (const double by : {step, -step}) {
                    number += by;
                    const double now = rest();
                    if (now < best) {
                        best = now;
                        moved = true;
                    } else {
                        number -= by;
                    }
                }
            }
        }
    }
    return best;
}

TEST(Structure, IsHowFarTheCellsDepartFromThePlaneThatFitsThemBest) {
    Random random(3);
    for (const int width : {12, 13, 40, 96}) {
        for (const int height : {12, 17, 96}) {
            const Picture noise = Made(width, height, 5, [&](int x, int y) {
                return (x * 160 / width + y * 60 / height + random.Between(0, 35)) & 255;
            });
            EXPECT_NEAR(StructureOf(noise), PlainStructure(noise), 1e-4) << width << ' ' << height;
        }
    }
}

TEST(Structure, LightFromOneSideIsNone) {
    const Picture slope = Made(96, 96, 0, [](int x, int y) { return x + y + 20; });
    EXPECT_NEAR(StructureOf(slope), 0, 1e-4);
    EXPECT_EQ(StructureOf(Made(24, 24, 3, [](int, int) { return 7; })), 0);
}

TEST(Structure, OfASinglePixelIsSmallAndNotNone) {
    const Picture dot = Made(24, 24, 0, [](int x, int y) { return x == 9 && y == 14 ? 101 : 100; });
    EXPECT_GT(StructureOf(dot), 0.01);
    EXPECT_NEAR(StructureOf(dot), PlainStructure(dot), 1e-4);
}

TEST(Structure, StripesOfACellAreTheirHeight) {
    const Picture stripes =
        Made(48, 48, 0, [](int x, int y) { return 100 + ((x / 4 + y / 4) % 2 == 0 ? 30 : -30); });
    EXPECT_NEAR(StructureOf(stripes), 30, 1e-4);
}

} // namespace
