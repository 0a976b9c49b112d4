// SPDX-License-Identifier: MIT
// `kova-fr eval` on the sample pictures, whose distances `kova-fr compare` prints, and on input
// that is not as it should be.
#include <gtest/gtest.h>
#include <png.h>

#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "picture_files.h"
#include "program.h"

namespace kova_fr_test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

std::string Person(const fs::path& picture) {
    const std::string name = picture.filename().string();
    return name.substr(0, name.find('-'));
}

struct Sample {
    std::string path;
    std::string person;
};

// The sample pictures of some people.
std::vector<Sample> Samples(const std::string& firstLetters) {
    std::vector<Sample> samples;
    for (const auto& entry : fs::directory_iterator(ORVO_SAMPLES)) {
        const std::string person = Person(entry.path());
        if (entry.path().extension() == ".png" &&
            firstLetters.find(person[0]) != std::string::npos) {
            samples.push_back({entry.path().string(), person});
        }
    }
    std::sort(samples.begin(), samples.end(),
              [](const Sample& a, const Sample& b) { return a.path < b.path; });
    return samples;
}

class Eval : public testing::Test {
  protected:
    // People of the sample pictures, a sub-folder each.
    void MakePeople(const std::string& firstLetters) {
        for (const Sample& sample : Samples(firstLetters)) {
            fs::create_directories(people_ + "/" + sample.person);
            fs::copy_file(sample.path, people_ + "/" + sample.person + "/" +
                                           fs::path(sample.path).filename().string());
        }
    }

    static Outcome Run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "eval");
        arguments.insert(arguments.end(), {"--rounds", "10"});
        return KovaFrOnCrops(arguments);
    }

    static std::string Output(const std::vector<std::string>& arguments) {
        const Outcome run = Run(arguments);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err, "");
        return run.out;
    }

    static json JsonOutput(std::vector<std::string> arguments) {
        arguments.push_back("--json");
        const std::string text = Output(arguments);
        EXPECT_EQ(text.find('\n'), text.size() - 1) << "not one line: " << text;
        return json::parse(text);
    }

    std::string WriteList(const std::string& lines) const {
        WriteFile(folder_ / "pairs", lines);
        return folder_ / "pairs";
    }

    // A list of `lines` is refused with status 1 and these words.
    void ExpectRefusedList(const std::string& lines, const std::string& words) const {
        ExpectRefusal(Run({"--pairs", WriteList(lines)}), 1, words);
    }

    TempFolder folder_;
    const std::string people_ = folder_ / "people";
};

struct Counts {
    uint64_t falseAccepts = 0;
    uint64_t falseRejects = 0;
    uint64_t same = 0;
    uint64_t different = 0;
};

// What a threshold does to the distances that `compare` prints.
Counts CountErrors(const json& distances, const std::vector<Sample>& samples, float threshold) {
    Counts counts;
    for (size_t a = 0; a < samples.size(); ++a) {
        for (size_t b = a + 1; b < samples.size(); ++b) {
            const bool isAccepted = distances[a][b].get<float>() >= threshold;
            if (samples[a].person == samples[b].person) {
                ++counts.same;
                counts.falseRejects += isAccepted ? 0 : 1;
            } else {
                ++counts.different;
                counts.falseAccepts += isAccepted ? 1 : 0;
            }
        }
    }
    return counts;
}

