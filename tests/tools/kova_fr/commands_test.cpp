// SPDX-License-Identifier: MIT
// What the commands print and write.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "orvo/image_tools.h"
#include "orvo/orvo_fr.h"
#include "picture_files.h"
#include "program.h"

namespace kova_fr_test {
namespace {

using nlohmann::json;

constexpr const char* kHowToRead = "the larger the number, the more alike";

class Commands : public testing::Test {
  protected:
    Commands() {
        WriteFile(a_, GreyPng(Pattern(256, 256, 1)));
        WriteFile(b_, BinaryPgm(Pattern(300, 200, 2)));
        WriteFile(c_, GreyJpeg(Pattern(128, 180, 3)));
    }

    // Runs and expects success.
    static std::string Output(const std::vector<std::string>& arguments) {
        const Outcome run = KovaFrOnCrops(arguments);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err, "");
        return run.out;
    }

    static json JsonOutput(const std::vector<std::string>& arguments) {
        const std::string text = Output(arguments);
        EXPECT_EQ(text.find('\n'), text.size() - 1) << "not one line: " << text;
        return json::parse(text);
    }

    TempFolder folder_;
    const std::string a_ = folder_ / "a.png";
    const std::string b_ = folder_ / "b.pgm";
    const std::string c_ = folder_ / "c.jpg";
};

struct PrintedTable {
    std::vector<std::string> columns;
    std::vector<std::string> rows;
    std::vector<std::vector<double>> numbers;
};

// The table at the start of what compare prints, up to the empty line.
PrintedTable ParseTable(const std::string& text) {
    PrintedTable table;
    std::istringstream lines(text);
    std::string line;
    std::getline(lines, line);
    std::istringstream header(line);
    for (std::string word; header >> word;) {
        table.columns.push_back(word);
    }
    while (std::getline(lines, line) && !line.empty()) {
        std::istringstream words(line);
        words >> table.rows.emplace_back();
        std::vector<double>& row = table.numbers.emplace_back();
        for (double number; words >> number;) {
            row.push_back(number);
        }
    }
    return table;
}

// What the recognition network is to see of a 256 x 256 picture, from the library's own parts: the
// box that the alignment network answers with, scaled to 96 x 96.
std::vector<uint8_t> ExpectedCrop(const Grey& picture) {
    static std::vector<uint8_t> memory(ORVO_FR_MEMORY_SIZE);
    EXPECT_EQ(OrvoFrInit(), ORVO_FR_OK);
    EXPECT_EQ(OrvoFrSetMemory(memory.data(), ORVO_FR_MEMORY_SIZE), ORVO_FR_OK);
    std::vector<uint8_t> small(24 * 24);
    ImageResizeBilin(picture.pixels.data(), small.data(), 256, 256, 256, 24, 24);
    AlignRun(small.data());
    int corners[4];
    for (int i = 0; i < 4; ++i) {
        corners[i] = 2 * AlignGetOutput()[i];
    }
    const int left = corners[0];
    const int top = corners[1];
    const int right = corners[2];
    const int bottom = corners[3];
    EXPECT_LT(left, right);
    EXPECT_LT(top, bottom);
    EXPECT_GE(top * 256 + left, 0); // what the library takes corner for corner
    std::vector<uint8_t> crop(96 * 96);
    ImageResizeBilin(picture.pixels.data() + top * 256 + left, crop.data(), bottom - top,
                     right - left, 256, 96, 96);
    return crop;
}

TEST_F(Commands, CompareOfAPictureWithItselfIsOne) {
    const json result = JsonOutput({"compare", "--json", a_, a_});
    EXPECT_NEAR(result["distance"].get<double>(), 1.0, 1e-6);
}

TEST_F(Commands, CompareOfTwoPrintsTheDistanceInAPlainLine) {
    const std::string text = Output({"compare", a_, b_});
    const json result = JsonOutput({"compare", "--json", a_, b_});
    const double distance = result["distance"];
    EXPECT_LT(distance, 0.9999); // two different pictures
    char line[64];
    std::snprintf(line, sizeof line, "\nThe distance is %.6f.\n", distance);
    EXPECT_NE(text.find(line), std::string::npos) << text;
    EXPECT_NE(text.find(kHowToRead), std::string::npos) << text;
}

TEST_F(Commands, CompareTableAndJsonHoldTheSameDistances) {
    const PrintedTable table = ParseTable(Output({"compare", a_, b_, c_}));
    const json result = JsonOutput({"compare", "--json", a_, b_, c_});
    EXPECT_EQ(table.columns, (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(table.rows, table.columns);
    ASSERT_EQ(table.numbers.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        ASSERT_EQ(table.numbers[i].size(), 3u);
        for (size_t j = 0; j < 3; ++j) {
            const double distance = result["distances"][i][j];
            EXPECT_NEAR(table.numbers[i][j], distance, 0.00005001);
            EXPECT_EQ(distance, result["distances"][j][i].get<double>());
        }
        EXPECT_NEAR(result["distances"][i][i].get<double>(), 1.0, 1e-6);
    }
    EXPECT_FALSE(result.contains("distance"));
}

TEST_F(Commands, CompareDistanceIsTheInnerProductOfTheFeatures) {
    const Feature a = FeatureOf(a_);
    const Feature b = FeatureOf(b_);
    double product = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        product += static_cast<double>(a[i]) * static_cast<double>(b[i]);
    }
    const json result = JsonOutput({"compare", "--json", a_, b_});
    EXPECT_NEAR(result["distance"].get<double>(), product, 1e-5);
}

TEST_F(Commands, CompareTableStaysAlignedWithLongNames) {
    const std::string folder = folder_ / "a folder with quite a long name";
    std::filesystem::create_directory(folder);
    const std::string stem = "the_same_long_beginning_of_a_name_";
    const std::vector<std::string> paths = {folder + "/" + stem + "1.png",
                                            folder + "/" + stem + "2.png", a_};
    std::filesystem::copy_file(a_, paths[0]);
    std::filesystem::copy_file(a_, paths[1]);
    const std::string text = Output({"compare", paths[0], paths[1], paths[2]});
    std::istringstream lines(text);
    std::string first;
    std::getline(lines, first);
    std::string line;
    for (int i = 0; i < 3; ++i) {
        std::getline(lines, line);
        EXPECT_EQ(line.size(), first.size()) << text;
    }
    const PrintedTable table = ParseTable(text);
    ASSERT_EQ(table.columns.size(), 3u);
    EXPECT_EQ(table.columns[0].back(), '1');
    EXPECT_EQ(table.columns[1].back(), '2');
    EXPECT_EQ(table.columns[2], "a");
    EXPECT_LE(table.rows[0].size(), 24u);
}

TEST_F(Commands, NamesThatDifferOnlyInTheirExtensionKeepIt) {
    WriteFile(folder_ / "a.pgm", BinaryPgm(Pattern(64, 64)));
    const PrintedTable table = ParseTable(Output({"compare", a_, folder_ / "a.pgm"}));
    EXPECT_EQ(table.columns, (std::vector<std::string>{"a.png", "a.pgm"}));
}

TEST_F(Commands, ExtractPrintsUnitLengthFeaturesOnePerLine) {
    const std::vector<Feature> features = ParseFeatures(Output({"extract", a_, b_, c_}));
    ASSERT_EQ(features.size(), 3u);
    EXPECT_EQ(features[0], FeatureOf(a_));
    EXPECT_EQ(features[2], FeatureOf(c_));
    EXPECT_NE(features[0], features[1]);
    for (const Feature& feature : features) {
        double square = 0;
        for (const float value : feature) {
            square += static_cast<double>(value) * static_cast<double>(value);
        }
        EXPECT_NEAR(square, 1.0, 1e-5);
    }
}

TEST_F(Commands, ExtractJsonHoldsThePrintedFeatures) {
    const std::vector<Feature> printed = ParseFeatures(Output({"extract", a_, b_}));
    const json result = JsonOutput({"extract", "--json", a_, b_});
    ASSERT_EQ(result["pictures"].size(), 2u);
    EXPECT_EQ(result["pictures"][0]["feature"].get<Feature>(), printed[0]);
    EXPECT_EQ(result["pictures"][1]["feature"].get<Feature>(), printed[1]);
}

TEST_F(Commands, JsonDescribesEachPicture) {
    for (const char* command : {"extract", "compare"}) {
        const json result =
            JsonOutput({command, "--json", a_, b_, "--box", "all", "--box", "3,5,101,60"});
        const json expected = {{"path", b_},
                               {"width", 300},
                               {"height", 200},
                               {"box", {{"x", 3}, {"y", 5}, {"width", 100}, {"height", 60}}}};
        json described = result["pictures"][1];
        described.erase("feature");
        EXPECT_EQ(described, expected) << command;
        EXPECT_EQ(result["pictures"][0]["path"], a_);
    }
}

TEST_F(Commands, JsonCarriesFileNamesThatAreNoUtf8) {
    const std::string odd = folder_ / "caf\xE9\n.png";
    std::filesystem::copy_file(a_, odd);
    const json result = JsonOutput({"extract", "--json", odd});
    EXPECT_EQ(result["pictures"][0]["feature"].get<Feature>(), FeatureOf(a_));
}

TEST_F(Commands, ExtractWritesRawFloats) {
    EXPECT_EQ(Output({"extract", "--output", folder_ / "f32", a_, b_}), "");
    const std::string raw = ReadFile(folder_ / "f32");
    ASSERT_EQ(raw.size(), 2u * 128 * 4);
    const std::vector<Feature> printed = ParseFeatures(Output({"extract", a_, b_}));
    for (size_t i = 0; i < 256; ++i) {
        uint32_t bits = 0;
        for (size_t byte = 0; byte < 4; ++byte) {
            bits |= uint32_t{static_cast<uint8_t>(raw[4 * i + byte])} << (8 * byte);
        }
        EXPECT_EQ(std::bit_cast<float>(bits), printed[i / 128][i % 128]);
    }
}

TEST_F(Commands, BoxEqualsCroppingFirst) {
    const Grey picture = Pattern(400, 350, 4);
    WriteFile(folder_ / "whole", BinaryPgm(picture));
    WriteFile(folder_ / "part", BinaryPgm(Crop(picture, 21, 30, 256, 256)));
    WriteFile(folder_ / "other", BinaryPgm(Crop(picture, 300, 7, 100, 80)));
    EXPECT_EQ(FeatureOf(folder_ / "whole", {"--box", "21,30,256,256"}),
              FeatureOf(folder_ / "part"));
    EXPECT_EQ(FeatureOf(folder_ / "whole", {"--box=300,7,100,80"}), FeatureOf(folder_ / "other"));
    EXPECT_NE(FeatureOf(folder_ / "whole"), FeatureOf(folder_ / "part"));
    EXPECT_EQ(FeatureOf(folder_ / "whole", {"--box", "all"}), FeatureOf(folder_ / "whole"));
}

TEST_F(Commands, OneBoxServesAllPicturesAndMoreGoInOrder) {
    const Feature a = FeatureOf(a_, {"--box", "10,20,100,90"});
    const Feature b = FeatureOf(b_, {"--box", "10,20,100,90"});
    EXPECT_EQ(ParseFeatures(Output({"extract", "--box", "10,20,100,90", a_, b_})),
              (std::vector<Feature>{a, b}));
    EXPECT_EQ(ParseFeatures(Output({"extract", "--box", "10,20,100,90", "--box", "all", a_, b_})),
              (std::vector<Feature>{a, FeatureOf(b_)}));
}

TEST_F(Commands, SavedCropIsWhatTheNetworkSaw) {
    Output({"extract", a_, "--save-crop", folder_ / "crop.png"});
    const Grey crop = DecodeGreyPng(ReadFile(folder_ / "crop.png"));
    EXPECT_EQ(crop.width, 96u);
    EXPECT_EQ(crop.height, 96u);
    EXPECT_EQ(crop.pixels, ExpectedCrop(Pattern(256, 256, 1)));
}

TEST_F(Commands, SavedCropsOfSeveralPicturesAreNumbered) {
    Output({"compare", a_, b_, "--save-crop", folder_ / "crop.png"});
    Output({"extract", b_, "--save-crop", folder_ / "single.png"});
    EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"a.png", "b.pgm", "c.jpg", "crop-1.png",
                                                         "crop-2.png", "single.png"}));
    EXPECT_EQ(ReadFile(folder_ / "crop-2.png"), ReadFile(folder_ / "single.png"));
    EXPECT_NE(ReadFile(folder_ / "crop-1.png"), ReadFile(folder_ / "single.png"));
}

