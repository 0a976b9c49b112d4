// SPDX-License-Identifier: MIT
// enroll, identify and gallery.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "gallery_files.h"
#include "picture_files.h"
#include "program.h"

namespace kova_fr_test {
namespace {

using nlohmann::json;

constexpr int kFailure = 1;
constexpr int kWrongUsage = 2;
constexpr int kNobody = 3;

std::string Sample(const std::string& name) { return std::string(ORVO_SAMPLES "/") + name; }

class Galleries : public testing::Test {
  protected:
    Galleries() {
        for (uint32_t i = 0; i < 4; ++i) {
            pictures_.push_back(folder_ / ("p" + std::to_string(i) + ".png"));
            WriteFile(pictures_.back(), GreyPng(Pattern(256, 256, i + 1)));
        }
    }

    static std::string Output(const std::vector<std::string>& arguments) {
        const Outcome run = KovaFrOnCrops(arguments);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err, "");
        return run.out;
    }

    void Enroll(const std::string& name, const std::vector<std::string>& pictures) {
        std::vector<std::string> arguments = {"enroll", gallery_, name};
        arguments.insert(arguments.end(), pictures.begin(), pictures.end());
        Output(arguments);
    }

    json Names() { return json::parse(Output({"gallery", "--json", gallery_}))["names"]; }

    // Nothing but the gallery and the pictures is left in the folder.
    void ExpectNothingLeftBehind() {
        EXPECT_EQ(folder_.Names(),
                  (std::vector<std::string>{"g", "p0.png", "p1.png", "p2.png", "p3.png"}));
    }

