// SPDX-License-Identifier: MIT
// `kova-fr calibrate`, against the definition of its numbers computed here, what `compare` makes of
// its file, and folders and files that will not do.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "picture_files.h"
#include "program.h"

namespace kova_fr_test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Vector = std::vector<double>;

constexpr int kFailure = 1;
constexpr int kWrongUsage = 2;
constexpr double kRounding = 2e-6;

double Dot(const Vector& a, const Vector& b) {
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        sum += a[i] * b[i];
    }
    return sum;
}

Vector Centred(const Feature& feature, const Vector& mean) {
    Vector rest;
    for (size_t i = 0; i < mean.size(); ++i) {
        rest.push_back(static_cast<double>(feature[i]) - mean[i]);
    }
    const double length = std::sqrt(Dot(rest, rest));
    for (double& x : rest) {
        x /= length;
    }
    return rest;
}

// A fifth of the cohort counts, behind the very highest.
double LikeOthers(const Vector& centred, const std::vector<Vector>& cohort) {
    Vector scores;
    for (const Vector& other : cohort) {
        scores.push_back(Dot(centred, other));
    }
    std::sort(scores.begin(), scores.end(), std::greater<>());
    const size_t count = std::max<size_t>(1, cohort.size() / 5);
    double sum = 0;
    for (size_t i = 1; i <= count; ++i) {
        sum += scores[i];
    }
    return sum / static_cast<double>(count);
}

class Calibrate : public testing::Test {
  protected:
    Outcome Run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"calibrate", "--rounds", "10", "--out", file_});
        return KovaFrOnCrops(arguments);
    }

    json Contents() const { return json::parse(ReadFile(file_)); }

    // The sample pictures: 12 people, three each.
    void MakeFromSamples() {
        const Outcome run = Run({"--by-name", ORVO_SAMPLES});
        ASSERT_EQ(run.status, 0) << run.err;
    }

    // Pictures of nobody, a different pattern each.
    std::string MakeStrangers(uint32_t count) {
        fs::create_directories(folder_ / "strangers");
        for (uint32_t seed = 1; seed <= count; ++seed) {
            WriteFile(folder_ / "strangers/" + std::to_string(seed) + ".pgm",
                      BinaryPgm(Pattern(64, 64, seed)));
        }
        return folder_ / "strangers";
    }

    void ExpectRefusedContents(const std::function<void(json&)>& change, const std::string& part) {
        json contents = Contents();
        change(contents);
        const std::string changed = folder_ / "changed";
        WriteFile(changed, contents.dump());
        const Outcome run =
            KovaFrOnCrops({"compare", "--calibration", changed, Sample("ada-1"), Sample("ada-2")});
        ExpectRefusal(run, kFailure, part);
        EXPECT_NE(run.err.find(changed), std::string::npos) << run.err;
    }

    static std::string Sample(const std::string& name) {
        return std::string(ORVO_SAMPLES) + "/" + name + ".png";
    }

    TempFolder folder_;
    const std::string file_ = folder_ / "door.calibration";
};

TEST_F(Calibrate, MeanIsThatOverPeople) {
    MakeFromSamples();
    Vector mean(128);
    size_t pictures = 0;
    for (const auto& entry : fs::directory_iterator(ORVO_SAMPLES)) {
        if (entry.path().extension() == ".png") {
            const Feature feature = FeatureOf(entry.path().string());
            for (size_t i = 0; i < mean.size(); ++i) {
                mean[i] += static_cast<double>(feature[i]) / 36;
            }
            ++pictures;
        }
    }
    ASSERT_EQ(pictures, 36u);
    const json contents = Contents();
    EXPECT_EQ(contents["pictures"], 36);
    EXPECT_EQ(contents["people"], 12);
    EXPECT_EQ(contents["labelled"], true);
    for (size_t i = 0; i < mean.size(); ++i) {
        EXPECT_NEAR(contents["mean"][i].get<double>(), mean[i], kRounding);
    }
    // A picture of each person, less the mean.
    ASSERT_EQ(contents["cohort"].size(), 12u);
    const Vector first = Centred(FeatureOf(Sample("ada-1")), mean);
    for (size_t i = 0; i < mean.size(); ++i) {
        EXPECT_NEAR(contents["cohort"][0][i].get<double>(), first[i], 1e-5);
    }
}