TEST_F(Commands, NamedFileIsReplacedAndKeepsItsPermissions) {
    const std::string crop = folder_ / "crop.png";
    WriteFile(crop, "old");
    ASSERT_EQ(chmod(crop.c_str(), 0640), 0);
    Output({"extract", a_, "--save-crop", crop});
    EXPECT_EQ(DecodeGreyPng(ReadFile(crop)).width, 96u);
    EXPECT_EQ(std::filesystem::status(crop).permissions(), std::filesystem::perms(0640));
}

TEST_F(Commands, LinkStaysAndItsTargetIsReplaced) {
    WriteFile(folder_ / "target.png", "old");
    std::filesystem::create_symlink("target.png", folder_ / "link.png");
    Output({"extract", a_, "--save-crop", folder_ / "link.png"});
    EXPECT_TRUE(std::filesystem::is_symlink(folder_ / "link.png"));
    EXPECT_EQ(DecodeGreyPng(ReadFile(folder_ / "target.png")).width, 96u);
}

TEST_F(Commands, OutputMayBeAPipe) {
    const Outcome run = Shell("\"$KOVA_FR\" extract --crop --output /dev/stdout '" + a_ +
                              "' | od -A n -v -t x1 | wc -w");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(std::stoi(run.out), 512);
}

TEST_F(Commands, ADashIsAPictureOnStandardInput) {
    const std::vector<Feature> expected = {FeatureOf(a_)};
    for (const std::string& command : {"cat '" + a_ + "' | \"$KOVA_FR\" extract --crop -",
                                       "\"$KOVA_FR\" extract --crop - < " + a_}) {
        const Outcome run = Shell(command);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(ParseFeatures(run.out), expected);
    }
    ExpectRefusal(Shell("cat '" + a_ + "' | \"$KOVA_FR\" compare --crop - -"), 2,
                  "standard input (-) has one picture only");
    ExpectRefusal(Shell(": | \"$KOVA_FR\" extract --crop -"), 1, "-: ");
}