TEST_F(Eval, CountsAtEveryThresholdAreThoseOfTheDistances) {
    const std::vector<Sample> samples = Samples("abcdefghijkl");
    ASSERT_EQ(samples.size(), 36u);
    MakePeople("abcdefghijkl");
    std::vector<std::string> compare = {"compare", "--json"};
    for (const Sample& sample : samples) {
        compare.push_back(sample.path);
    }
    const json distances = json::parse(KovaFrOnCrops(compare).out)["distances"];
    const json report = JsonOutput({people_});
    EXPECT_EQ(report["people"], 12);
    EXPECT_EQ(report["pictures"], 36);
    EXPECT_EQ(report["same_pairs"], 36);
    EXPECT_EQ(report["different_pairs"], 594);
    ASSERT_EQ(report["table"].size(), 20u);
    json entries = report["table"];
    entries.push_back(report["recommended"][0]);
    entries.push_back(report["recommended"][1]);
    for (const json& entry : entries) {
        const Counts counts = CountErrors(distances, samples, entry["threshold"].get<float>());
        EXPECT_EQ(entry["false_accepts"]["count"], counts.falseAccepts) << entry;
        EXPECT_EQ(entry["false_rejects"]["count"], counts.falseRejects) << entry;
        EXPECT_EQ(entry["false_accepts"]["pairs"], counts.different);
        EXPECT_EQ(entry["false_rejects"]["pairs"], counts.same);
    }
    // One step of 0.0001 lower, and more than 1 % are accepted.
    const double threshold = report["recommended"][1]["threshold"];
    EXPECT_LE(CountErrors(distances, samples, static_cast<float>(threshold)).falseAccepts, 5u);
    EXPECT_GT(CountErrors(distances, samples, static_cast<float>(threshold - 0.0001)).falseAccepts,
              5u);
    EXPECT_TRUE(report["recommended"][2]["threshold"].is_null());
    EXPECT_EQ(report["recommended"][2]["fewest_different_pairs"], 3000);
}

TEST_F(Eval, NamesAndSubFoldersAndListsOfPairsGiveTheSame) {
    const std::vector<Sample> samples = Samples("abc");
    MakePeople("abc");
    fs::create_directory(folder_ / "flat");
    std::string list = "# all pairs\n\n";
    for (size_t a = 0; a < samples.size(); ++a) {
        fs::copy_file(samples[a].path,
                      folder_ / ("flat/" + fs::path(samples[a].path).filename().string()));
        for (size_t b = 0; b < a; ++b) {
            list += samples[a].path + " " + samples[b].path +
                    (samples[a].person == samples[b].person ? " 1\n" : " 0\n");
        }
    }
    const json folders = JsonOutput({people_});
    EXPECT_EQ(folders, JsonOutput({"--by-name", folder_ / "flat"}));
    EXPECT_FALSE(folders["rank_1"].is_null());
    const json pairs = JsonOutput({"--pairs", WriteList(list)});
    EXPECT_TRUE(pairs["rank_1"].is_null());
    for (const char* same : {"people", "pictures", "same_pairs", "different_pairs"}) {
        EXPECT_EQ(pairs[same], folders[same]) << same;
    }
    EXPECT_EQ(pairs["equal_error_rate"]["value"], folders["equal_error_rate"]["value"]);
    EXPECT_EQ(pairs["area_under_curve"]["value"], folders["area_under_curve"]["value"]);
    for (size_t i = 0; i < folders["table"].size(); ++i) {
        EXPECT_EQ(pairs["table"][i]["false_accepts"]["count"],
                  folders["table"][i]["false_accepts"]["count"]);
    }
}

TEST_F(Eval, AListMayHaveCommasAndQuotesAndItsNamesAreRelativeToIt) {
    fs::create_directory(folder_ / "some, where");
    const std::vector<Sample> samples = Samples("ab");
    fs::copy_file(samples[0].path, folder_ / "a 1.png");
    fs::copy_file(samples[1].path, folder_ / "some, where/a \"2\".png");
    fs::copy_file(samples[3].path, folder_ / "b.png");
    const json report =
        JsonOutput({"--pairs", WriteList("a 1.png,\"some, where/a \"\"2\"\".png\",1\r\n"
                                         "b.png\ta 1.png\t0\r\n")});
    EXPECT_EQ(report["pictures"], 3);
    EXPECT_EQ(report["people"], 2);
    EXPECT_EQ(report["same_pairs"], 1);
    EXPECT_EQ(report["different_pairs"], 1);
}

