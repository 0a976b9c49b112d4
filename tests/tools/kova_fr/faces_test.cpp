// SPDX-License-Identifier: MIT
// What the commands make of whole photographs: which faces they find and take, what they refuse, and
// what they say of it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

#include "orvo/orvo_find.h"
#include "orvo/orvo_fr.h"
#include "photograph.h"
#include "picture_files.h"
#include "program.h"

namespace kova_fr_test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr int kFailure = 1;
constexpr int kWrongUsage = 2;

const std::vector<std::pair<std::string, Placed>> kParty = {
    {"joe-1.png", {60, 60, 2}}, {"cleo-2.png", {820, 300, 1}}, {"lena-1.png", {600, 20, 1}}};

class Faces : public testing::Test {
  protected:
    Faces() {
        WriteFile(party_, BinaryPgm(Photograph(kParty)));
        WriteFile(far_, GreyPng(FarAway("joe-1.png")));
        WriteFile(wall_, BinaryPgm(Flat(300, 300, 90)));
    }

    static json JsonOf(const std::vector<std::string>& arguments) {
        const Outcome run = KovaFr(arguments);
        EXPECT_EQ(run.status, 0) << run.err;
        return run.status == 0 ? json::parse(run.out) : json();
    }

    // All faces of a picture as `extract` describes them.
    static json Found(const std::string& path) {
        json faces = JsonOf({"extract", "--json", path})["pictures"];
        for (json& face : faces) {
            for (const char* other : {"path", "width", "height", "feature"}) {
                face.erase(other);
            }
        }
        return faces;
    }

    // The largest one of them.
    static json Largest(const json& faces) {
        size_t largest = 0;
        for (size_t i = 1; i < faces.size(); ++i) {
            const bool isLarger = faces[i]["box"]["width"] > faces[largest]["box"]["width"];
            largest = isLarger ? i : largest;
        }
        return faces.at(largest);
    }

    TempFolder folder_;
    const std::string party_ = folder_ / "party.pgm";
    const std::string far_ = folder_ / "far.png";
    const std::string wall_ = folder_ / "wall.pgm";
    const std::string gallery_ = folder_ / "g";
    const std::string good_ = Sample("joe-1.png");
};

struct LibraryFaces {
    std::vector<OrvoFindFace> faces;
    std::vector<Feature> features;
    std::vector<uint8_t> firstCrop = std::vector<uint8_t>(size_t{96} * 96);
};

// What the libraries make of a picture by their exported functions.
LibraryFaces FacesByLibrary(const Grey& picture) {
    static std::vector<uint8_t> core(ORVO_FR_MEMORY_SIZE);
    static const bool isOpen = OrvoFrInit() == ORVO_FR_OK && OrvoFindInit() == ORVO_FIND_OK;
    EXPECT_TRUE(isOpen);
    EXPECT_EQ(OrvoFrSetMemory(core.data(), ORVO_FR_MEMORY_SIZE), ORVO_FR_OK);
    const auto width = static_cast<int32_t>(picture.width);
    const auto height = static_cast<int32_t>(picture.height);
    std::vector<uint8_t> memory(OrvoFindGetMemorySize(width, height, ORVO_FIND_SMALLEST));
    EXPECT_EQ(OrvoFindSetMemory(memory.data(), static_cast<uint32_t>(memory.size())), ORVO_FIND_OK);
    const OrvoFindPicture view = {picture.pixels.data(), width, height, width};
    LibraryFaces found;
    found.faces.resize(20);
    found.features.resize(20);
    int32_t count = 0;
    EXPECT_EQ(OrvoFindMirroredFeatures(&view, ORVO_FIND_SMALLEST, found.faces.data(),
                                       found.features[0].data(), 20, &count),
              ORVO_FIND_OK);
    found.faces.resize(static_cast<size_t>(count));
    found.features.resize(static_cast<size_t>(count));
    if (count > 0) {
        EXPECT_EQ(OrvoFindUpright(&view, found.faces.data(), found.firstCrop.data()), ORVO_FIND_OK);
    }
    return found;
}

