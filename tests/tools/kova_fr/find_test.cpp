// SPDX-License-Identifier: MIT
// kova-fr find.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

#include "photograph.h"
#include "picture_files.h"
#include "program.h"

namespace kova_fr_test {
namespace {

using nlohmann::json;

constexpr int kFailure = 1;
constexpr int kWrongUsage = 2;

json Find(const std::vector<std::string>& more) {
    std::vector<std::string> arguments = {"find", "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome run = KovaFr(arguments);
    EXPECT_EQ(run.status, 0) << run.err;
    return json::parse(run.out)["pictures"];
}

void ExpectWellFormed(const json& face) {
    EXPECT_GT(face["box"]["width"], 0);
    EXPECT_EQ(face["box"]["width"], face["box"]["height"]);
    EXPECT_GE(face["score"], 0.5);
    EXPECT_LT(face["score"], 1);
    EXPECT_EQ(face["landmarks"].size(), 5u);
    EXPECT_GE(face["quality"], 0);
    EXPECT_LE(face["quality"], 100);
    const std::set<std::string> words = {"small",  "blurred", "dark",    "overexposed", "turned",
                                         "tilted", "covered", "cut off", "grimacing"};
    for (const json& reason : face["reasons"]) {
        EXPECT_TRUE(words.contains(reason)) << reason;
    }
}

TEST(Find, DescribesEachPictureInOrder) {
    const json pictures = Find({Sample("joe-1.png"), Sample("cleo-2.png")});
    ASSERT_EQ(pictures.size(), 2u);
    EXPECT_EQ(pictures[0]["path"], Sample("joe-1.png"));
    EXPECT_EQ(pictures[1]["path"], Sample("cleo-2.png"));
    for (const json& picture : pictures) {
        EXPECT_EQ(picture["width"], 256);
        EXPECT_EQ(picture["height"], 256);
        ASSERT_TRUE(picture["faces"].is_array());
        for (const json& face : picture["faces"]) {
            ExpectWellFormed(face);
        }
    }
}

TEST(Find, TextHasALineForThePictureAndOneForEachFace) {
    const Outcome run = KovaFr({"find", Sample("joe-1.png")});
    ASSERT_EQ(run.status, 0) << run.err;
    const size_t faces = Find({Sample("joe-1.png")})[0]["faces"].size();
    EXPECT_EQ(run.out.find(Sample("joe-1.png") + ", 256 x 256: "), 0u) << run.out;
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), static_cast<ptrdiff_t>(faces) + 1);
}

// The samples alone and in a photograph. A model that is not trained yet finds nothing anywhere, and
// there is nothing to be seen then.
TEST(Find, FindsTheSamples) {
    size_t all = 0;
    size_t found = 0;
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator(ORVO_SAMPLES)) {
        if (entry.path().extension() == ".png") {
            paths.push_back(entry.path());
        }
    }
    for (const json& picture : Find(paths)) {
        ++all;
        const json& faces = picture["faces"];
        // Portraits: one face, which fills a quarter of the sides and more.
        found += !faces.empty() && faces[0]["box"]["width"].get<double>() > 64 ? 1 : 0;
    }
    EXPECT_GE(100 * found, 95 * all) << found << " of " << all;

    const TempFolder folder;
    const std::vector<std::pair<std::string, Placed>> people = {
        {"joe-1.png", {60, 60, 2}}, {"cleo-2.png", {820, 300, 1}}, {"lena-1.png", {600, 20, 1}}};
    WriteFile(folder / "photo.pgm", BinaryPgm(Photograph(people)));
    const json faces = Find({folder / "photo.pgm"})[0]["faces"];
    for (const auto& [name, at] : people) {
        const json alone = Find({"--at-most", "1", Sample(name)})[0]["faces"];
        ASSERT_EQ(alone.size(), 1u) << name;
        const auto middle = [&](const json& face, const char* start, const char* length) {
            return face["box"][start].get<double>() + face["box"][length].get<double>() / 2;
        };
        const double x = at.left + at.scale * middle(alone[0], "x", "width");
        const double y = at.top + at.scale * middle(alone[0], "y", "height");
        const double side = at.scale * alone[0]["box"]["width"].get<double>();
        // Another scale and another frame show the network another face, but not elsewhere.
        const auto isThere = [&](const json& face) {
            const double ratio = face["box"]["width"].get<double>() / side;
            return std::hypot(middle(face, "x", "width") - x, middle(face, "y", "height") - y) <
                       side / 4 &&
                   ratio > 0.6 && ratio < 1.7;
        };
        EXPECT_TRUE(std::any_of(faces.begin(), faces.end(), isThere)) << name;
    }
}