TEST_F(Eval, RepeatedPairsOfAListCountOnce) {
    const std::vector<Sample> samples = Samples("ab");
    const std::string& a = samples[0].path;
    const std::string& b = samples[3].path;
    const json report =
        JsonOutput({"--pairs", WriteList(a + " " + b + " 0\n" + b + " " + a + " 0\n")});
    EXPECT_EQ(report["different_pairs"], 1);
    EXPECT_EQ(report["repeated_pairs"], 1);
}

TEST_F(Eval, ListsThatCannotBeRightAreRefused) {
    ExpectRefusedList("", "has no pairs");
    ExpectRefusedList("a b\n", "line 1 is no pair");
    ExpectRefusedList("\na b 2\n", "line 2 is no pair");
    ExpectRefusedList("a b 1 more\n", "line 1 is no pair");
    ExpectRefusedList("a,\"b,1\n", "quotation mark without its end");
    ExpectRefusedList("a,\"b\"c,1\n", "put the separator there");
    ExpectRefusedList("a,,1\n", "line 1 is no pair");
    ExpectRefusedList("a a 1\n", "compares a picture with itself");
    ExpectRefusedList("a b 1\nb a 0\n", "line 2 says otherwise");
    ExpectRefusedList("a c 0\na b 1\nb c 1\n", "line 1 says two people where other lines say one");
    ExpectRefusal(Run({"--pairs", folder_ / "none"}), 1, "cannot be opened");
}

TEST_F(Eval, PicturesThatCannotBeReadAreNamedAndCounted) {
    MakePeople("ab");
    WriteFile(people_ + "/ada/broken.png", "no picture");
    WriteFile(people_ + "/ada/notes.txt", "not even by its name");
    const Outcome run = Run({people_});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err.rfind("kova-fr: left out: ", 0), 0u) << run.err;
    EXPECT_NE(run.err.find("broken.png: is not a picture"), std::string::npos) << run.err;
    EXPECT_NE(run.out.find("6 of 2 people; 1 left out"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("broken.png"), std::string::npos) << run.out;
    ExpectRefusal(Run({"--strict", people_}), 1, "broken.png: is not a picture");
}

TEST_F(Eval, APersonWithoutAUsablePictureDoesNotCount) {
    MakePeople("ab");
    fs::create_directory(people_ + "/bad");
    WriteFile(people_ + "/bad/1.png", "no picture");
    const json report = json::parse(Run({"--json", people_}).out);
    EXPECT_EQ(report["people"], 2);
    EXPECT_EQ(report["pictures"], 6);
}

TEST_F(Eval, PairsOfPicturesThatCannotBeReadAreLeftOut) {
    const std::vector<Sample> samples = Samples("ab");
    const std::string list =
        WriteList(samples[0].path + " " + samples[1].path + " 1\n" + samples[0].path +
                  " none.png 1\n" + samples[3].path + " " + samples[0].path + " 0\n");
    const json report = json::parse(Run({"--json", "--pairs", list}).out);
    EXPECT_EQ(report["pairs_left_out"], 1);
    EXPECT_EQ(report["pictures"], 3);
    EXPECT_EQ(report["same_pairs"], 1);
    EXPECT_EQ(report["different_pairs"], 1);
    EXPECT_EQ(report["left_out"].size(), 1u);
}

TEST_F(Eval, NothingToCompareIsAFailure) {
    fs::create_directories(people_ + "/ada");
    ExpectRefusal(Run({people_}), 1, "no sub-folders with pictures");
    ExpectRefusal(Run({"--by-name", folder_ / "none"}), 1, "cannot be read");
    fs::copy_file(Samples("a")[0].path, people_ + "/ada/1.png");
    ExpectRefusal(Run({people_}), 1, "no pair of pictures is left");
}

