// SPDX-License-Identifier: MIT
// kova-fr eval.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "picture_files.h"
#include "program.h"

namespace kova_fr_test {
namespace {

using nlohmann::json;

constexpr int kFailure = 1;
constexpr int kWrongUsage = 2;

class Eval : public testing::Test {
  protected:
    // Three sample people with three pictures each.
    Eval() {
        for (const std::string name : {"cleo", "joe", "lena"}) {
            std::filesystem::create_directories(folder_ / ("people/" + name));
            for (const std::string number : {"1", "2", "3"}) {
                std::filesystem::copy(ORVO_SAMPLES "/" + name + "-" + number + ".png",
                                      folder_ / ("people/" + name + "/" + number + ".png"));
            }
        }
    }

    std::string Path(const std::string& name) const { return folder_ / ("people/" + name); }

    static json Report(const std::vector<std::string>& more) {
        std::vector<std::string> arguments = {"eval", "--json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const Outcome run = KovaFr(arguments);
        EXPECT_EQ(run.status, 0) << run.err;
        return run.status == 0 ? json::parse(run.out) : json();
    }

    TempFolder folder_;
    const std::string people_ = folder_ / "people";
};

TEST_F(Eval, CountsPeoplePicturesAndPairs) {
    const json report = Report({people_});
    EXPECT_EQ(report["people"], 3);
    EXPECT_EQ(report["pictures"], 9);
    EXPECT_EQ(report["same_pairs"], 9);
    EXPECT_EQ(report["different_pairs"], 27);
    EXPECT_EQ(report["unusable"].size(), 0u);
    EXPECT_EQ(report["table"].size(), 19u);
}

TEST_F(Eval, RatesAreThoseOfTheDistancesOfCompare) {
    const json report = Report({people_});
    std::vector<std::string> arguments = {"compare", "--json"};
    for (const std::string name : {"cleo", "joe", "lena"}) {
        for (const std::string number : {"/1.png", "/2.png", "/3.png"}) {
            arguments.push_back(Path(name + number));
        }
    }
    const json distances = json::parse(KovaFr(arguments).out)["distances"];
    for (const json& row : report["table"]) {
        const float threshold = row["threshold"];
        int accepts = 0, rejects = 0;
        for (size_t a = 0; a < 9; ++a) {
            for (size_t b = a + 1; b < 9; ++b) {
                const bool isAccepted = distances[a][b].get<float>() >= threshold;
                accepts += a / 3 != b / 3 && isAccepted ? 1 : 0;
                rejects += a / 3 == b / 3 && !isAccepted ? 1 : 0;
            }
        }
        EXPECT_DOUBLE_EQ(row["false_accept"]["value"], accepts / 27.0);
        EXPECT_DOUBLE_EQ(row["false_reject"]["value"], rejects / 9.0);
    }
}

TEST_F(Eval, APairListGivesTheSameAsItsFolder) {
    std::string list = "# all pairs\n\n";
    std::vector<std::string> names;
    for (const std::string name : {"cleo", "joe", "lena"}) {
        for (const std::string number : {"/1.png", "/2.png", "/3.png"}) {
            names.push_back("people/" + name + number);
        }
    }
    for (size_t a = 0; a < 9; ++a) {
        for (size_t b = a + 1; b < 9; ++b) {
            // Every way to write a line.
            const std::string between = a % 3 == 0 ? " " : a % 3 == 1 ? ", " : "\t";
            list += names[a] + between + names[b] + between + (a / 3 == b / 3 ? "1" : "0") +
                    (b % 2 == 0 ? "\r\n" : "\n");
        }
    }
    WriteFile(folder_ / "pairs.csv", list);
    const json fromList = Report({"--pairs", folder_ / "pairs.csv"});
    const json fromFolder = Report({people_});
    EXPECT_TRUE(fromList["people"].is_null());
    for (const char* name :
         {"pictures", "same_pairs", "different_pairs", "equal_error_rate", "area_under_curve"}) {
        EXPECT_EQ(fromList[name], fromFolder[name]) << name;
    }
    for (size_t i = 0; i < fromList["table"].size(); ++i) {
        EXPECT_EQ(fromList["table"][i]["false_accept"]["value"],
                  fromFolder["table"][i]["false_accept"]["value"]);
    }
}

TEST_F(Eval, ReportIsWrittenAsTextJsonAndPictures) {
    const std::string out = folder_ / "new/report";
    const Outcome run = KovaFr({"eval", "--out", out, people_});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(ReadFile(out + "/report.txt"), run.out);
    EXPECT_EQ(json::parse(ReadFile(out + "/report.json")), Report({people_}));
    for (const std::string name : {"roc.svg", "det.svg", "histogram.svg"}) {
        const std::string svg = ReadFile(out + "/" + name);
        EXPECT_EQ(svg.rfind("<svg ", 0), 0u);
        EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");
        EXPECT_EQ(svg.find("nan"), std::string::npos) << name;
        EXPECT_EQ(svg.find("inf"), std::string::npos) << name;
    }
    EXPECT_NE(run.out.find("cannot be seen with 27 pairs"), std::string::npos);
    size_t files = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(out)) {
        ++files;
    }
    EXPECT_EQ(files, 5u);
}

TEST_F(Eval, UnusablePicturesAreNamedAndLeftOut) {
    WriteFile(Path("joe/4.jpg"), "no picture");
    WriteFile(Path("joe/notes.txt"), "not even by its name");
    const Outcome run = KovaFr({"eval", "--json", people_});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1);
    EXPECT_NE(run.err.find("left out: " + Path("joe/4.jpg")), std::string::npos) << run.err;
    const json report = json::parse(run.out);
    EXPECT_EQ(report["pictures"], 9);
    EXPECT_EQ(report["unusable"].size(), 1u);
    ExpectRefusal(KovaFr({"eval", "--strict", people_}), kFailure, "joe/4.jpg");
}

TEST_F(Eval, PersonWithoutAUsablePictureDoesNotCount) {
    std::filesystem::create_directory(Path("bad"));
    WriteFile(Path("bad/1.png"), "no picture");
    const json report = Report({people_});
    EXPECT_EQ(report["people"], 3);
    EXPECT_EQ(report["same_pairs"], 9);
}

TEST_F(Eval, DataThatShowNothingAreRefused) {
    ExpectRefusal(KovaFr({"eval", folder_ / "missing"}), kFailure, "is no folder");
    ExpectRefusal(KovaFr({"eval", Path("joe")}), kFailure, "two sub-folders");
    ExpectRefusal(KovaFr({"eval", Path("joe/1.png")}), kFailure, "is no folder");
    for (const std::string name : {"cleo", "joe", "lena"}) {
        std::filesystem::remove(Path(name + "/2.png"));
        std::filesystem::remove(Path(name + "/3.png"));
    }
    ExpectRefusal(KovaFr({"eval", people_}), kFailure, "no pairs of the same person");
    for (const std::string line : {"a.png b.png", "a.png b.png 2", "a.png b.png 1 0", "a.png,,1"}) {
        WriteFile(folder_ / "pairs", "x y 1\n" + line + "\n");
        ExpectRefusal(KovaFr({"eval", "--pairs", folder_ / "pairs"}), kFailure,
                      "line 2 is no pair");
    }
    WriteFile(folder_ / "pairs", "a.png b.png 1\n");
    ExpectRefusal(KovaFr({"eval", "--pairs", folder_ / "pairs"}), kFailure, "different people");
    ExpectRefusal(KovaFr({"eval"}), kWrongUsage, "folder of people");
    ExpectRefusal(KovaFr({"eval", "--pairs", folder_ / "pairs", people_}), kWrongUsage, "--pairs");
}

TEST_F(Eval, ReportCannotTakeThePlaceOfAFile) {
    WriteFile(folder_ / "file", "precious");
    ExpectRefusal(KovaFr({"eval", "--out", folder_ / "file", people_}), kFailure, "is a file");
    EXPECT_EQ(ReadFile(folder_ / "file"), "precious");
}

} // namespace
} // namespace kova_fr_test