    TempFolder folder_;
    const std::string gallery_ = folder_ / "g";
    std::vector<std::string> pictures_;
};

TEST_F(Galleries, IdentifyShowsTheDistancesOfCompareFromTheMostAlike) {
    Enroll("zero", {pictures_[0]});
    Enroll("one", {pictures_[1]});
    Enroll("two", {pictures_[2]});
    const json found = json::parse(Output({"identify", "--json", gallery_, pictures_[3]}));
    const json matches = found["pictures"][0]["matches"];
    ASSERT_EQ(matches.size(), 3u);
    const std::vector<std::string> names = {"zero", "one", "two"};
    for (size_t i = 0; i < matches.size(); ++i) {
        const size_t entry = matches[i]["entry"];
        EXPECT_EQ(matches[i]["name"], names.at(entry));
        const json compared =
            json::parse(Output({"compare", "--json", pictures_[3], pictures_[entry]}));
        EXPECT_EQ(matches[i]["distance"], compared["distance"]);
        if (i > 0) {
            EXPECT_LE(matches[i]["distance"], matches[i - 1]["distance"]);
        }
    }
    ExpectNothingLeftBehind();
}

TEST_F(Galleries, OfANameTheBestFeatureCountsAndTopNamesAreListed) {
    Enroll("both", {pictures_[0], pictures_[1]});
    Enroll("other", {pictures_[2]});
    const json all = json::parse(Output({"identify", "--json", gallery_, pictures_[1]}));
    EXPECT_EQ(all["features"], 3);
    ASSERT_EQ(all["pictures"][0]["matches"].size(), 2u);
    EXPECT_EQ(all["pictures"][0]["matches"][0]["name"], "both");
    EXPECT_EQ(all["pictures"][0]["matches"][0]["entry"], 1);
    const json top =
        json::parse(Output({"identify", "--json", "--top", "1", gallery_, pictures_[1]}));
    ASSERT_EQ(top["pictures"][0]["matches"].size(), 1u);
    EXPECT_EQ(top["pictures"][0]["matches"][0]["name"], "both");
}

TEST_F(Galleries, ThresholdHidesStrangersAndTheStatusSaysSo) {
    Enroll("zero", {pictures_[0]});
    const Outcome known =
        KovaFrOnCrops({"identify", "--threshold", "0.999", gallery_, pictures_[0]});
    EXPECT_EQ(known.status, 0) << known.err;
    EXPECT_NE(known.out.find("zero"), std::string::npos);
    const Outcome stranger =
        KovaFrOnCrops({"identify", "--threshold", "0.999", gallery_, pictures_[0], pictures_[1]});
    EXPECT_EQ(stranger.status, kNobody);
    EXPECT_EQ(stranger.err, "");
    EXPECT_NE(stranger.out.find("nobody"), std::string::npos);
}

TEST_F(Galleries, SamplePeopleAreFoundByOtherPictures) {
    for (const std::string name : {"cleo", "ira", "joe", "lena"}) {
        Enroll(name, {Sample(name + "-1.png")});
    }
    for (const std::string name : {"cleo", "ira", "joe", "lena"}) {
        const json found =
            json::parse(Output({"identify", "--json", gallery_, Sample(name + "-2.png")}));
        EXPECT_EQ(found["pictures"][0]["matches"][0]["name"], name);
    }
}

TEST_F(Galleries, NamesAreListedAndRemoved) {
    Enroll("b", {pictures_[0], pictures_[1]});
    Enroll("a b", {pictures_[2]});
    EXPECT_EQ(Names(), json::parse(R"([{"name":"a b","features":1},{"name":"b","features":2}])"));
    Output({"gallery", "--remove", "b", gallery_});
    EXPECT_EQ(Names(), json::parse(R"([{"name":"a b","features":1}])"));
    const std::string before = ReadFile(gallery_);
    ExpectRefusal(KovaFr({"gallery", "--remove", "b", gallery_}), kFailure, "there is no b");
    EXPECT_EQ(ReadFile(gallery_), before);
    Output({"gallery", "--remove", "a b", gallery_});
    const json none = json::parse(Output({"identify", "--json", gallery_, pictures_[0]}));
    EXPECT_EQ(none["pictures"][0]["matches"].size(), 0u);
}

TEST_F(Galleries, EveryCutOfAGalleryIsRefused) {
    Enroll("somebody with a long name", {pictures_[0]});
    const std::string whole = ReadFile(gallery_);
    const std::string cut = folder_ / "cut";
    for (size_t length = 0; length < whole.size(); length += length < 8 ? 1 : 16) {
        WriteFile(cut, whole.substr(0, length));
        const Outcome run = KovaFrOnCrops({"identify", cut, pictures_[0]});
        ExpectRefusal(run, kFailure, length < 8 ? "no gallery" : "cut short");
    }
}

TEST_F(Galleries, WhatAKilledProgramLeftBehindAGalleryIsNotReadAndGoes) {
    Enroll("a", {pictures_[0]});
    const std::string whole = ReadFile(gallery_);
    WriteFile(gallery_, whole + std::string(2000, 'x'));
    EXPECT_EQ(Names().size(), 1u);
    Enroll("b", {pictures_[1]});
    const std::string more = ReadFile(gallery_);
    EXPECT_EQ(more.substr(96, whole.size() - 96), whole.substr(96));
    EXPECT_EQ(more.size(), whole.size() + whole.size() - 96);
    ExpectNothingLeftBehind();
}

TEST_F(Galleries, CanBeReadByTheirOwnersAlone) {
    const mode_t mask = umask(0);
    Enroll("a", {pictures_[0]});
    umask(mask);
    const auto permissions = [this] { return std::filesystem::status(gallery_).permissions(); };
    using std::filesystem::perms;
    EXPECT_EQ(permissions(), perms::owner_read | perms::owner_write);
    // But what the owner allows stays allowed, whatever is written.
    const perms shared = perms::owner_read | perms::owner_write | perms::group_read;
    std::filesystem::permissions(gallery_, shared);
    Enroll("b", {pictures_[1]});
    EXPECT_EQ(permissions(), shared);
    Output({"gallery", "--remove", "a", gallery_});
    EXPECT_EQ(permissions(), shared);
}

TEST_F(Galleries, ThatAreReadOnlyAreNotChanged) {
    Enroll("a", {pictures_[0]});
    const std::string before = ReadFile(gallery_);
    std::filesystem::permissions(gallery_, std::filesystem::perms::owner_read);
    ExpectRefusal(KovaFrOnCrops({"enroll", gallery_, "b", pictures_[1]}), kFailure, "is read-only");
    ExpectRefusal(KovaFr({"gallery", "--remove", "a", gallery_}), kFailure, "is read-only");
    EXPECT_EQ(ReadFile(gallery_), before);
    EXPECT_EQ(Names().size(), 1u);
    ExpectNothingLeftBehind();
}

// Names as another program may have stored them.
TEST_F(Galleries, NamesAreShownWithoutControlCharacters) {
    Enroll("models", {pictures_[0]});
    const std::string models = ReadFile(gallery_).substr(16, 32);
    Entries entries = RandomEntries(5, 2);
    entries.features[0] = FeatureOf(pictures_[1]);
    entries.names = {"a\x1b[31m", "b\302\23331m", "c\23331m", "d\x7f", "e\xe2\x80\xae"};
    WriteFile(gallery_, Version2File(models, BlocksOf(entries), 5));
    const std::string text = Output({"gallery", gallery_}) +
                             Output({"gallery", "--json", gallery_}) +
                             Output({"identify", gallery_, pictures_[1]}) +
                             Output({"identify", "--json", gallery_, pictures_[1]});
    for (const std::string control : {"\x1b", "\xc2\x9b", "\x7f"}) {
        EXPECT_EQ(text.find(control), std::string::npos) << text;
    }
    const std::string lines = Output({"gallery", gallery_});
    for (const std::string shown : {"a?[31m", "b?31m", "c?31m", "d?", "e?"}) {
        EXPECT_NE(lines.find("  " + shown + "\n"), std::string::npos) << lines;
    }
    const json found = json::parse(Output({"identify", "--json", gallery_, pictures_[1]}));
    EXPECT_EQ(found["pictures"][0]["matches"][0]["name"], entries.names[0]);
    EXPECT_EQ(json::parse(Output({"gallery", "--json", gallery_}))["names"][1]["name"],
              entries.names[1]);
}

TEST_F(Galleries, EveryChangedByteOfAGalleryIsNoticed) {
    Enroll("a", {pictures_[0]});
    const std::string whole = ReadFile(gallery_);
    for (size_t at = 0; at < whole.size(); at += at < 64 ? 1 : 37) {
        std::string changed = whole;
        changed[at] = static_cast<char>(changed[at] ^ 1);
        WriteFile(folder_ / "changed", changed);
        const Outcome run = KovaFr({"gallery", folder_ / "changed"});
        EXPECT_EQ(run.status, kFailure) << at;
    }
}

TEST_F(Galleries, DamagedGalleryIsNotAddedToAndStaysAsItIs) {
    Enroll("a", {pictures_[0]});
    const std::string half = ReadFile(gallery_).substr(0, 300);
    WriteFile(gallery_, half);
    ExpectRefusal(KovaFrOnCrops({"enroll", gallery_, "b", pictures_[1]}), kFailure, "cut short");
    EXPECT_EQ(ReadFile(gallery_), half);
    ExpectNothingLeftBehind();
}

TEST_F(Galleries, OtherFilesAreNoGalleries) {
    ExpectRefusal(KovaFrOnCrops({"identify", pictures_[0], pictures_[0]}), kFailure,
                  "is no gallery");
    const std::string before = ReadFile(pictures_[1]);
    ExpectRefusal(KovaFrOnCrops({"enroll", pictures_[1], "a", pictures_[0]}), kFailure,
                  "is no gallery");
    EXPECT_EQ(ReadFile(pictures_[1]), before);
    ExpectRefusal(KovaFrOnCrops({"identify", folder_ / "missing", pictures_[0]}), kFailure,
                  "cannot be opened");
    ExpectRefusal(KovaFrOnCrops({"enroll", folder_.path(), "a", pictures_[0]}), kFailure,
                  "is a folder");
    ExpectRefusal(KovaFrOnCrops({"enroll", folder_ / "no/such/g", "a", pictures_[0]}), kFailure,
                  "cannot be used");
}

// One that is whole, but whose features come from other models.
TEST_F(Galleries, FeaturesOfOtherModelsAreRefusedAndKept) {
    const Entries entries = RandomEntries(2, 3);
    const std::string bytes = Version2File(std::string(32, 'o'), BlocksOf(entries), 2);
    WriteFile(gallery_, bytes);

    ExpectRefusal(KovaFrOnCrops({"identify", gallery_, pictures_[0]}), kFailure, "other models");
    ExpectRefusal(KovaFrOnCrops({"enroll", gallery_, "b", pictures_[1]}), kFailure, "other models");
    ExpectRefusal(KovaFr({"gallery", "--remove", "a", gallery_}), kFailure, "other models");
    EXPECT_EQ(ReadFile(gallery_), bytes);
    // But what is in it can be seen, and who made it.
    const json info = json::parse(Output({"info", "--json"}));
    const std::string listed = Output({"gallery", gallery_});
    EXPECT_NE(listed.find("made by other models sha256 "), std::string::npos) << listed;
    EXPECT_EQ(listed.find(info["models_sha256"].get<std::string>()), std::string::npos) << listed;
    ExpectNothingLeftBehind();
}

TEST_F(Galleries, SayWhichModelsMadeThemAsInfoDoes) {
    Enroll("a", {pictures_[0]});
    const std::string digest = json::parse(Output({"info", "--json"}))["models_sha256"];
    EXPECT_EQ(json::parse(Output({"gallery", "--json", gallery_}))["models_sha256"], digest);
    EXPECT_NE(Output({"gallery", gallery_}).find("made by models sha256 " + digest + "\n"),
              std::string::npos);
    EXPECT_NE(Output({"info"}).find(digest), std::string::npos);
}

TEST_F(Galleries, ExportFeaturesAsNumpyReadsThem) {
    Enroll("a, \"b\"", {pictures_[0]});
    Enroll("c", {pictures_[1], pictures_[2]});
    const std::string path = folder_ / "x.npy";
    const json said = json::parse(Output({"gallery", "--json", "--export", path, gallery_}));
    EXPECT_EQ(said["features"], 3);
    EXPECT_EQ(said["files"], json({path, folder_ / "x.names.csv"}));
    const std::string bytes = ReadFile(path);
    ASSERT_EQ(bytes.size(), 128 + 3 * sizeof(Feature));
    EXPECT_EQ(bytes.substr(0, 10), std::string("\x93NUMPY\x01\x00\x76\x00", 10));
    EXPECT_EQ(bytes.substr(10, 61),
              "{'descr': '<f4', 'fortran_order': False, 'shape': (3, 128), }");
    EXPECT_EQ(bytes.substr(71, 57), std::string(56, ' ') + "\n");
    for (size_t i = 0; i < 3; ++i) {
        const Feature feature = FeatureOf(pictures_[i]);
        EXPECT_EQ(bytes.substr(128 + i * sizeof feature, sizeof feature),
                  std::string(reinterpret_cast<const char*>(&feature), sizeof feature));
    }
    EXPECT_EQ(ReadFile(folder_ / "x.names.csv"), "name\n\"a, \"\"b\"\"\"\nc\nc\n");
    for (const char* file : {"x.npy", "x.names.csv"}) {
        EXPECT_EQ(std::filesystem::status(folder_ / file).permissions(),
                  std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    }
    // The program made up the second name, so what is there stays.
    ExpectRefusal(KovaFr({"gallery", "--export", path, gallery_}), kFailure, "exists already");
}

TEST_F(Galleries, ExportFeaturesAsATable) {
    Enroll("a, b", {pictures_[0]});
    Enroll("c", {pictures_[1]});
    const std::string path = folder_ / "x.csv";
    Output({"gallery", "--export", path, gallery_});
    std::istringstream lines(ReadFile(path));
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line.substr(0, 11), "name,f0,f1,");
    EXPECT_TRUE(line.ends_with(",f127"));
    for (size_t i = 0; i < 2; ++i) {
        std::getline(lines, line);
        const std::string name = i == 0 ? "\"a, b\"" : "c";
        ASSERT_EQ(line.substr(0, name.size()), name);
        const char* at = line.c_str() + name.size();
        for (const float number : FeatureOf(pictures_[i])) {
            ASSERT_EQ(*at, ',');
            char* end = nullptr;
            EXPECT_EQ(std::strtof(at + 1, &end), number);
            at = end;
        }
        EXPECT_EQ(*at, '\0');
    }
    EXPECT_FALSE(std::getline(lines, line));
    ExpectRefusal(KovaFr({"gallery", "--export", folder_ / "x.txt", gallery_}), kWrongUsage,
                  "neither in .npy nor in .csv");
    ExpectRefusal(KovaFr({"gallery", "--export", folder_ / "no/x.csv", gallery_}), kFailure,
                  "cannot be written");
}

// The array and the table that export writes give the same entries again, beside those that are there.
TEST_F(Galleries, ImportWhatTheyExport) {
    Enroll("a, \"b\"", {pictures_[0]});
    Enroll("c", {pictures_[1], pictures_[2]});
    const std::string models = json::parse(Output({"info", "--json"}))["models_sha256"];
    for (const std::string ending : {".npy", ".csv"}) {
        const std::string file = folder_ / ("x" + ending);
        const std::string again = folder_ / ("again" + ending);
        const json said = json::parse(Output({"gallery", "--json", "--export", file, gallery_}));
        EXPECT_EQ(said["models_sha256"], models);
        json made =
            json::parse(Output({"gallery", "--json", "--import", file, "--models", models, again}));
        EXPECT_EQ(made, json({{"added", 3}, {"features", 3}}));
        EXPECT_EQ(std::filesystem::status(again).permissions(),
                  std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
        // The same but for the blocks that they were added in.
        Output({"gallery", "--export", folder_ / ("y" + ending), again});
        EXPECT_EQ(ReadFile(folder_ / ("y" + ending)), ReadFile(file));
        if (ending == ".npy") {
            EXPECT_EQ(ReadFile(folder_ / "y.names.csv"), ReadFile(folder_ / "x.names.csv"));
        }
        // The first digits of the models are enough, and what is there stays.
        EXPECT_EQ(Output({"gallery", "--import", file, "--models", models.substr(0, 8), again}),
                  "3 features added; the gallery has 6\n");
    }
}

TEST_F(Galleries, ImportNothingThatIsNotRight) {
    Enroll("a", {pictures_[0]});
    const std::string models = json::parse(Output({"info", "--json"}))["models_sha256"];
    const std::string table = folder_ / "x.csv";
    const std::string array = folder_ / "x.npy";
    const std::string names = folder_ / "x.names.csv";
    Output({"gallery", "--export", table, gallery_});
    Output({"gallery", "--export", array, gallery_});
    const std::string goodTable = ReadFile(table);
    const std::string goodArray = ReadFile(array);
    const std::string gallery = ReadFile(gallery_);
    const auto refused = [&](const std::string& file, const std::string& words) {
        ExpectRefusal(KovaFr({"gallery", "--import", file, "--models", models, gallery_}), kFailure,
                      words);
        EXPECT_EQ(ReadFile(gallery_), gallery);
    };
    const size_t second = goodTable.find('\n') + 1;
    const std::string numbers = goodTable.substr(goodTable.find(',', second));
    const auto table1 = [&](const std::string& text, const std::string& words) {
        WriteFile(table, text);
        refused(table, words);
    };
    const std::string heading = goodTable.substr(0, second);
    table1("", "x.csv: has no line of headings name,f0,f1 and so on");
    table1(goodTable.substr(second), "has no line of headings");
    table1(heading, "has no features");
    table1(heading + "a,1,2\n", "line 2 has 2 numbers in place of 128");
    table1(heading + "\"a" + numbers, "line 2 has a quotation mark without its end");
    table1(heading + numbers, "line 2: a name has 1 to 1000 bytes");
    table1(heading + "a\x1b[2J" + numbers, "line 2: a name has 1 to 1000 bytes");
    table1(goodTable + "b,one" + numbers.substr(numbers.find(',', 1)),
           "line 3: 'one' is no number");
    table1(heading + "a,nan" + numbers.substr(numbers.find(',', 1)), "entry 0 is no feature");
    table1(heading + "a,0.9" + numbers.substr(numbers.find(',', 1)), "entry 0 is no feature");
    table1(heading + std::string(100000, 'a'), "line 2 is too long");
    const auto array1 = [&](const std::string& bytes, const std::string& words) {
        WriteFile(array, bytes);
        refused(array, words);
    };
    const auto with = [&](const std::string& from, const std::string& to) {
        std::string bytes = goodArray;
        return bytes.replace(bytes.find(from), from.size(), to);
    };
    array1("", "is no array of NumPy's");
    array1(goodTable, "is no array of NumPy's");
    array1(goodArray.substr(0, 60), "is cut short");
    array1(goodArray.substr(0, goodArray.size() - 1), "is cut short");
    array1(goodArray + "x", "has more bytes than its 1 rows");
    array1(with("<f4", "<f8"), "needs 32-bit floats in rows of 128");
    array1(with("False", "True "), "needs 32-bit floats in rows of 128");
    array1(with("128", "127"), "needs 32-bit floats in rows of 128");
    array1(with("(1,", "(9999999999999999999999,"), "needs 32-bit floats in rows of 128");
    array1(with("(1,", "(36028797018963969,"), "is cut short"); // times 512 it wraps
    array1(with("(1,", "(0,").substr(0, 128), "has no features");
    std::string notUnit = goodArray;
    notUnit.replace(128, 4, std::string("\0\0\x80\x7f", 4)); // infinite
    array1(notUnit, "entry 0 is no feature");
    WriteFile(array, goodArray);
    WriteFile(names, "name\na\nb\n");
    refused(array, "x.names.csv: has 2 names for 1 feature");
    WriteFile(names, "a\n");
    refused(array, "x.names.csv: has no line of heading");
    WriteFile(names, "name\na\t\n");
    refused(array, "x.names.csv: line 2: a name has 1 to 1000 bytes");
    std::filesystem::remove(names);
    refused(array, "x.names.csv: cannot be opened");
}

// Features say nothing of the models that made them, so whoever imports them must.
TEST_F(Galleries, ImportNoFeaturesOfOtherModels) {
    Enroll("a", {pictures_[0]});
    const std::string table = folder_ / "x.csv";
    Output({"gallery", "--export", table, gallery_});
    const std::string other(64, '7');
    const std::string again = folder_ / "again";
    ExpectRefusal(KovaFr({"gallery", "--import", table, "--models", other, again}), kFailure,
                  "were made by other models");
    ExpectRefusal(KovaFr({"gallery", "--import", table, again}), kWrongUsage, "--models");
    ExpectRefusal(KovaFr({"gallery", "--import", table, "--models", "12", again}), kWrongUsage,
                  "8 to 64 digits");
    ExpectRefusal(KovaFr({"gallery", "--import", folder_ / "x.txt", "--models", other, again}),
                  kWrongUsage, "neither in .npy nor in .csv");
    EXPECT_FALSE(std::filesystem::exists(again));
    // A gallery that may not be written, and one of other models.
    const std::string models = json::parse(Output({"info", "--json"}))["models_sha256"];
    WriteFile(again, Version2File(std::string(32, 'm'), BlocksOf(RandomEntries(1, 1)), 1));
    ExpectRefusal(KovaFr({"gallery", "--import", table, "--models", models, again}), kFailure,
                  "models");
    chmod(gallery_.c_str(), 0400);
    ExpectRefusal(KovaFr({"gallery", "--import", table, "--models", models, gallery_}), kFailure,
                  "is read-only");
}

// As an earlier program left it.
TEST_F(Galleries, OfVersion1AreSearchedListedAndChanged) {
    Enroll("models", {pictures_[0]});
    const std::string models = ReadFile(gallery_).substr(16, 32);
    Entries entries = RandomEntries(3, 1);
    entries.features[1] = FeatureOf(pictures_[1]);
    const std::string old = Version1File(models, entries);
    WriteFile(gallery_, old);
    const json found = json::parse(Output({"identify", "--json", gallery_, pictures_[1]}));
    EXPECT_EQ(found["features"], 3);
    EXPECT_EQ(found["pictures"][0]["matches"][0]["name"], "name 1");
    const auto names = [this] { return Names().size(); };
    EXPECT_EQ(names(), 3u);
    EXPECT_EQ(ReadFile(gallery_), old);
    Enroll("new", {pictures_[2]});
    EXPECT_EQ(names(), 4u);
    entries.features.push_back(FeatureOf(pictures_[2]));
    entries.names.push_back("new");
    EXPECT_EQ(ReadFile(gallery_), Version2File(models, BlocksOf(entries), 4));
}

TEST_F(Galleries, ComeThroughPipes) {
    Enroll("zero", {pictures_[0]});
    Enroll("one", {pictures_[1]});
    const std::string file = Output({"identify", gallery_, pictures_[1]});
    const Outcome piped =
        Shell("cat " + gallery_ + " | \"$KOVA_FR\" identify --crop /dev/stdin " + pictures_[1]);
    EXPECT_EQ(piped.out, file) << piped.err;
    const Outcome cut = Shell("head -c 900 " + gallery_ +
                              " | \"$KOVA_FR\" identify --crop /dev/stdin " + pictures_[1]);
    ExpectRefusal(cut, kFailure, "cut short");
    ExpectRefusal(Shell(": | \"$KOVA_FR\" identify --crop /dev/stdin " + pictures_[1]), kFailure,
                  "is no gallery");
}

TEST_F(Galleries, AnUnusablePictureAddsNothing) {
    Enroll("a", {pictures_[0]});
    const std::string before = ReadFile(gallery_);
    WriteFile(folder_ / "p3.png", "no picture");
    ExpectRefusal(KovaFrOnCrops({"enroll", gallery_, "b", pictures_[1], pictures_[3]}), kFailure,
                  "known kind");
    EXPECT_EQ(ReadFile(gallery_), before);
    ExpectNothingLeftBehind();
}

TEST_F(Galleries, LinkToAGalleryThatIsNotThereYetStaysALink) {
    const std::string elsewhere = folder_ / "elsewhere";
    std::filesystem::create_directory(elsewhere);
    std::filesystem::create_symlink("elsewhere/real", gallery_);
    Enroll("a", {pictures_[0]});
    Enroll("b", {pictures_[1]});
    EXPECT_TRUE(std::filesystem::is_symlink(gallery_));
    EXPECT_TRUE(std::filesystem::is_regular_file(elsewhere + "/real"));
    EXPECT_EQ(Names().size(), 2u);
}

TEST_F(Galleries, AWallIsNotEnrolled) {
    WriteFile(pictures_[3], GreyPng(Flat(256, 256, 90)));
    ExpectRefusal(KovaFrOnCrops({"enroll", gallery_, "wall", pictures_[3]}), kFailure,
                  "shows no structure");
    EXPECT_FALSE(std::filesystem::exists(gallery_));
}

TEST_F(Galleries, AFolderIsEnrolledInOneWrite) {
    const std::string people = folder_ / "people";
    for (size_t i = 0; i < 4; ++i) {
        const std::string person = people + "/" + (i < 3 ? "ada" : "Ben C.");
        std::filesystem::create_directories(person);
        std::filesystem::copy_file(pictures_[i], person + "/" + std::to_string(i) + ".png");
    }
    std::filesystem::create_directories(people + "/nobody");
    WriteFile(people + "/nobody/0.png", "no picture");
    const Outcome run = KovaFrOnCrops({"enroll", "--json", "--folder", people, gallery_});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find("left out: "), std::string::npos) << run.err;
    const json said = json::parse(run.out);
    EXPECT_EQ(said["people"], 2);
    EXPECT_EQ(said["people_left_out"], 1);
    EXPECT_EQ(said["added"], 4);
    EXPECT_EQ(said["left_out"].size(), 1u);
    EXPECT_EQ(Names(),
              json::parse(R"([{"name":"Ben C.","features":1},{"name":"ada","features":3}])"));
    // In blocks of many, not in one for each.
    constexpr size_t kBegin = 96 + 8;
    EXPECT_EQ(ReadFile(gallery_)[kBegin], 4);
    const json found = json::parse(Output({"identify", "--json", gallery_, pictures_[3]}));
    EXPECT_EQ(found["pictures"][0]["matches"][0]["name"], "Ben C.");
}

TEST_F(Galleries, AFolderOfPicturesIsEnrolledByTheirNames) {
    const std::string people = folder_ / "people";
    std::filesystem::create_directories(people);
    for (const char* name : {"ada-1.png", "ada-2.png", "joe_1.png"}) {
        std::filesystem::copy_file(pictures_[0], people + "/" + name);
    }
    EXPECT_EQ(Output({"enroll", "--folder", people, gallery_}),
              "2 people, 3 faces added; the gallery has 3\n");
    EXPECT_EQ(Names(), json::parse(R"([{"name":"ada","features":2},{"name":"joe","features":1}])"));
    const std::string before = ReadFile(gallery_);
    ExpectRefusal(KovaFr({"enroll", "--folder", people, gallery_, "ada", pictures_[0]}),
                  kWrongUsage, "--folder");
    ExpectRefusal(KovaFrOnCrops({"enroll", "--folder", folder_ / "missing", gallery_}), kFailure,
                  "missing");
    WriteFile(people + "/ada-1.png", "no picture");
    for (const char* name : {"ada-2.png", "joe_1.png"}) {
        std::filesystem::remove(people + "/" + name);
    }
    EXPECT_EQ(KovaFrOnCrops({"enroll", "--folder", people, gallery_}).status, kFailure);
    EXPECT_EQ(ReadFile(gallery_), before);
}

TEST_F(Galleries, NamesMustBeOneLine) {
    for (const std::string name :
         {"", "a\nb", "a\x1b[31m", "a\302\23331m", "a\xff", "a\xe2\x80\xae"}) {
        ExpectRefusal(KovaFrOnCrops({"enroll", gallery_, name, pictures_[0]}), kWrongUsage, "name");
    }
    ExpectRefusal(KovaFrOnCrops({"enroll", gallery_, std::string(1001, 'x'), pictures_[0]}),
                  kWrongUsage, "1000 bytes");
    Enroll(std::string(1000, 'x'), {pictures_[0]});
    Enroll("J\xC3\xBCrgen", {pictures_[1]});
    const json found = json::parse(Output({"identify", "--json", gallery_, pictures_[1]}));
    EXPECT_EQ(found["pictures"][0]["matches"][0]["name"], "J\xC3\xBCrgen");
}

TEST_F(Galleries, WrongUsage) {
    ExpectRefusal(KovaFrOnCrops({"enroll", gallery_, "a"}), kWrongUsage, "pictures");
    ExpectRefusal(KovaFrOnCrops({"identify", gallery_}), kWrongUsage, "pictures");
    ExpectRefusal(KovaFrOnCrops({"identify", "--top", "0", gallery_, pictures_[0]}), kWrongUsage,
                  "--top");
    ExpectRefusal(KovaFrOnCrops({"identify", "--threshold", "2", gallery_, pictures_[0]}),
                  kWrongUsage, "--threshold");
    ExpectRefusal(KovaFr({"gallery"}), kWrongUsage, "gallery");
}

TEST_F(Galleries, FullDiskHarmsNoEarlierGallery) {
    // A disk of 16 KiB that only this command sees.
    const std::string disk = folder_ / "disk";
    std::filesystem::create_directory(disk);
    const std::string enroll = "\"$KOVA_FR\" enroll --crop " + disk + "/g ";
    const std::string three = " " + pictures_[0] + " " + pictures_[1] + " " + pictures_[2];
    const std::string nine = three + three + three; // more than the last page has room for
    const Outcome run =
        Shell("unshare -rm sh -c 'mount -t tmpfs -o size=16k none " + disk + " || exit 77; " +
              enroll + "a" + three + " && head -c 13000 /dev/zero > " + disk + "/rest; cp " + disk +
              "/g " + folder_.path() + "/before; " + enroll + "b" + nine + "; echo status $?; cp " +
              disk + "/g " + folder_.path() + "/after; ls -A " + disk + "'");
    if (run.status == 77 || run.err.find("unshare") != std::string::npos) {
        GTEST_SKIP() << "no small disk can be mounted here: " << run.err;
    }
    EXPECT_NE(run.err.find("cannot be written: No space left on device"), std::string::npos)
        << run.err;
    EXPECT_NE(run.out.find("status 1\ng\nrest\n"), std::string::npos) << run.out;
    EXPECT_EQ(ReadFile(folder_ / "after"), ReadFile(folder_ / "before"));
}

TEST_F(Galleries, TwoWhoEnrollAtOnceLoseNothing) {
    constexpr size_t kEach = 6;
    std::vector<std::thread> threads;
    for (size_t thread = 0; thread < 2; ++thread) {
        threads.emplace_back([this, thread] {
            for (size_t i = 0; i < kEach; ++i) {
                Enroll("n" + std::to_string(thread), {pictures_[i % pictures_.size()]});
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(Names(), json::parse(R"([{"name":"n0","features":6},{"name":"n1","features":6}])"));
}

} // namespace
} // namespace kova_fr_test