TEST_F(Eval, WrongUsage) {
    ExpectRefusal(Run({}), 2, "either FOLDER or --pairs");
    ExpectRefusal(Run({people_, "--pairs", "list"}), 2, "excludes");
    ExpectRefusal(Run({"--by-name", "--pairs", "list"}), 2, "requires");
    ExpectRefusal(KovaFrOnCrops({"eval", people_, "--rounds", "3"}), 2, "--rounds");
}

TEST_F(Eval, WritesReportsAndCharts) {
    MakePeople("abcd");
    const std::string out = folder_ / "made/here";
    const std::string printed = Output({people_, "--out", out});
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(out)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"det.svg", "histogram.svg", "report.json",
                                               "report.txt", "roc.svg", "worst.png"}));
    EXPECT_EQ(ReadFile(out + "/report.txt"), printed);
    EXPECT_EQ(json::parse(ReadFile(out + "/report.json")), JsonOutput({people_}));
    EXPECT_NE(ReadFile(out + "/roc.svg").find("this model on these pictures"), std::string::npos);
    EXPECT_NE(ReadFile(out + "/det.svg").find("both errors equal"), std::string::npos);
    EXPECT_NE(ReadFile(out + "/histogram.svg").find("two people"), std::string::npos);
    EXPECT_EQ(Output({people_, "--out", out}), printed); // replaced, and the same again
}

TEST_F(Eval, AnOutFolderThatCannotBeMadeIsRefused) {
    MakePeople("ab");
    WriteFile(folder_ / "file", "");
    ExpectRefusal(Run({people_, "--out", folder_ / "file"}), 1, "cannot be made");
    ExpectRefusal(Run({people_, "--out", folder_ / "file/below"}), 1, "cannot be made");
}

// Whatever is missing, reports and charts hold numbers only, and say what is missing.
TEST_F(Eval, OnePersonOnly) {
    MakePeople("a");
    const std::string out = folder_ / "out";
    const std::string text = Output({people_, "--out", out});
    EXPECT_NE(text.find("nothing is known about false accepts"), std::string::npos) << text;
    const json report = json::parse(ReadFile(out + "/report.json"));
    EXPECT_EQ(report["same_pairs"], 3);
    EXPECT_TRUE(report["equal_error_rate"].is_null());
    EXPECT_TRUE(report["table"][0]["false_accepts"].is_null());
    for (const char* name : {"/report.txt", "/roc.svg", "/det.svg", "/histogram.svg"}) {
        const std::string file = ReadFile(out + name);
        EXPECT_EQ(file.find("nan"), std::string::npos) << name;
        EXPECT_EQ(file.find("inf"), std::string::npos) << name;
    }
}

TEST_F(Eval, OnePictureAPerson) {
    fs::create_directory(folder_ / "flat");
    for (const Sample& sample : Samples("abcd")) {
        if (sample.path.ends_with("-1.png")) {
            fs::copy_file(sample.path, folder_ / ("flat/" + sample.person + "-1.png"));
        }
    }
    const std::string out = folder_ / "out";
    const std::string text = Output({"--by-name", folder_ / "flat", "--out", out});
    EXPECT_NE(text.find("nothing is known about false rejects"), std::string::npos) << text;
    for (const char* name : {"/report.txt", "/roc.svg", "/det.svg", "/histogram.svg"}) {
        const std::string file = ReadFile(out + name);
        EXPECT_EQ(file.find("nan"), std::string::npos) << name;
        EXPECT_EQ(file.find("inf"), std::string::npos) << name;
    }
}

TEST_F(Eval, CopiesOfAPictureAreReported) {
    MakePeople("ab");
    fs::copy_file(people_ + "/ada/ada-1.png", people_ + "/ada/copy.png");
    fs::copy_file(people_ + "/ada/ada-2.png", people_ + "/ben/copy.png");
    const Outcome run = Run({people_, "--json"});
    const json report = json::parse(run.out);
    EXPECT_EQ(report["copies_of_one_person"], 1);
    EXPECT_EQ(report["copies_of_two_people"], 1);
    // Two people for one picture is worth a word on the spot.
    EXPECT_NE(run.err.find("1 pair of two people shows one and the same picture, such as " +
                           people_ + "/ada/ada-2.png and " + people_ + "/ben/copy.png"),
              std::string::npos)
        << run.err;
    EXPECT_NE(Run({people_}).out.find("probably a picture lies with the wrong"), std::string::npos);
}

