// SPDX-License-Identifier: MIT
#include "head/asset_files.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>
#include <stdexcept>

#include "head/head_model.h"

namespace facegen {
namespace {

constexpr const char* square = R"(# a square and a triangle
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
    const ObjFile obj = parse_obj(square, "square");
    ASSERT_EQ(obj.points.size(), 4U);
    EXPECT_FLOAT_EQ(obj.points[3].z, -0.5F);
    ASSERT_EQ(obj.faces.size(), 3U);
    EXPECT_EQ(obj.faces[0].corners, 4);
    EXPECT_EQ(obj.faces[1].corners, 3);
    EXPECT_EQ(obj.faces[0].corner[2].point, 2U);
    EXPECT_EQ(obj.faces[0].corner[2].texture, 2U);
    EXPECT_EQ(obj.groups[static_cast<std::size_t>(obj.faces[1].group)], "right");
    EXPECT_EQ(obj.faces[0].group, obj.faces[2].group);
}

TEST(ObjFile, RefusesAFaceWithAPointThatIsNotThere) {
    EXPECT_THROW(parse_obj("v 0 0 0\nf 1 2 3\n", "bad"), std::runtime_error);
}

TEST(ObjFile, NamesTheLineOfABadNumber) {
    try {
        parse_obj("v 0 0 0\nv 0 zero 0\n", "bad.obj");
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find("bad.obj:2"), std::string::npos) << e.what();
    }
}

TEST(Surface, SharesVerticesOfEqualPointAndTexture) {
    const ObjFile obj = parse_obj(square, "square");
    SurfaceBuilder builder(obj);
    for (const ObjFace& face : obj.faces) {
        builder.add(face);
    }
    const Surface surface = builder.take();
    EXPECT_EQ(surface.point.size(), 4U);
    EXPECT_EQ(surface.triangles.size(), 4U);
}

TEST(Surface, NormalsOfAFlatSquareLookAtTheViewer) {
    const ObjFile obj = parse_obj("v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nf 1 2 3 4\n", "flat");
    SurfaceBuilder builder(obj);
    builder.add(obj.faces[0]);
    const Surface surface = builder.take();
    std::vector<Vec3> normals(4);
    add_normals(surface, obj.points, normals);
    normalise(normals);
    for (const Vec3& normal : normals) {
        EXPECT_FLOAT_EQ(normal.z, 1.0F);
    }
}

TEST(Fitting, TakesBothKindsOfPointsAndKeywordsBetweenThem) {
    const Fitting fitting = parse_fitting(R"(name x
x_scale 0 1 2.0
verts 0
material x.mhmat
 2
0 1 2 0.5 0.25 0.25 0.1 0.2 0.3
)",
                                          "x");
    ASSERT_EQ(fitting.points.size(), 2U);
    EXPECT_EQ(fitting.points[0].base[0], 2U);
    EXPECT_FLOAT_EQ(fitting.points[0].weight[0], 1.0F);
    EXPECT_FLOAT_EQ(fitting.points[1].offset.z, 0.3F);
    EXPECT_FLOAT_EQ(fitting.scale[0].length, 2.0F);
    EXPECT_FLOAT_EQ(fitting.scale[1].length, 0.0F);
}

TEST(Fitting, OffsetsGrowWithTheHead) {
    const Fitting fitting =
        parse_fitting("x_scale 0 1 2.0\nverts 0\n0 1 2 0.5 0.5 0 0.1 0.2 0\n", "x");
    // The points named by x_scale are 4 apart instead of 2.
    const std::vector<Vec3> fitted = fit(fitting, {{-2, 0, 0}, {2, 0, 0}, {0, 5, 0}});
    ASSERT_EQ(fitted.size(), 1U);
    EXPECT_FLOAT_EQ(fitted[0].x, 0.2F);
    EXPECT_FLOAT_EQ(fitted[0].y, 0.2F); // no y_scale: as it is
}

TEST(Fitting, RefusesAnOddLine) {
    EXPECT_THROW(parse_fitting("verts 0\n1 2 3\n", "x"), std::runtime_error);
}

TEST(Target, GivesPointsAndShifts) {
    const Target target = parse_target("# t\n7 .5 -.25 0\n9 0 0 1e-2\n", "t");
    ASSERT_EQ(target.point.size(), 2U);
    EXPECT_EQ(target.point[1], 9U);
    EXPECT_FLOAT_EQ(target.shift[0].x, 0.5F);
    EXPECT_FLOAT_EQ(target.shift[1].z, 0.01F);
}

TEST(Target, RefusesAShortLine) { EXPECT_THROW(parse_target("7 0.5\n", "t"), std::runtime_error); }

TEST(GzippedText, ComesBackWhole) {
    const auto file = std::filesystem::temp_directory_path() / "facegen_gzip_test.gz";
    const std::string text(100000, 'x');
    gzFile out = gzopen(file.c_str(), "wb");
    ASSERT_NE(out, nullptr);
    ASSERT_EQ(gzwrite(out, text.data(), static_cast<unsigned>(text.size())),
              static_cast<int>(text.size()));
    gzclose(out);
    EXPECT_EQ(read_gzipped_text(file), text);
    std::filesystem::remove(file);
}

TEST(GzippedText, NamesAFileThatIsNotThere) {
    EXPECT_THROW(read_gzipped_text("no/such/file.gz"), std::runtime_error);
}

} // namespace
} // namespace facegen
