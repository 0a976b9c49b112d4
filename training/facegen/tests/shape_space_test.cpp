// SPDX-License-Identifier: MIT
#include "head/shape_space.h"

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>

#include "head/scanned_expression.h"
#include "output/npy.h"

namespace facegen {
namespace {

namespace fs = std::filesystem;

// A space of two components over the points 3, 5 and 9 of a base mesh.
class ShapeSpaceFiles : public testing::Test {
  protected:
    void SetUp() override {
        folder = fs::temp_directory_path() /
                 (std::string("facegen_") +
                  testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(folder);
        const std::int32_t points[3] = {3, 5, 9};
        const float neutral[9] = {0, 7, 1, 1, 8, 1, 2, 9, 1};
        float components[18] = {};
        components[0] = 1;  // the first moves point 3 to the left
        components[13] = 2; // the second moves point 5 up
        WriteNpy(folder / "points.npy", "<i4", {3}, points, sizeof points);
        WriteNpy(folder / "neutral.npy", "<f4", {3, 3}, neutral, sizeof neutral);
        WriteNpy(folder / "components.npy", "<f4", {2, 3, 3}, components, sizeof components);
    }
    void TearDown() override { fs::remove_all(folder); }

    fs::path folder;
    // Of the head model: numbers in the base mesh's file, and where the points lie there.
    std::vector<std::uint32_t> numbers{2, 3, 5};
    std::vector<Vec3> base{{0, 1, 0}, {0, 6, 1}, {1, 7, 1}};
};

TEST_F(ShapeSpaceFiles, PointsFindTheirRowsAndOthersFollowTheLowest) {
    const ShapeSpace space = LoadShapeSpace(folder, numbers, base);
    ASSERT_EQ(space.neutral.size(), 3U);
    EXPECT_EQ(space.neutral[1].y, 1.0f);
    EXPECT_EQ(space.neutral[2].y, 1.0f);
    EXPECT_EQ(space.neutral[0].y, 1.0f); // not in the space: as point 3, the lowest that is
    ASSERT_EQ(space.components.size(), 2U);
    EXPECT_EQ(space.components[0][1].x, 1.0f);
    EXPECT_EQ(space.components[1][2].y, 2.0f);
    EXPECT_EQ(Length(space.components[0][0]), 0.0f);
}

TEST_F(ShapeSpaceFiles, TheStreamDecidesTheHead) {
    const ShapeSpace space = LoadShapeSpace(folder, numbers, base);
    const auto drawn = [&](std::uint64_t seed) {
        std::vector<Vec3> points = base;
        Random random(seed);
        AddScannedShape(points, space, 0.7f, random);
        return points;
    };
    const auto one = drawn(1), again = drawn(1), other = drawn(2);
    EXPECT_EQ(one[1].x, again[1].x);
    EXPECT_NE(one[1].x, other[1].x);
    EXPECT_NE(one[2].y, other[2].y);
    EXPECT_EQ(one[0].x, 0.0f); // no component moves it
    EXPECT_LE(std::fabs(one[1].x), 2.2f);
}

TEST_F(ShapeSpaceFiles, ExpressionsAreReadWhereThereAreAny) {
    EXPECT_TRUE(LoadShapeSpace(folder, numbers, base).expressions.empty());
    float moves[18] = {};
    moves[1] = 0.5f;   // the first moves point 3 up
    moves[12] = 1e-5f; // the second next to nothing
    WriteNpy(folder / "expressions.npy", "<f4", {2, 3, 3}, moves, sizeof moves);
    EXPECT_THROW(LoadShapeSpace(folder, numbers, base), std::runtime_error); // names are missing
    std::ofstream(folder / "expressions.txt") << "jawOpen\nbrowDown_L\n";
    const ShapeSpace space = LoadShapeSpace(folder, numbers, base);
    ASSERT_EQ(space.expressions.size(), 2U);
    EXPECT_EQ(space.expressions[0].name, "jawOpen");
    ASSERT_EQ(space.expressions[0].moves.point.size(), 1U);
    EXPECT_EQ(space.expressions[0].moves.point[0], 1U);
    EXPECT_EQ(space.expressions[0].moves.shift[0].y, 0.5f);
    EXPECT_TRUE(space.expressions[1].moves.point.empty());
}

TEST(ScannedExpression, ADrawIsMadeOfWhatTheSpaceHas) {
    ShapeSpace space;
    for (const char* name : {"mouthSmile_L", "mouthSmile_R", "jawOpen", "eyeLookUp_L"}) {
        space.expressions.push_back({name, {}});
    }
    int smiles = 0, open = 0;
    for (std::uint64_t seed = 0; seed < 200; ++seed) {
        Random random(seed);
        Expression e = DrawScannedExpression(space, random);
        EXPECT_TRUE(e.parts.empty());
        for (const Expression::Part& part : e.scanned) {
            EXPECT_NE(part.unit, 3U); // eyes are turned, not moved
            EXPECT_LE(part.weight, 1.1f);
            smiles += part.unit == 0 ? 1 : 0;
            open += part.unit == 2 ? 1 : 0;
        }
        QuietenMouth(e, HeadModel{}, space);
        for (const Expression::Part& part : e.scanned) {
            EXPECT_LE(part.weight, 0.12f);
        }
    }
    EXPECT_GT(smiles, 60);
    EXPECT_GT(open, 40);
}

TEST_F(ShapeSpaceFiles, FilesThatDoNotFitAreRefused) {
    const float few[6] = {};
    WriteNpy(folder / "neutral.npy", "<f4", {2, 3}, few, sizeof few);
    EXPECT_THROW(LoadShapeSpace(folder, numbers, base), std::runtime_error);
    WriteNpy(folder / "neutral.npy", "<i4", {2, 3}, few, sizeof few);
    EXPECT_THROW(LoadShapeSpace(folder, numbers, base), std::runtime_error);
}

} // namespace
} // namespace facegen