TEST_F(Eval, ScoresOfAllPairsAreWritten) {
    MakePeople("ab");
    const std::string table = folder_ / "scores.csv";
    Output({people_, "--scores", table});
    std::vector<std::string> compare = {"compare", "--json"};
    std::vector<Sample> samples = Samples("ab");
    for (const Sample& sample : samples) {
        compare.push_back(sample.path);
    }
    const json distances = json::parse(KovaFrOnCrops(compare).out)["distances"];
    std::istringstream lines(ReadFile(table));
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "first,second,same,score");
    for (size_t a = 0; a < samples.size(); ++a) {
        for (size_t b = a + 1; b < samples.size(); ++b) {
            std::getline(lines, line);
            const bool isSame = samples[a].person == samples[b].person;
            const std::string begin = people_ + "/" + samples[a].person + "/" +
                                      fs::path(samples[a].path).filename().string() + "," +
                                      people_ + "/" + samples[b].person + "/" +
                                      fs::path(samples[b].path).filename().string() +
                                      (isSame ? ",1," : ",0,");
            ASSERT_EQ(line.substr(0, begin.size()), begin);
            EXPECT_EQ(std::stof(line.substr(begin.size())), distances[a][b].get<float>());
        }
    }
    EXPECT_FALSE(std::getline(lines, line));
}

// Of a picture in colours that shows greys.
Grey DecodeColourPng(const std::string& file) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_NE(png_image_begin_read_from_memory(&image, file.data(), file.size()), 0);
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(image));
    EXPECT_NE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr), 0);
    Grey picture = Flat(image.width, image.height, 0);
    for (size_t i = 0; i < picture.pixels.size(); ++i) {
        picture.pixels[i] = pixels[3 * i];
    }
    return picture;
}

// The first pair on the left, as the network sees its faces.
TEST_F(Eval, TheWorstPairsAreShown) {
    MakePeople("abcd");
    const std::string table = folder_ / "scores.csv";
    const std::string out = folder_ / "out";
    Output({people_, "--scores", table, "--out", out});
    std::istringstream lines(ReadFile(table));
    std::vector<std::string> worst;
    float most = -1;
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> fields;
        std::istringstream parts(line);
        for (std::string field; std::getline(parts, field, ',');) {
            fields.push_back(field);
        }
        if (fields[2] == "0" && std::stof(fields[3]) > most) {
            most = std::stof(fields[3]);
            worst = fields;
        }
    }
    ASSERT_EQ(worst.size(), 4u);
    const Grey sheet = DecodeColourPng(ReadFile(out + "/worst.png"));
    for (uint32_t side = 0; side < 2; ++side) {
        const std::string crop = folder_ / "crop.png";
        EXPECT_EQ(KovaFrOnCrops({"extract", "--save-crop", crop, worst[side]}).status, 0);
        const Grey expected = DecodeGreyPng(ReadFile(crop));
        EXPECT_EQ(Crop(sheet, 8 + side * 98, 40, 96, 96).pixels, expected.pixels) << worst[side];
    }
}