// Each number of the unfolded table once, below the right name.
TEST_F(Commands, WideTablesFoldToTheTerminal) {
    const std::string pictures =
        " '" + a_ + "' '" + b_ + "' '" + c_ + "' '" + a_ + "' '" + b_ + "'";
    const std::string compare = "\"$KOVA_FR\" compare --crop" + pictures;
    const PrintedTable whole = ParseTable(Shell(compare).out);
    ASSERT_EQ(whole.columns.size(), 5u);
    for (const std::string& narrow :
         {"COLUMNS=40 " + compare, "script -qec 'stty cols 40; \"$KOVA_FR\" compare --crop " + a_ +
                                       " " + b_ + " " + c_ + " " + a_ + " " + b_ + "' /dev/null"}) {
        std::string text = Shell(narrow).out;
        std::erase(text, '\r'); // as a terminal has them
        PrintedTable folded;
        size_t parts = 0;
        while (folded.columns.size() < whole.columns.size() && !text.empty()) {
            const PrintedTable part = ParseTable(text);
            std::istringstream lines(text.substr(0, text.find("\n\n")));
            for (std::string line; std::getline(lines, line);) {
                EXPECT_LE(line.size(), 40u) << line;
            }
            folded.columns.insert(folded.columns.end(), part.columns.begin(), part.columns.end());
            folded.numbers.resize(whole.numbers.size());
            ASSERT_EQ(part.numbers.size(), whole.numbers.size()) << text;
            for (size_t i = 0; i < part.numbers.size(); ++i) {
                folded.numbers[i].insert(folded.numbers[i].end(), part.numbers[i].begin(),
                                         part.numbers[i].end());
            }
            text.erase(0, text.find("\n\n") + 2);
            ++parts;
        }
        EXPECT_EQ(folded.columns, whole.columns);
        EXPECT_EQ(folded.numbers, whole.numbers);
        EXPECT_EQ(parts, 2u);
    }
}

