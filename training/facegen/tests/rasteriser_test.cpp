// SPDX-License-Identifier: MIT
#include "render/rasteriser.h"

#include <gtest/gtest.h>

namespace facegen {
namespace {

DrawVertex vertex(float x, float y, float depth, float u = 0) {
    DrawVertex v{x, y, depth, {}};
    v.varying[at_u] = u;
    return v;
}

// Covers a 16 x 16 square, seen from the front.
const Triangle square[] = {{0, 1, 2}, {0, 2, 3}};
std::vector<DrawVertex> corners(float depth) {
    return {vertex(0, 16, depth, 0), vertex(16, 16, depth, 16), vertex(16, 0, depth, 16),
            vertex(0, 0, depth, 0)};
}

class Rasteriser : public testing::Test {
  protected:
    Rasteriser() { samples_.clear(20, 16); }
    std::int32_t material(int x, int y) const {
        return samples_.material[static_cast<std::size_t>(y * samples_.stride + x)];
    }
    static DrawStyle style(std::int32_t material) {
        DrawStyle s;
        s.material = material;
        return s;
    }
    Samples samples_;
};

TEST_F(Rasteriser, FillsEverySampleInsideAndNoneOutside) {
    draw(samples_, corners(5), square, 2, style(3));
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 20; ++x) {
            EXPECT_EQ(material(x, y), x < 16 ? 3 : -1) << x << ", " << y;
        }
    }
}

TEST_F(Rasteriser, VariesLinearlyOverTheTriangle) {
    draw(samples_, corners(5), square, 2, style(0));
    for (int x = 0; x < 16; ++x) {
        const auto at = static_cast<std::size_t>(7 * samples_.stride + x);
        EXPECT_NEAR(samples_.plane[at_u][at], static_cast<float>(x) + 0.5F, 1e-3F);
    }
}

TEST_F(Rasteriser, TheNearerSurfaceWinsInEitherOrder) {
    draw(samples_, corners(5), square, 2, style(1));
    draw(samples_, corners(4), square, 2, style(2));
    draw(samples_, corners(6), square, 2, style(3));
    EXPECT_EQ(material(8, 8), 2);
}

TEST_F(Rasteriser, LeavesOutWhatIsSeenFromBehindUnlessTwoSided) {
    const Triangle behind[] = {{0, 2, 1}};
    draw(samples_, corners(5), behind, 1, style(1));
    EXPECT_EQ(material(12, 12), -1);
    DrawStyle both = style(1);
    both.two_sided = true;
    draw(samples_, corners(5), behind, 1, both);
    EXPECT_EQ(material(12, 12), 1);
}

TEST_F(Rasteriser, PartCoverageFillsThatShareOfTheSamples) {
    std::vector<DrawVertex> half = corners(5);
    for (DrawVertex& v : half) {
        v.varying[at_field] = 0.5F;
    }
    DrawStyle s = style(1);
    s.coverage.kind = Coverage::Kind::field;
    draw(samples_, half, square, 2, s);
    int filled = 0;
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 16; ++x) {
            filled += material(x, y) == 1 ? 1 : 0;
        }
    }
    EXPECT_EQ(filled, 128);
}

TEST_F(Rasteriser, CutsTrianglesAtTheEdgeOfThePicture) {
    const std::vector<DrawVertex> large{vertex(-500, 700, 5), vertex(600, 700, 5),
                                        vertex(20, -900, 5)};
    const Triangle triangle[] = {{0, 1, 2}};
    draw(samples_, large, triangle, 1, style(1));
    EXPECT_EQ(material(0, 0), 1);
    EXPECT_EQ(material(19, 15), 1);
}

} // namespace
} // namespace facegen