TEST(Find, AtMostTakesTheBest) {
    const json all = Find({Sample("joe-1.png")})[0]["faces"];
    const json one = Find({"--at-most", "1", Sample("joe-1.png")})[0]["faces"];
    ASSERT_EQ(one.size(), std::min<size_t>(all.size(), 1));
    if (!one.empty()) {
        EXPECT_EQ(one[0], all[0]);
    }
}

TEST(Find, DrawsThePictureInItsSize) {
    const TempFolder folder;
    WriteFile(folder / "photo.pgm", BinaryPgm(Photograph({{"joe-1.png", {60, 60, 2}}})));
    const Outcome run = KovaFr({"find", "--output", folder / "seen.png", folder / "photo.pgm"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(folder.Names(), (std::vector<std::string>{"photo.pgm", "seen.png"}));
    EXPECT_EQ(Find({folder / "seen.png"})[0]["width"], 1200);
    EXPECT_EQ(Find({folder / "seen.png"})[0]["height"], 800);
}

TEST(Find, NoFaceIsNoFailureButNothingToTurn) {
    const TempFolder folder;
    WriteFile(folder / "flat.pgm", BinaryPgm(Flat(300, 300, 90)));
    EXPECT_TRUE(Find({folder / "flat.pgm"})[0]["faces"].empty());
    const Outcome text = KovaFr({"find", folder / "flat.pgm"});
    EXPECT_EQ(text.status, 0);
    EXPECT_EQ(text.out, folder / "flat.pgm, 300 x 300: no face\n");
    ExpectRefusal(KovaFr({"find", "--save-upright", folder / "up.png", folder / "flat.pgm"}),
                  kFailure, "no face was found");
    EXPECT_EQ(folder.Names(), std::vector<std::string>{"flat.pgm"});
}

TEST(Find, TakesPicturesOfEverySize) {
    const TempFolder folder;
    for (const auto& [width, height] :
         {std::pair(24u, 24u), {25u, 400u}, {1281u, 90u}, {3000u, 2001u}, {9000u, 300u}}) {
        WriteFile(folder / "picture.pgm", BinaryPgm(Flat(width, height, 60)));
        EXPECT_EQ(Find({folder / "picture.pgm"})[0]["width"], width);
    }
    WriteFile(folder / "small.pgm", BinaryPgm(Flat(23, 100, 60)));
    ExpectRefusal(KovaFr({"find", folder / "small.pgm"}), kFailure,
                  "small.pgm: is too small to look for faces in: 23 x 100");
    WriteFile(folder / "narrow.pgm", BinaryPgm(Flat(5000, 30, 60)));
    ExpectRefusal(KovaFr({"find", folder / "narrow.pgm"}), kFailure,
                  "narrow.pgm: is too narrow to look for faces in: 5000 x 30");
    WriteFile(folder / "large.pgm", BinaryPgm(Flat(2000, 2000, 60)));
    ExpectRefusal(KovaFr({"find", "--smallest", "20", folder / "large.pgm"}), kFailure,
                  "large.pgm: is too large to look for faces of 20 pixels in");
}

TEST(Find, RefusesWrongUsage) {
    const std::string picture = Sample("joe-1.png");
    ExpectRefusal(KovaFr({"find"}), kWrongUsage, "pictures");
    ExpectRefusal(KovaFr({"find", "--smallest", "0", picture}), kWrongUsage, "--smallest");
    ExpectRefusal(KovaFr({"find", "--at-most", "0", picture}), kWrongUsage, "--at-most");
    ExpectRefusal(KovaFr({"find", "--at-most", "513", picture}), kWrongUsage, "--at-most");
    ExpectRefusal(KovaFr({"find", "--output", "a.png", picture, picture}), kWrongUsage,
                  "one picture");
    ExpectRefusal(KovaFr({"find", "--output", "a.png", "--save-upright", "a.png", picture}),
                  kWrongUsage, "same file");
    ExpectRefusal(KovaFr({"find", "/nowhere.png"}), kFailure, "/nowhere.png");
}

TEST(Find, ReplacesNoInput) {
    const TempFolder folder;
    WriteFile(folder / "a.pgm", BinaryPgm(Flat(100, 100, 90)));
    ExpectRefusal(KovaFr({"find", "--output", folder / "a.pgm", folder / "a.pgm"}), kFailure,
                  "would replace");
}

} // namespace
} // namespace kova_fr_test