TEST_F(Faces, ExtractTakesEveryFaceOfAPhotograph) {
    const LibraryFaces expected = FacesByLibrary(Photograph(kParty));
    ASSERT_GE(expected.faces.size(), 3u);
    const json pictures = JsonOf({"extract", "--json", party_})["pictures"];
    ASSERT_EQ(pictures.size(), expected.faces.size());
    for (size_t i = 0; i < pictures.size(); ++i) {
        const OrvoFindFace& face = expected.faces[i];
        EXPECT_EQ(pictures[i]["path"], party_ + "#" + std::to_string(i + 1));
        EXPECT_EQ(pictures[i]["feature"].get<Feature>(), expected.features[i]);
        EXPECT_EQ(pictures[i]["width"], 1200);
        EXPECT_EQ(pictures[i]["box"]["x"].get<float>(), face.left);
        EXPECT_EQ(pictures[i]["box"]["y"].get<float>(), face.top);
        EXPECT_EQ(pictures[i]["box"]["width"].get<float>(), face.side);
        EXPECT_EQ(pictures[i]["score"].get<float>(), face.score);
        EXPECT_EQ(pictures[i]["landmarks"]["nose_tip"]["x"].get<float>(), face.points[2].x);
        EXPECT_EQ(pictures[i]["landmarks"]["right_mouth_corner"]["y"].get<float>(),
                  face.points[4].y);
        EXPECT_EQ(pictures[i]["quality"], face.quality);
        EXPECT_EQ(pictures[i]["reasons"].empty(), face.reasons == 0);
    }
    const Outcome printed = KovaFr({"extract", party_});
    EXPECT_EQ(ParseFeatures(printed.out), expected.features);
    EXPECT_EQ(printed.err, "");
}

TEST_F(Faces, LargestTakesOneFaceOfAPhotograph) {
    const json pictures = JsonOf({"extract", "--json", "--largest", party_})["pictures"];
    ASSERT_EQ(pictures.size(), 1u);
    EXPECT_EQ(pictures[0]["path"], party_);
    EXPECT_EQ(pictures[0]["box"], Largest(Found(party_))["box"]);
}

TEST_F(Faces, OneFaceKeepsThePicturesName) {
    const json pictures = JsonOf({"extract", "--json", good_})["pictures"];
    ASSERT_EQ(pictures.size(), 1u);
    EXPECT_EQ(pictures[0]["path"], good_);
}

TEST_F(Faces, ACropIsTakenAsItStands) {
    const json crop = JsonOf({"extract", "--json", "--crop", good_})["pictures"];
    ASSERT_EQ(crop.size(), 1u);
    EXPECT_EQ(crop[0]["box"], json::parse(R"({"x":0,"y":0,"width":256,"height":256})"));
    EXPECT_FALSE(crop[0].contains("quality"));
    EXPECT_EQ(crop, JsonOf({"extract", "--json", "--box", "all", good_})["pictures"]);
    EXPECT_NE(crop[0]["feature"], JsonOf({"extract", "--json", good_})["pictures"][0]["feature"]);
    ExpectRefusal(KovaFr({"extract", "--crop", "--box", "all", good_}), kWrongUsage, "--crop");
}

TEST_F(Faces, WithoutAFaceTheMessageNamesPictureAndOption) {
    ASSERT_EQ(KovaFr({"enroll", gallery_, "joe", good_}).status, 0);
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"extract", wall_},
          {"compare", good_, wall_},
          {"inspect", wall_},
          {"enroll", gallery_, "nobody", wall_},
          {"identify", gallery_, wall_},
          {"eval", "--strict", "--pairs", folder_ / "pairs"}}) {
        WriteFile(folder_ / "pairs", good_ + " wall.pgm 0\n");
        const Outcome run = KovaFr(arguments);
        ExpectRefusal(run, kFailure, "no face was found");
        EXPECT_NE(run.err.find(wall_), std::string::npos) << run.err;
        EXPECT_NE(run.err.find("--crop"), std::string::npos) << run.err;
    }
}

TEST_F(Faces, CompareTakesTheLargestFaceAndSaysHowManyThereAre) {
    const Outcome run = KovaFr({"compare", "--json", party_, good_});
    ASSERT_EQ(run.status, 0) << run.err;
    const json found = Found(party_);
    EXPECT_EQ(json::parse(run.out)["pictures"][0]["box"], Largest(found)["box"]);
    EXPECT_NE(run.err.find("kova-fr: " + party_ + ": has " + std::to_string(found.size()) +
                           " faces; the largest"),
              std::string::npos)
        << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
}

TEST_F(Faces, CompareTakesAllFacesWhereAskedTo) {
    const json result = JsonOf({"compare", "--json", "--all-faces", party_});
    EXPECT_EQ(result["pictures"].size(), Found(party_).size());
    EXPECT_EQ(result["distances"].size(), Found(party_).size());
    EXPECT_EQ(result["pictures"][1]["path"], party_ + "#2");
}

TEST_F(Faces, EnrollTakesTheLargestFaceAndSaysSo) {
    const Outcome run = KovaFr({"enroll", gallery_, "joe", party_});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find("the largest one that is good enough is taken"), std::string::npos);
    EXPECT_EQ(run.out, "joe: 1 face added; the gallery has 1\n");
}

