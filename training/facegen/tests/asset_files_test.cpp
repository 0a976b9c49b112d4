// SPDX-License-Identifier: MIT
#include "head/asset_files.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>
#include <stdexcept>

#include "head/head_model.h"

namespace facegen {
namespace {

constexpr const char* kSquare = R"(# a square and a triangle
v 0 0 0
v 1 0 0
v 1 1 0
v 0 1 -0.5
vt 0 0
vt 1 0
vt 1 1
g left
f 1/1 2/2 3/3 4/1
g right
f 1/1 2/2 3/3
g left
f 2/2 3/3 4/1
)";

TEST(ObjFile, GivesPointsFacesAndGroups) {
    const ObjFile obj = ParseObj(kSquare, "square");
    ASSERT_EQ(obj.points.size(), 4U);
    EXPECT_FLOAT_EQ(obj.points[3].z, -0.5f);
    ASSERT_EQ(obj.faces.size(), 3U);
    EXPECT_EQ(obj.faces[0].corners, 4);
    EXPECT_EQ(obj.faces[1].corners, 3);
    EXPECT_EQ(obj.faces[0].corner[2].point, 2U);
    EXPECT_EQ(obj.faces[0].corner[2].texture, 2U);
    EXPECT_EQ(obj.groups[static_cast<std::size_t>(obj.faces[1].group)], "right");
    EXPECT_EQ(obj.faces[0].group, obj.faces[2].group);
}

TEST(ObjFile, RefusesAFaceWithAPointThatIsNotThere) {
    EXPECT_THROW(ParseObj("v 0 0 0\nf 1 2 3\n", "bad"), std::runtime_error);
}

TEST(ObjFile, NamesTheLineOfABadNumber) {
    try {
        ParseObj("v 0 0 0\nv 0 zero 0\n", "bad.obj");
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find("bad.obj:2"), std::string::npos) << e.what();
    }
}

TEST(Surface, SharesVerticesOfEqualPointAndTexture) {
    const ObjFile obj = ParseObj(kSquare, "square");
    SurfaceBuilder builder(obj);
    for (const ObjFace& face : obj.faces) {
        builder.Add(face);
    }
    const Surface surface = builder.Take();
    EXPECT_EQ(surface.point.size(), 4U);
    EXPECT_EQ(surface.triangles.size(), 4U);
}

TEST(Surface, NormalsOfAFlatSquareLookAtTheViewer) {
    const ObjFile obj = ParseObj("v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nf 1 2 3 4\n", "flat");
    SurfaceBuilder builder(obj);
    builder.Add(obj.faces[0]);
    const Surface surface = builder.Take();
    std::vector<Vec3> normals(4);
    AddNormals(surface, obj.points, normals);
    Normalise(normals);
    for (const Vec3& normal : normals) {
        EXPECT_FLOAT_EQ(normal.z, 1.0f);
    }
}

TEST(Fitting, TakesBothKindsOfPointsAndKeywordsBetweenThem) {
    const Fitting fitting = ParseFitting(R"(name x
x_scale 0 1 2.0
verts 0
material x.mhmat
 2
0 1 2 0.5 0.25 0.25 0.1 0.2 0.3
)",
                                         "x");
    ASSERT_EQ(fitting.points.size(), 2U);
    EXPECT_EQ(fitting.points[0].base[0], 2U);
    EXPECT_FLOAT_EQ(fitting.points[0].weight[0], 1.0f);
    EXPECT_FLOAT_EQ(fitting.points[1].offset.z, 0.3f);
    EXPECT_FLOAT_EQ(fitting.scale[0].length, 2.0f);
    EXPECT_FLOAT_EQ(fitting.scale[1].length, 0.0f);
}

TEST(Fitting, OffsetsGrowWithTheHead) {
    const Fitting fitting =
        ParseFitting("x_scale 0 1 2.0\nverts 0\n0 1 2 0.5 0.5 0 0.1 0.2 0\n", "x");
    // The points named by x_scale are 4 apart instead of 2.
    const std::vector<Vec3> fitted = Fit(fitting, {{-2, 0, 0}, {2, 0, 0}, {0, 5, 0}});
    ASSERT_EQ(fitted.size(), 1U);
    EXPECT_FLOAT_EQ(fitted[0].x, 0.2f);
    EXPECT_FLOAT_EQ(fitted[0].y, 0.2f); // no y_scale: as it is
}

TEST(Fitting, RefusesAnOddLine) {
    EXPECT_THROW(ParseFitting("verts 0\n1 2 3\n", "x"), std::runtime_error);
}

TEST(Target, GivesPointsAndShifts) {
    const Target target = ParseTarget("# t\n7 .5 -.25 0\n9 0 0 1e-2\n", "t");
    ASSERT_EQ(target.point.size(), 2U);
    EXPECT_EQ(target.point[1], 9U);
    EXPECT_FLOAT_EQ(target.shift[0].x, 0.5f);
    EXPECT_FLOAT_EQ(target.shift[1].z, 0.01f);
}

TEST(Target, RefusesAShortLine) { EXPECT_THROW(ParseTarget("7 0.5\n", "t"), std::runtime_error); }

TEST(GzippedText, ComesBackWhole) {
    const auto file = std::filesystem::temp_directory_path() / "facegen_gzip_test.gz";
    const std::string text(100000, 'x');
    gzFile out = gzopen(file.c_str(), "wb");
    ASSERT_NE(out, nullptr);
    ASSERT_EQ(gzwrite(out, text.data(), static_cast<unsigned>(text.size())),
              static_cast<int>(text.size()));
    gzclose(out);
    EXPECT_EQ(ReadGzippedText(file), text);
    std::filesystem::remove(file);
}

TEST(GzippedText, NamesAFileThatIsNotThere) {
    EXPECT_THROW(ReadGzippedText("no/such/file.gz"), std::runtime_error);
}

} // namespace
} // namespace facegen
