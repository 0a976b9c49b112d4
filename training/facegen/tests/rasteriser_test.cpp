// SPDX-License-Identifier: MIT
#include "render/rasteriser.h"

#include <gtest/gtest.h>

namespace facegen {
namespace {

DrawVertex Vertex(float x, float y, float depth, float u = 0) {
    DrawVertex v{x, y, depth, {}};
    v.varying[kAtU] = u;
    return v;
}

// Covers a 16 x 16 square, seen from the front.
const Triangle kSquare[] = {{0, 1, 2}, {0, 2, 3}};
std::vector<DrawVertex> Corners(float depth) {
    return {Vertex(0, 16, depth, 0), Vertex(16, 16, depth, 16), Vertex(16, 0, depth, 16),
            Vertex(0, 0, depth, 0)};
}

class Rasteriser : public testing::Test {
  protected:
    Rasteriser() { samples.Clear(20, 16); }
    std::int32_t Material(int x, int y) const {
        return samples.material[static_cast<std::size_t>(y * samples.stride + x)];
    }
    static DrawStyle Style(std::int32_t material) {
        DrawStyle s;
        s.material = material;
        return s;
    }
    Samples samples;
};

TEST_F(Rasteriser, FillsEverySampleInsideAndNoneOutside) {
    Draw(samples, Corners(5), kSquare, 2, Style(3));
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 20; ++x) {
            EXPECT_EQ(Material(x, y), x < 16 ? 3 : -1) << x << ", " << y;
        }
    }
}

TEST_F(Rasteriser, VariesLinearlyOverTheTriangle) {
    Draw(samples, Corners(5), kSquare, 2, Style(0));
    for (int x = 0; x < 16; ++x) {
        const auto at = static_cast<std::size_t>(7 * samples.stride + x);
        EXPECT_NEAR(samples.plane[kAtU][at], static_cast<float>(x) + 0.5f, 1e-3f);
    }
}

TEST_F(Rasteriser, TheNearerSurfaceWinsInEitherOrder) {
    Draw(samples, Corners(5), kSquare, 2, Style(1));
    Draw(samples, Corners(4), kSquare, 2, Style(2));
    Draw(samples, Corners(6), kSquare, 2, Style(3));
    EXPECT_EQ(Material(8, 8), 2);
}

TEST_F(Rasteriser, LeavesOutWhatIsSeenFromBehindUnlessTwoSided) {
    const Triangle behind[] = {{0, 2, 1}};
    Draw(samples, Corners(5), behind, 1, Style(1));
    EXPECT_EQ(Material(12, 12), -1);
    DrawStyle both = Style(1);
    both.twoSided = true;
    Draw(samples, Corners(5), behind, 1, both);
    EXPECT_EQ(Material(12, 12), 1);
}

TEST_F(Rasteriser, PartCoverageFillsThatShareOfTheSamples) {
    std::vector<DrawVertex> half = Corners(5);
    for (DrawVertex& v : half) {
        v.varying[kAtField] = 0.5f;
    }
    DrawStyle s = Style(1);
    s.coverage.kind = Coverage::Kind::kField;
    Draw(samples, half, kSquare, 2, s);
    int filled = 0;
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 16; ++x) {
            filled += Material(x, y) == 1 ? 1 : 0;
        }
    }
    EXPECT_EQ(filled, 128);
}

TEST_F(Rasteriser, CutsTrianglesAtTheEdgeOfThePicture) {
    const std::vector<DrawVertex> large{Vertex(-500, 700, 5), Vertex(600, 700, 5),
                                        Vertex(20, -900, 5)};
    const Triangle triangle[] = {{0, 1, 2}};
    Draw(samples, large, triangle, 1, Style(1));
    EXPECT_EQ(Material(0, 0), 1);
    EXPECT_EQ(Material(19, 15), 1);
}

} // namespace
} // namespace facegen