TEST_F(Faces, IdentifyLooksUpEveryFace) {
    ASSERT_EQ(KovaFr({"enroll", gallery_, "joe", good_}).status, 0);
    ASSERT_EQ(KovaFr({"enroll", gallery_, "cleo", Sample("cleo-1.png")}).status, 0);
    const json found = Found(party_);
    const json pictures = JsonOf({"identify", "--json", gallery_, party_})["pictures"];
    ASSERT_EQ(pictures.size(), found.size());
    for (size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(pictures[i]["path"], party_ + "#" + std::to_string(i + 1));
        EXPECT_EQ(pictures[i]["box"], found[i]["box"]);
        EXPECT_EQ(pictures[i]["landmarks"], found[i]["landmarks"]);
        EXPECT_EQ(pictures[i]["quality"], found[i]["quality"]);
        EXPECT_EQ(pictures[i]["reasons"], found[i]["reasons"]);
    }
    json large;
    for (const json& one : pictures) {
        large = one["box"] == Largest(found)["box"] ? one : large;
    }
    EXPECT_EQ(large["matches"][0]["name"], "joe");
}

TEST_F(Faces, AFaceThatIsNotGoodEnoughIsWarnedOfWithItsReasons) {
    ASSERT_EQ(Found(far_).size(), 1u);
    ASSERT_EQ(KovaFr({"enroll", gallery_, "joe", good_}).status, 0);
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"compare", good_, far_}, {"identify", gallery_, far_}}) {
        const Outcome run = KovaFr(arguments);
        EXPECT_EQ(run.status, 0);
        EXPECT_NE(run.err.find("kova-fr: " + far_ + ": quality "), std::string::npos) << run.err;
        EXPECT_NE(run.err.find("too little: small"), std::string::npos) << run.err;
        std::vector<std::string> any = arguments;
        any.insert(any.begin() + 1, "--any-quality");
        EXPECT_EQ(KovaFr(any).err, "");
    }
    // Nobody compares anything here.
    EXPECT_EQ(KovaFr({"extract", far_}).err, "");
}

TEST_F(Faces, AFaceThatIsNotGoodEnoughIsNotEnrolled) {
    const Outcome some = KovaFr({"enroll", gallery_, "joe", good_, far_});
    EXPECT_EQ(some.status, 0);
    EXPECT_EQ(some.out, "joe: 1 face added, 1 left out for want of quality; the gallery has 1\n");
    EXPECT_NE(some.err.find("left out: " + far_ + ": quality "), std::string::npos) << some.err;
    const json said = JsonOf({"enroll", "--json", gallery_, "joe", good_, far_});
    ASSERT_EQ(said["left_out"].size(), 1u);
    EXPECT_NE(said["left_out"][0].get<std::string>().find("small"), std::string::npos);

    const std::string before = ReadFile(gallery_);
    const Outcome none = KovaFr({"enroll", gallery_, "joe", far_});
    EXPECT_EQ(none.status, kFailure);
    EXPECT_EQ(none.out, "");
    EXPECT_NE(none.err.find("--any-quality"), std::string::npos) << none.err;
    EXPECT_EQ(ReadFile(gallery_), before);
    const Outcome any = KovaFr({"enroll", "--any-quality", gallery_, "joe", far_});
    EXPECT_EQ(any.out, "joe: 1 face added; the gallery has 3\n") << any.err;
    EXPECT_EQ(any.err, "");
}

TEST_F(Faces, EvalAndCalibrateLeaveOutWhatIsNotGoodEnough) {
    const std::string people = folder_ / "people";
    for (const std::string name : {"joe", "cleo", "ira", "lena"}) {
        const fs::path person = fs::path(people) / name;
        fs::create_directories(person);
        fs::copy_file(Sample(name + "-1.png"), person / "1.png");
        fs::copy_file(Sample(name + "-2.png"), person / "2.png");
    }
    fs::copy_file(far_, people + "/joe/far.png");
    fs::copy_file(wall_, people + "/joe/wall.pgm");
    const Outcome run = KovaFr({"eval", "--json", "--rounds", "10", people});
    ASSERT_EQ(run.status, 0) << run.err;
    const json leftOut = json::parse(run.out)["left_out"];
    const auto isNamed = [&leftOut](const std::string& part) {
        return std::any_of(leftOut.begin(), leftOut.end(), [&](const json& one) {
            return one.get<std::string>().find(part) != std::string::npos;
        });
    };
    EXPECT_TRUE(isNamed("far.png: quality ")) << leftOut;
    EXPECT_TRUE(isNamed("wall.pgm: no face was found")) << leftOut;
    const json any = JsonOf({"eval", "--json", "--rounds", "10", "--any-quality", people});
    EXPECT_EQ(any["pictures"], 9);
    EXPECT_EQ(any["left_out"].size(), 1u);
    ExpectRefusal(KovaFr({"calibrate", "--out", folder_ / "c", "--strict", people}), kFailure, "");
}