// A bar with its pace while somebody watches, one line at the end, and nothing where nobody does.
TEST_F(Commands, LongWorkShowsABarAndOneClosingLine) {
    std::string extract = "\"$KOVA_FR\" extract --crop --output /dev/null";
    for (int i = 0; i < 800; ++i) {
        extract += " " + a_;
    }
    WriteFile(folder_ / "long.sh", extract + "\n");
    const Outcome watched = Shell("script -qec 'sh " + (folder_ / "long.sh") + "' /dev/null");
    EXPECT_EQ(watched.status, 0) << watched.out;
    EXPECT_NE(watched.out.find("\rReading    ["), std::string::npos) << watched.out;
    EXPECT_NE(watched.out.find(" of 800, "), std::string::npos) << watched.out;
    EXPECT_NE(watched.out.find(" left\033[K"), std::string::npos) << watched.out;
    const size_t closing = watched.out.find("\033[KReading: 800 pictures in ");
    ASSERT_NE(closing, std::string::npos) << watched.out;
    EXPECT_NE(watched.out.find(" a second\r\n", closing), std::string::npos) << watched.out;
    EXPECT_EQ(watched.out.find('\n'), watched.out.rfind('\n')) << watched.out;
    EXPECT_EQ(Shell("sh " + (folder_ / "long.sh")).err, "");
}