TEST_F(Calibrate, CompareGivesTheScoresOfTheFile) {
    MakeFromSamples();
    const json contents = Contents();
    const Vector mean = contents["mean"];
    const std::vector<Vector> cohort = contents["cohort"];
    const std::vector<std::string> names = {"ada-1", "ada-2", "ben-2"};
    std::vector<Vector> centred;
    std::vector<std::string> arguments = {"compare", "--json", "--calibration", file_};
    for (const std::string& name : names) {
        centred.push_back(Centred(FeatureOf(Sample(name)), mean));
        arguments.push_back(Sample(name));
    }
    const Outcome run = KovaFrOnCrops(arguments);
    ASSERT_EQ(run.status, 0) << run.err;
    const json result = json::parse(run.out)["calibration"];
    for (size_t a = 0; a < names.size(); ++a) {
        for (size_t b = 0; b < names.size(); ++b) {
            const double score = Dot(centred[a], centred[b]);
            EXPECT_NEAR(result["centred"][a][b].get<double>(), score, kRounding);
            EXPECT_NEAR(
                result["normalised"][a][b].get<double>(),
                score - 0.5 * (LikeOthers(centred[a], cohort) + LikeOthers(centred[b], cohort)),
                kRounding);
        }
    }
    EXPECT_EQ(result["thresholds"], contents["thresholds"]);
}

// Distances stay what they are.
TEST_F(Calibrate, ComparesPlainScoreIsUnchanged) {
    MakeFromSamples();
    const std::vector<std::string> plain = {"compare", "--json", Sample("ada-1"), Sample("ira-2")};
    std::vector<std::string> calibrated = plain;
    calibrated.insert(calibrated.begin() + 1, {"--calibration", file_});
    json with = json::parse(KovaFrOnCrops(calibrated).out);
    EXPECT_EQ(with.erase("calibration"), 1u);
    EXPECT_EQ(with, json::parse(KovaFrOnCrops(plain).out));
}

TEST_F(Calibrate, RaritiesFollowTheRanksOfStrangers) {
    MakeFromSamples();
    const json contents = Contents();
    const auto pairs = contents["stranger_pairs"].get<double>();
    EXPECT_EQ(pairs, 36 * 35 / 2 - 12 * 3);
    const Outcome run = KovaFrOnCrops({"compare", "--json", "--calibration", file_, Sample("ada-1"),
                                       Sample("ada-2"), Sample("ben-1"), Sample("cleo-1"),
                                       Sample("cleo-3"), Sample("dan-2")});
    const json result = json::parse(run.out)["calibration"];
    size_t beyond = 0;
    for (size_t a = 0; a < 6; ++a) {
        for (size_t b = 0; b < 6; ++b) {
            const auto score = result["normalised"][a][b].get<double>();
            double asHigh = 0; // at the most
            for (const json& one : contents["strangers"]) {
                if (one[1].get<double>() < score) {
                    asHigh = asHigh > 0 ? one[0].get<double>() - 1 : 0;
                    break;
                }
                asHigh = one[0].get<double>();
            }
            const json rarity = result["rarity"][a][b];
            EXPECT_EQ(rarity["beyond"], asHigh == 0);
            EXPECT_DOUBLE_EQ(rarity["one_in"].get<double>(),
                             asHigh > 0 ? pairs / asHigh : pairs / 3);
            beyond += asHigh == 0 ? 1 : 0;
        }
    }
    EXPECT_GE(beyond, 6u); // each with itself
    EXPECT_LT(beyond, 36u);
}

// Two pictures of one person, in words.
TEST_F(Calibrate, CompareSaysHowRareItIs) {
    MakeFromSamples();
    const Outcome same =
        KovaFrOnCrops({"compare", "--calibration", file_, Sample("ada-1"), Sample("ada-1")});
    EXPECT_NE(same.out.find("fewer than 1 in 190"), std::string::npos) << same.out;
    const Outcome strangers =
        KovaFrOnCrops({"compare", "--calibration", file_, Sample("ada-1"), Sample("finn-2")});
    EXPECT_NE(strangers.out.find("no more alike than strangers mostly are"), std::string::npos)
        << strangers.out;
}

// All entries, by the score that `compare` gives.
TEST_F(Calibrate, IdentifyRanksByTheNormalisedScore) {
    MakeFromSamples();
    const std::string gallery = folder_ / "people.gallery";
    const std::vector<std::string> enrolled = {"ada-1", "ben-1", "cleo-2", "joe-1", "lena-3"};
    std::vector<std::string> compare = {"compare", "--json", "--calibration", file_,
                                        Sample("joe-2")};
    for (const std::string& name : enrolled) {
        ASSERT_EQ(KovaFrOnCrops({"enroll", gallery, name, Sample(name)}).status, 0);
        compare.push_back(Sample(name));
    }
    const json compared = json::parse(KovaFrOnCrops(compare).out);
    const Outcome run = KovaFrOnCrops(
        {"identify", "--json", "--top", "9", "--calibration", file_, gallery, Sample("joe-2")});
    ASSERT_EQ(run.status, 0) << run.err;
    const json matches = json::parse(run.out)["pictures"][0]["matches"];
    ASSERT_EQ(matches.size(), enrolled.size());
    double last = 1;
    for (const json& match : matches) {
        const auto place = static_cast<size_t>(
            std::find(enrolled.begin(), enrolled.end(), match["name"]) - enrolled.begin());
        ASSERT_LT(place, enrolled.size());
        const json& tables = compared["calibration"];
        EXPECT_EQ(match["normalised"], tables["normalised"][0][place + 1]);
        EXPECT_EQ(match["rarity"], tables["rarity"][0][place + 1]);
        EXPECT_EQ(match["distance"], compared["distances"][0][place + 1]);
        EXPECT_LE(match["normalised"].get<double>(), last);
        last = match["normalised"].get<double>();
    }
    EXPECT_EQ(matches[0]["name"], "joe-1");
}