TEST_F(Eval, AnEarlierReportIsDrawnBesideTheNewOne) {
    MakePeople("abcd");
    Output({people_, "--out", folder_ / "earlier"});
    const std::string out = folder_ / "later";
    Output({people_, "--out", out, "--against", folder_ / "earlier/report.json"});
    for (const char* name : {"/roc.svg", "/det.svg"}) {
        const std::string chart = ReadFile(out + name);
        EXPECT_NE(chart.find(">earlier</text>"), std::string::npos) << name;
        const auto lines = [&chart](const std::string& colour) {
            const size_t at = chart.find("class=\"line stroke-" + colour);
            const size_t begin = chart.rfind(" d=\"", at) + 4;
            return chart.substr(begin, chart.find('"', begin) - begin);
        };
        EXPECT_GT(lines("green").size(), 20u);
        EXPECT_EQ(lines("green"), lines("blue")) << "the same pictures"; // one upon the other
    }
    WriteFile(folder_ / "bad.json", "{\"curve\": 3}");
    ExpectRefusal(Run({people_, "--out", out, "--against", folder_ / "bad.json"}), 1,
                  "no report of kova-fr eval");
    ExpectRefusal(Run({people_, "--against", folder_ / "earlier/report.json"}), 2, "--out");
}

// In the dark, too, with every threshold that is recommended.
TEST_F(Eval, ChartsFollowTheReadersColoursAndMarkTheThresholds) {
    MakePeople("abcdefghijkl");
    const std::string out = folder_ / "out";
    const json report = JsonOutput({people_, "--out", out});
    size_t marked = 0;
    for (const char* name : {"/roc.svg", "/det.svg", "/histogram.svg"}) {
        const std::string chart = ReadFile(out + name);
        EXPECT_NE(chart.find("@media(prefers-color-scheme:dark)"), std::string::npos) << name;
        EXPECT_EQ(chart.find("fill=\"#"), std::string::npos) << name;
        EXPECT_EQ(chart.find("stroke=\"#"), std::string::npos) << name;
        for (const json& one : report["recommended"]) {
            if (!one["threshold"].is_null()) {
                char text[16];
                std::snprintf(text, sizeof text, "%.4f", one["threshold"].get<double>());
                EXPECT_NE(chart.find(text), std::string::npos) << name << " lacks " << text;
                ++marked;
            }
        }
    }
    EXPECT_GE(marked, 3u);
}

// Of each group the pairs inside it, at the thresholds of all: counted from the table of all pairs.
void ExpectRatesOfGroups(
    const json& report, const std::string& table,
    const std::function<std::string(const std::vector<std::string>&)>& groupOf) {
    for (const json& group : report["groups"]) {
        ASSERT_EQ(group["at"].size(), 2u) << "as many as have a threshold";
        for (const json& at : group["at"]) {
            Counts counts;
            std::istringstream lines(table);
            std::string line;
            std::getline(lines, line);
            while (std::getline(lines, line)) {
                std::vector<std::string> fields;
                std::istringstream parts(line);
                for (std::string field; std::getline(parts, field, ',');) {
                    fields.push_back(field);
                }
                if (groupOf(fields) != group["group"]) {
                    continue;
                }
                const bool isAccepted = std::stof(fields[3]) >= at["threshold"].get<float>();
                ++(fields[2] == "1" ? counts.same : counts.different);
                counts.falseRejects += fields[2] == "1" && !isAccepted ? 1 : 0;
                counts.falseAccepts += fields[2] == "0" && isAccepted ? 1 : 0;
            }
            EXPECT_GT(counts.different, 0u);
            EXPECT_EQ(group["same_pairs"], counts.same);
            EXPECT_EQ(group["different_pairs"], counts.different);
            EXPECT_EQ(at["false_accepts"]["count"], counts.falseAccepts) << group["group"];
            EXPECT_EQ(at["false_accepts"]["pairs"], counts.different);
            EXPECT_EQ(at["false_rejects"]["count"], counts.falseRejects) << group["group"];
            EXPECT_EQ(at["false_rejects"]["pairs"], counts.same);
        }
    }
}