// A study counts faces as `extract` and `compare` see them.
TEST_F(Faces, EvalComparesFoundFaces) {
    WriteFile(folder_ / "pairs", good_ + " " + Sample("cleo-1.png") + " 0\n");
    const json report =
        JsonOf({"eval", "--json", "--any-quality", "--rounds", "10", "--pairs", folder_ / "pairs"});
    const auto distance =
        JsonOf({"compare", "--json", "--any-quality", good_, Sample("cleo-1.png")})["distance"]
            .get<double>();
    for (const json& entry : report["table"]) {
        EXPECT_EQ(entry["false_accepts"]["count"],
                  distance >= entry["threshold"].get<double>() ? 1 : 0);
    }
}

TEST_F(Faces, SavedCropsOfAPhotographAreItsUprightFaces) {
    ASSERT_EQ(KovaFr({"extract", "--save-crop", folder_ / "one.png", good_}).status, 0);
    EXPECT_EQ(DecodeGreyPng(ReadFile(folder_ / "one.png")).pixels,
              FacesByLibrary(DecodeGreyPng(ReadFile(good_))).firstCrop);
    ASSERT_EQ(KovaFr({"extract", "--save-crop", folder_ / "all.png", party_}).status, 0);
    EXPECT_TRUE(fs::exists(folder_ / "all-3.png"));
    EXPECT_FALSE(fs::exists(folder_ / "all.png"));
    // Made-up names replace nothing.
    EXPECT_EQ(KovaFr({"extract", "--save-crop", folder_ / "all.png", party_}).status, kFailure);
}

// Where the annotated picture differs from the photograph there are the boxes that were found.
TEST_F(Faces, AnnotatedPictureHasABoxAroundEveryFace) {
    ASSERT_EQ(KovaFr({"enroll", gallery_, "J\xC3\xB6 \xE2\x98\x83", good_}).status, 0);
    const std::string named = folder_ / "named.png";
    const Outcome run = KovaFr({"identify", "--annotate", named, gallery_, party_});
    ASSERT_EQ(run.status, 0) << run.err;
    const json size = JsonOf({"find", "--json", named})["pictures"][0];
    EXPECT_EQ(size["width"], 1200);
    EXPECT_EQ(size["height"], 800);
    ASSERT_EQ(KovaFr({"find", "--output", folder_ / "found.png", party_}).status, 0);
    EXPECT_NE(ReadFile(named), ReadFile(folder_ / "found.png")); // other words below the boxes
    ExpectRefusal(KovaFr({"identify", "--annotate", named, gallery_, party_, good_}), kWrongUsage,
                  "one picture");
    ExpectRefusal(KovaFr({"identify", "--annotate", named, "--crop", gallery_, party_}),
                  kWrongUsage, "--crop");
    ExpectRefusal(KovaFr({"identify", "--annotate", party_, gallery_, party_}), kFailure,
                  "would replace");
}

// Eight people enrolled by a portrait, and a ninth whom nobody enrolled.
TEST_F(Faces, PeopleOfAGroupAreKnownByTheirPortraits) {
    const std::set<std::string> people = {"mina",  "noah", "otto", "pearl",
                                          "quinn", "ravi", "sami", "tara"};
    for (const std::string& name : people) {
        ASSERT_EQ(KovaFr({"enroll", gallery_, name, Sample("portraits/" + name + "-1.png")}).status,
                  0);
    }
    const json result =
        JsonOf({"identify", "--json", "--top", "1", gallery_, Sample("photographs/group.png")});
    const double least = result["thresholds"]["at"][1]["threshold"];
    std::set<std::string> known;
    for (const json& face : result["pictures"]) {
        if (face["matches"][0]["distance"].get<double>() >= least) {
            EXPECT_TRUE(known.insert(face["matches"][0]["name"]).second) << "named twice: " << face;
        }
    }
    EXPECT_EQ(known, people);
    EXPECT_EQ(result["pictures"].size(), 9u);
}

TEST_F(Faces, InspectShowsTheLargestFaceOfAPhotograph) {
    const json found = Found(party_);
    const json seen = JsonOf({"inspect", "--json", party_});
    EXPECT_EQ(seen["faces"], found.size());
    const json largest = Largest(found);
    for (const auto& [key, value] : largest.items()) {
        EXPECT_EQ(seen[key], value) << key;
    }
    const Outcome text = KovaFr({"inspect", "--output", folder_ / "seen.png", party_});
    ASSERT_EQ(text.status, 0) << text.err;
    for (const char* part : {"landmarks  pupils", "quality    ", "reasons: "}) {
        EXPECT_NE(text.out.find(part), std::string::npos) << text.out;
    }
    EXPECT_EQ(ReadFile(folder_ / "seen.png").substr(1, 3), "PNG");
}

} // namespace
} // namespace kova_fr_test