TEST_F(Commands, HelpFitsAHundredColumns) {
    std::vector<std::vector<std::string>> calls = {{"--help"}};
    std::istringstream commands(Output({"--help"}).substr(Output({"--help"}).find("Subcommands:")));
    for (std::string line; std::getline(commands, line) && !line.empty();) {
        if (line.starts_with("  ") && line[2] != ' ') {
            std::istringstream words(line);
            std::string name;
            words >> name;
            calls.push_back({name, "--help"});
        }
    }
    EXPECT_GE(calls.size(), 12u);
    for (const std::vector<std::string>& call : calls) {
        std::istringstream lines(KovaFr(call).out);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(line.size(), 100u) << call[0] << ": " << line;
        }
    }
}

TEST_F(Commands, VersionIsPrinted) {
    const std::string version = Output({"--version"});
    EXPECT_EQ(version.find("kova-fr " ORVO_VERSION "\nreads PNG, JPEG, PGM/PPM, BMP"), 0u)
        << version;
}

// Every word that begins like an option, in a help or in a manual.
std::set<std::string> OptionsIn(std::string text) {
    for (size_t at = 0; (at = text.find("\\-", at)) != std::string::npos;) {
        text.erase(at, 1);
    }
    const std::string_view letters = "abcdefghijklmnopqrstuvwxyz";
    std::set<std::string> options;
    for (size_t at = 0; (at = text.find("--", at)) != std::string::npos;) {
        const size_t end =
            std::min(text.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", at), text.size());
        if (end >= at + 4 && letters.find(text[at + 2]) != std::string_view::npos) {
            options.insert(text.substr(at, end - at));
        }
        at = end;
    }
    return options;
}

TEST_F(Commands, ManualHasEveryCommandWithItsOptions) {
    const std::string manual = Output({"manual"});
    EXPECT_EQ(manual.find(".TH KOVA\\-FR 1"), 0u);
    const std::string help = Output({"--help"});
    const size_t list = help.find("Subcommands:\n");
    ASSERT_NE(list, std::string::npos);
    std::istringstream lines(help.substr(list));
    std::string line;
    std::getline(lines, line);
    size_t commands = 0;
    while (std::getline(lines, line) && !line.empty()) {
        if (line[2] == ' ') {
            continue; // the rest of what the command above does
        }
        const std::string command = line.substr(2, line.find(' ', 2) - 2);
        const size_t begin = manual.find("\n.SS " + command + "\n");
        ASSERT_NE(begin, std::string::npos) << command;
        const size_t end = std::min(manual.find("\n.S", begin + 2), manual.size());
        std::set<std::string> wanted = OptionsIn(Output({command, "--help"}));
        wanted.erase("--help");
        const std::set<std::string> there = OptionsIn(manual.substr(begin, end - begin));
        EXPECT_TRUE(std::ranges::includes(there, wanted)) << command;
        ++commands;
    }
    EXPECT_GE(commands, 11u);
}

// groff is on every machine that shows manual pages.
TEST_F(Commands, ManualIsTypesetWithoutComplaints) {
    const Outcome run = Shell(
        "command -v groff > /dev/null || exit 77; \"$KOVA_FR\" manual | "
        "groff -man -Tutf8 -K utf8 -ww -rLL=100n > /dev/null");
    if (run.status == 77) {
        GTEST_SKIP() << "there is no groff here";
    }
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}

TEST_F(Commands, HelpShowsExamples) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"--help"}, {"compare", "--help"}, {"extract", "--help"}}) {
        const std::string help = Output(arguments);
        EXPECT_NE(help.find("Examples:\n  kova-fr "), std::string::npos) << help;
    }
    EXPECT_NE(Output({"compare", "--help"}).find("--box"), std::string::npos);
}