TEST_F(Eval, RatesOfGroupsOfPeopleFromAColumn) {
    MakePeople("abcdefghijkl");
    WriteFile(folder_ / "people.csv",
              "person,age,\"worn, or not\"\r\n"
              "ada,30,hat\r\nben,40,\r\ncleo,50,none\r\ndan,,hat\r\n"
              "eve,20,none\r\nfinn,20,none\r\nnobody,20,hat\r\n"
              "kim,1,hat\r\nlena,1,hat\r\n");
    const std::map<std::string, std::string> worn = {
        {"ada", "hat"},   {"dan", "hat"},  {"kim", "hat"},  {"lena", "hat"},
        {"cleo", "none"}, {"eve", "none"}, {"finn", "none"}};
    const std::string out = folder_ / "out";
    const std::string table = folder_ / "pairs.csv";
    const std::string text = Output({people_, "--groups", folder_ / "people.csv", "--group-by",
                                     "worn, or not", "--out", out, "--scores", table});
    const json report = json::parse(ReadFile(out + "/report.json"));
    EXPECT_EQ(report["group_by"], "worn, or not");
    ASSERT_EQ(report["groups"].size(), 2u);
    EXPECT_EQ(report["groups"][0]["group"], "hat");
    EXPECT_EQ(report["groups"][0]["people"], 4);
    EXPECT_EQ(report["groups"][0]["pictures"], 12);
    EXPECT_EQ(report["groups"][1]["group"], "none");
    EXPECT_EQ(report["groups"][1]["people"], 3);
    EXPECT_EQ(report["pictures_without_group"], 15); // of those who are not named, or with nothing
    ExpectRatesOfGroups(report, ReadFile(table), [&](const std::vector<std::string>& fields) {
        const auto of = [&](const std::string& path) {
            const auto found = worn.find(Person(path));
            return found == worn.end() ? path : found->second;
        };
        return of(fields[0]) == of(fields[1]) ? of(fields[0]) : "";
    });
    // The figures of all are what they are without groups.
    json without = JsonOutput({people_});
    EXPECT_EQ(without["groups"], json::array());
    EXPECT_EQ(without["recommended"], report["recommended"]);
    EXPECT_EQ(without["table"], report["table"]);
    const size_t begin = text.find("By worn, or not, at the thresholds above");
    ASSERT_NE(begin, std::string::npos) << text;
    EXPECT_NE(text.find("hat: 4 people, 12 pairs of one person, 54 of two", begin),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("15 pictures are in no group"), std::string::npos) << text;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 80u) << line;
    }
}

// Glasses and light are a picture's.
TEST_F(Eval, RatesOfGroupsOfPictures) {
    MakePeople("abcdefghijkl");
    std::string list = "picture,light\n";
    for (const Sample& sample : Samples("abcdefghijkl")) {
        const std::string name = fs::path(sample.path).filename().string();
        list += sample.person + "/" + name + (name.ends_with("-1.png") ? ",day\n" : ",night\n");
    }
    WriteFile(folder_ / "light.csv", list);
    const std::string table = folder_ / "pairs.csv";
    const json report = JsonOutput(
        {people_, "--groups", folder_ / "light.csv", "--group-by", "light", "--scores", table});
    ASSERT_EQ(report["groups"].size(), 2u);
    EXPECT_EQ(report["groups"][0]["group"], "day");
    EXPECT_EQ(report["groups"][0]["pictures"], 12);
    EXPECT_EQ(report["groups"][0]["same_pairs"], 0);
    EXPECT_TRUE(report["groups"][0]["at"][0]["false_rejects"].is_null());
    EXPECT_EQ(report["groups"][1]["same_pairs"], 12);
    EXPECT_EQ(report["groups"][1]["different_pairs"], 24 * 23 / 2 - 12);
}