TEST_F(Calibrate, IdentifysThresholdIsOfTheNormalisedScore) {
    MakeFromSamples();
    const std::string gallery = folder_ / "people.gallery";
    ASSERT_EQ(KovaFrOnCrops({"enroll", gallery, "joe", Sample("joe-1")}).status, 0);
    const auto identify = [&](double threshold) {
        return KovaFrOnCrops({"identify", "--calibration", file_, "--threshold",
                              std::to_string(threshold), gallery, Sample("joe-2")});
    };
    const json compared = json::parse(KovaFrOnCrops({"compare", "--json", "--calibration", file_,
                                                     Sample("joe-1"), Sample("joe-2")})
                                          .out);
    const auto score = compared["calibration"]["normalised"][0][1].get<double>();
    ASSERT_GT(compared["distance"].get<double>(), score + 0.01); // the plain one would pass both
    EXPECT_EQ(identify(score - 0.01).status, 0);
    const Outcome above = identify(score + 0.01);
    EXPECT_EQ(above.status, 3);
    EXPECT_NE(above.out.find("nobody"), std::string::npos);
}

TEST_F(Calibrate, StrangersNeedNoNames) {
    const Outcome run = Run({MakeStrangers(60), "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    const json said = json::parse(run.out);
    EXPECT_EQ(said["people"], 60);
    EXPECT_EQ(said["stranger_pairs"], 60 * 59 / 2);
    const json contents = Contents();
    EXPECT_EQ(contents["labelled"], false);
    ASSERT_FALSE(contents["thresholds"].empty());
    for (const json& one : contents["thresholds"]) {
        EXPECT_TRUE(one["false_rejects"].is_null()); // nobody has two pictures
        EXPECT_LE(one["false_accepts"]["rate"], one["false_accept_rate"]);
    }
}

TEST_F(Calibrate, TheSameFolderGivesTheSameFile) {
    MakeFromSamples();
    const std::string first = ReadFile(file_);
    MakeFromSamples();
    EXPECT_EQ(ReadFile(file_), first);
}

// Scores of found faces and of crops are not the same.
TEST_F(Calibrate, MixingFoundFacesAndCropsIsWarnedOf) {
    MakeFromSamples();
    EXPECT_EQ(Contents()["faces"], "crops");
    const std::vector<std::string> compare = {"compare", "--any-quality", "--calibration",
                                              file_,     Sample("ada-1"), Sample("ada-2")};
    EXPECT_EQ(KovaFrOnCrops(compare).err, "");
    const Outcome mixed = KovaFr(compare);
    EXPECT_EQ(mixed.status, 0);
    EXPECT_NE(mixed.err.find(file_ + ": was made of crops"), std::string::npos) << mixed.err;
    json contents = Contents();
    contents.erase("faces"); // as an earlier program wrote it
    WriteFile(file_, contents.dump());
    EXPECT_EQ(KovaFr(compare).err, "");
    contents["faces"] = "painted";
    WriteFile(file_, contents.dump());
    ExpectRefusal(KovaFr(compare), kFailure, "is no calibration");
    const Outcome found = KovaFr({"calibrate", "--rounds", "10", "--by-name", "--any-quality",
                                  "--out", file_, ORVO_SAMPLES});
    ASSERT_EQ(found.status, 0) << found.err;
    EXPECT_EQ(Contents()["faces"], "found");
    EXPECT_NE(KovaFrOnCrops(compare).err.find("was made of faces found in pictures"),
              std::string::npos);
}

TEST_F(Calibrate, TooFewPeopleAreRefused) {
    ExpectRefusal(Run({MakeStrangers(49)}), kFailure, "at least 50");
    const std::string few = folder_ / "few";
    for (const char* person : {"ada", "ben"}) {
        fs::create_directories(few + "/" + person);
        for (const char* number : {"-1.png", "-2.png"}) {
            fs::copy_file(std::string(ORVO_SAMPLES) + "/" + person + number,
                          few + "/" + person + "/" + number);
        }
    }
    ExpectRefusal(Run({few}), kFailure, "at least 10");
    EXPECT_FALSE(fs::exists(file_));
}

TEST_F(Calibrate, PicturesBesideFoldersOfPicturesAreRefused) {
    const std::string folder = MakeStrangers(50);
    fs::create_directories(folder + "/ada");
    fs::copy_file(Sample("ada-1"), folder + "/ada/1.png");
    ExpectRefusal(Run({folder}), kFailure, "has pictures and sub-folders with pictures");
}

TEST_F(Calibrate, CopiesOfOnePictureAreNamed) {
    const std::string folder = MakeStrangers(50);
    fs::copy_file(folder + "/1.pgm", folder + "/copy.pgm");
    const Outcome run = Run({folder});
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.err.find("1 pairs of pictures have the same feature"), std::string::npos)
        << run.err;
}

TEST_F(Calibrate, APictureThatCannotBeUsedIsLeftOut) {
    const std::string folder = MakeStrangers(51);
    WriteFile(folder + "/bad.png", "no picture");
    const Outcome run = Run({folder, "--json"});
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.err.find("left out"), std::string::npos) << run.err;
    EXPECT_EQ(json::parse(run.out)["left_out"].size(), 1u);
    ExpectRefusal(Run({folder, "--strict"}), kFailure, "bad.png");
}