// Who reads no further than the first lines must know.
TEST_F(Commands, HelpBeginsWithWhatTheProgramDoesWithAPicture) {
    const std::string help = Output({"--help"});
    const std::string beginning = help.substr(0, help.find("\n\n"));
    EXPECT_NE(beginning.find("Finds the faces in pictures"), std::string::npos) << help;
    EXPECT_NE(beginning.find("--crop"), std::string::npos) << help;
}

// "ada" of "samples/ada-1.png".
std::string Person(const std::string& path) {
    const std::string name = std::filesystem::path(path).filename().string();
    return name.substr(0, name.find('-'));
}

TEST_F(Commands, SamplePicturesAreTakenAndPeopleResembleThemselves) {
    std::vector<std::string> arguments = {"compare", "--json"};
    for (const auto& entry : std::filesystem::directory_iterator(ORVO_SAMPLES)) {
        if (entry.path().extension() == ".png") {
            arguments.push_back(entry.path().string());
        }
    }
    ASSERT_EQ(arguments.size(), 2u + 36u);
    const Outcome run = KovaFr(arguments); // as whole photographs
    ASSERT_EQ(run.status, 0) << run.err;
    const json result = json::parse(run.out);
    double same = 0;
    double different = 0;
    for (size_t i = 0; i < 36; ++i) {
        EXPECT_EQ(result["pictures"][i]["width"], 256);
        const std::string person = Person(arguments[2 + i]);
        for (size_t j = 0; j < i; ++j) {
            const double distance = result["distances"][i][j].get<double>();
            EXPECT_LT(distance, 0.9999);
            (Person(arguments[2 + j]) == person ? same : different) += distance;
        }
    }
    // 3 pairs of each of 12 people, and all other pairs.
    constexpr double kSamePairs = 12 * 3;
    constexpr double kOtherPairs = 36 * 35 / 2.0 - kSamePairs;
    EXPECT_GT(same / kSamePairs, different / kOtherPairs + 0.3);
}

TEST_F(Commands, InfoNamesVersionPathMemoryModelsAndCustomData) {
    const json info = JsonOutput({"info", "--json"});
    EXPECT_EQ(info["version"], ORVO_VERSION);
    EXPECT_EQ(info["instruction_set"], OrvoFrGetInstructionSet());
    EXPECT_EQ(info["working_memory_bytes"], 1410052);
    EXPECT_EQ(info["align_sha256"].get<std::string>().size(), 64u);
    EXPECT_EQ(info["fr_sha256"].get<std::string>().size(), 64u);
    EXPECT_NE(info["align_sha256"], info["fr_sha256"]);
    const std::string text = Output({"info"});
    for (const char* key :
         {"version", "instruction_set", "align_sha256", "fr_sha256", "models_sha256"}) {
        EXPECT_NE(text.find(info[key].get<std::string>()), std::string::npos) << key;
    }
    EXPECT_NE(text.find("1410052 bytes"), std::string::npos);
}

// Who reads a card can tell whether a build or a gallery is of that model.
TEST_F(Commands, ModelCardsShowTheDigestsOfInfo) {
    const json info = JsonOutput({"info", "--json"});
    const std::string align = ReadFile(ORVO_MODEL_DIR "/align.md");
    const std::string fr = ReadFile(ORVO_MODEL_DIR "/fr.md");
    EXPECT_NE(align.find(info["align_sha256"].get<std::string>()), std::string::npos);
    EXPECT_NE(fr.find(info["fr_sha256"].get<std::string>()), std::string::npos);
    for (const std::string& card : {align, fr}) {
        EXPECT_NE(card.find(info["models_sha256"].get<std::string>()), std::string::npos);
    }
}

TEST_F(Commands, InfoFollowsAForcedPath) {
    const Outcome run = Shell("ORVO_FR_PATH=plain \"$KOVA_FR\" info");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("instruction set     plain\n"), std::string::npos) << run.out;
}

} // namespace
} // namespace kova_fr_test