TEST_F(Eval, RatesOfGroupsOfPairsFromAColumnOfTheirList) {
    const std::vector<Sample> samples = Samples("abcdefghijkl");
    std::string list = "# with headings\nfirst,second,same,score,where\n";
    std::map<std::string, std::string> where;
    for (size_t a = 0; a < samples.size(); ++a) {
        for (size_t b = 0; b < a; ++b) {
            const std::string group = b % 3 == 0 ? "hall" : b % 3 == 1 ? "door" : "";
            list += samples[a].path + "," + samples[b].path +
                    (samples[a].person == samples[b].person ? ",1,0.5," : ",0,,") + group + "\n";
            where[samples[a].path + samples[b].path] = group;
        }
    }
    const std::string table = folder_ / "scores.csv";
    const json report =
        JsonOutput({"--pairs", WriteList(list), "--group-by", "where", "--scores", table});
    ASSERT_EQ(report["groups"].size(), 2u);
    EXPECT_EQ(report["groups"][0]["group"], "door");
    EXPECT_EQ(report["groups"][1]["group"], "hall");
    ExpectRatesOfGroups(report, ReadFile(table), [&](const std::vector<std::string>& fields) {
        return where.at(fields[0] + fields[1]);
    });
    // What --scores wrote is a list with headings, too.
    EXPECT_EQ(JsonOutput({"--pairs", table})["recommended"], report["recommended"]);
}

TEST_F(Eval, ColumnsThatAreNotRightAreRefused) {
    MakePeople("ab");
    const auto refused = [&](const std::string& table, const std::string& words,
                             const std::string& column = "age") {
        WriteFile(folder_ / "groups.csv", table);
        ExpectRefusal(Run({people_, "--groups", folder_ / "groups.csv", "--group-by", column}), 1,
                      words);
    };
    refused("", "groups.csv: has no line of headings");
    refused("ada,30\n", "has no line of headings; begin it with person or picture");
    refused("person,size\nada,30\n", "has no column age; it has: size");
    refused("person,age\nada\n", "line 2 has 1 field in place of 2");
    refused("person,age\nada,3\nada,4\n", "line 3 says otherwise of ada than an earlier line");
    refused("person,age\nzoe,3\n", "names nobody");
    refused("picture,age\nada,3\n", "names none of the pictures");
    refused("person,age\nada,\n", "says nothing in the column age");
    refused("person,age\n\"ada,\n", "line 2 has a quotation mark without its end");
    refused("person,age\nada,a\x1b[2J\n", "line 2 has control characters");
    std::string many = "first,second,same,age\n";
    for (int i = 0; i < 65; ++i) {
        many += "p,q" + std::to_string(i) + ",0," + std::to_string(i) + "\n";
    }
    ExpectRefusal(Run({"--pairs", WriteList(many), "--group-by", "age"}), 1, "more than 64 groups");
    const std::string list = Samples("a")[0].path + "," + Samples("a")[1].path;
    ExpectRefusal(Run({"--pairs", WriteList(list + ",1\n"), "--group-by", "age"}), 1,
                  "has no line of headings; begin it with first,second,same,age");
    ExpectRefusal(
        Run({"--pairs", WriteList("first,second,same,x\n" + list + ",1,2\n"), "--group-by", "age"}),
        1, "has no column age; it has: x");
    ExpectRefusedList("first,second,same,x\n" + list + ",1\n", "line 2 has 3 fields in place of 4");
    ExpectRefusal(Run({people_, "--group-by", "age"}), 2, "--groups");
    ExpectRefusal(Run({people_, "--groups", folder_ / "groups.csv"}), 2, "--group-by");
    ExpectRefusal(Run({"--pairs", "list", "--groups", "x", "--group-by", "age"}), 2, "excludes");
}

TEST_F(Eval, TheReportFitsEightyColumns) {
    fs::current_path(folder_.path()); // short names
    MakePeople("abcdefghijkl");
    std::istringstream lines(Output({"people"}));
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 80u) << line;
    }
}

TEST_F(Eval, HelpShowsExamples) {
    const std::string help = KovaFr({"eval", "--help"}).out;
    EXPECT_NE(help.find("Examples:\n  kova-fr eval "), std::string::npos) << help;
    EXPECT_NE(help.find("--pairs"), std::string::npos) << help;
}

} // namespace
} // namespace kova_fr_test