TEST_F(Calibrate, DoesNotWriteOverAPicture) {
    const std::string folder = MakeStrangers(50);
    const std::string picture = folder + "/1.pgm";
    const std::string before = ReadFile(picture);
    ExpectRefusal(KovaFrOnCrops({"calibrate", "--out", picture, folder}), kFailure, picture);
    EXPECT_EQ(ReadFile(picture), before);
}

TEST_F(Calibrate, WrongUsage) {
    ExpectRefusal(KovaFrOnCrops({"calibrate", ORVO_SAMPLES}), kWrongUsage, "--out");
    ExpectRefusal(KovaFrOnCrops({"calibrate", "--out", file_}), kWrongUsage, "folder");
}

TEST_F(Calibrate, FilesThatAreNoCalibrationAreRefused) {
    MakeFromSamples();
    const std::string text = ReadFile(file_);
    WriteFile(file_, text.substr(0, text.size() / 2));
    ExpectRefusal(
        KovaFrOnCrops({"compare", "--calibration", file_, Sample("ada-1"), Sample("ada-2")}),
        kFailure, "is no calibration");
    WriteFile(file_, text);
    ExpectRefusedContents([](json& c) { c.erase("mean"); }, "is no calibration");
    ExpectRefusedContents([](json& c) { c["mean"].erase(0); }, "has not 128 numbers");
    ExpectRefusedContents([](json& c) { c["mean"][0] = 2; }, "out of range");
    ExpectRefusedContents([](json& c) { c["mean"][0] = "x"; }, "is no calibration");
    ExpectRefusedContents([](json& c) { c["cohort"][3][5] = 0.9; }, "unit length");
    ExpectRefusedContents(
        [](json& c) {
            c["cohort"].erase(0);
            c["cohort"].erase(0);
            c["cohort"].erase(0);
        },
        "most alike");
    ExpectRefusedContents([](json& c) { c["strangers"][1][0] = 1; }, "do not rise");
    ExpectRefusedContents([](json& c) { c["strangers"][1][1] = 1; }, "out of range");
    ExpectRefusedContents([](json& c) { c["stranger_pairs"] = 600; }, "do not reach");
    ExpectRefusedContents([](json& c) { c["thresholds"] = 1; }, "no thresholds");
    ExpectRefusedContents([](json& c) { c["thresholds"][0]["threshold"] = 7; }, "out of range");
    ExpectRefusedContents([](json& c) { c["kova_fr_calibration"] = 2; }, "another version");
    ExpectRefusedContents([](json& c) { c["models"] = std::string(64, '0'); }, "other models");
}

// As an integer such a number is anything, and in C++ undefined behaviour.
TEST_F(Calibrate, NumbersThatAreNotWholeAreRefused) {
    MakeFromSamples();
    for (const json& number : {json(1e300), json(-1), json(4.5), json(true), json("9")}) {
        ExpectRefusedContents([&](json& c) { c["pictures"] = number; }, "is not whole");
    }
    for (const char* key : {"people", "most_alike", "stranger_pairs", "kova_fr_calibration"}) {
        ExpectRefusedContents([&](json& c) { c[key] = 1e300; }, "is not whole");
    }
    ExpectRefusedContents([](json& c) { c["strangers"][0][0] = 1e300; }, "is not whole");
}

} // namespace
} // namespace kova_fr_test
