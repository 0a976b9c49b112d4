// SPDX-License-Identifier: MIT
// The thresholds that the program shows are those that were measured on real faces with the very
// models of this build.
#include <gtest/gtest.h>
#include <openssl/sha.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

#include "picture_files.h"
#include "program.h"

namespace kova_fr_test {
namespace {

using nlohmann::json;

// The study of one way of looking at pictures, as programs show it.
json Shown(json study) {
    study.erase("strangers");
    study.erase("crops");
    return study;
}

json Measured() { return json::parse(ReadFile(ORVO_MODEL_DIR "/thresholds.json")); }

std::string FileDigest(const std::string& path) {
    const std::string bytes = ReadFile(path);
    uint8_t digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), digest);
    std::string text;
    for (const uint8_t byte : digest) {
        constexpr char kDigits[] = "0123456789abcdef";
        text += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return text;
}

std::string Output(const std::vector<std::string>& arguments) {
    const Outcome run = KovaFr(arguments);
    EXPECT_EQ(run.status, 0) << run.err;
    return run.out;
}

std::string FourDecimals(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4f", value);
    return text;
}

// On one line, so that a sentence may be broken anywhere.
std::string Unwrapped(std::string text) {
    for (char& c : text) {
        c = c == '\n' ? ' ' : c;
    }
    return text;
}

// Each threshold, and where it comes from.
void ExpectThresholds(const std::string& text, const json& thresholds) {
    EXPECT_NE(Unwrapped(text).find(thresholds.at("faces").get<std::string>()), std::string::npos)
        << text;
    EXPECT_NE(Unwrapped(text).find(thresholds.at("measured_on").get<std::string>()),
              std::string::npos)
        << text;
    EXPECT_NE(Unwrapped(text).find("nother camera"), std::string::npos) << text;
    for (const json& one : thresholds.at("at")) {
        if (one.at("false_accept_rate") >= 1e-3) {
            const json& interval = one.at("false_accepts").at("interval");
            char words[128];
            std::snprintf(words, sizeof words, "%.4f accepts %g %% (%.2g to %.2g)",
                          one.at("threshold").get<double>(),
                          100 * one.at("false_accept_rate").get<double>(),
                          100 * interval.at(0).get<double>(), 100 * interval.at(1).get<double>());
            EXPECT_NE(Unwrapped(text).find(words), std::string::npos) << text;
        }
    }
}

void ExpectMeasuredThresholds(const std::string& text) {
    ExpectThresholds(text, Measured().at("thresholds"));
}

class Thresholds : public testing::Test {
  protected:
    const std::string a_ = ORVO_SAMPLES "/ira-1.png";
    const std::string b_ = ORVO_SAMPLES "/ira-2.png";
};

TEST_F(Thresholds, WereMeasuredWithTheModelsOfThisBuild) {
    const json measured = Measured();
    EXPECT_EQ(measured.at("fr_sha256"), FileDigest(ORVO_MODEL_DIR "/fr.safetensors"));
    EXPECT_EQ(measured.at("align_sha256"), FileDigest(ORVO_MODEL_DIR "/align.safetensors"));
    EXPECT_EQ(measured.at("find_sha256"), FileDigest(ORVO_MODEL_DIR "/find.safetensors"));
}

TEST_F(Thresholds, AreForOneTwoAndThreeNinesAndEachHasItsIntervals) {
    const json at = Measured().at("thresholds").at("at");
    ASSERT_GE(at.size(), 3u);
    double wanted = 0.1;
    double last = -1;
    for (const json& one : at) {
        EXPECT_DOUBLE_EQ(one.at("false_accept_rate"), wanted);
        EXPECT_GT(one.at("threshold"), last);
        for (const char* kind : {"false_accepts", "false_rejects"}) {
            const json& rate = one.at(kind);
            EXPECT_LE(rate.at("interval").at(0), rate.at("rate")) << kind;
            EXPECT_GE(rate.at("interval").at(1), rate.at("rate")) << kind;
        }
        EXPECT_LE(one.at("false_accepts").at("rate"), wanted);
        last = one.at("threshold");
        wanted /= 10;
    }
}

TEST_F(Thresholds, StandInHelpTexts) {
    for (const char* command : {"compare", "identify", "eval"}) {
        ExpectMeasuredThresholds(Output({command, "--help"}));
    }
}

TEST_F(Thresholds, StandBesideADistance) { ExpectMeasuredThresholds(Output({"compare", a_, b_})); }

TEST_F(Thresholds, OfCropsStandBesideTheirDistance) {
    const json crops = Measured().at("thresholds").at("crops");
    ASSERT_NE(crops.at("at").at(1).at("threshold"),
              Measured().at("thresholds").at("at").at(1).at("threshold"));
    ExpectThresholds(Output({"compare", "--crop", a_, b_}), crops);
    EXPECT_EQ(json::parse(Output({"compare", "--json", "--crop", a_, b_})).at("thresholds"),
              Shown(crops));
}

// The verdict of a distance, worked out from the record: how many of the pairs of strangers reach it
// at the most, and which thresholds it reaches.
json ExpectedVerdict(const json& study, double distance) {
    // Scores of strangers were counted between thresholds of four decimals.
    const double floor = std::floor(distance * 10000) / 10000;
    const auto pairs = study.at("pairs_of_two_people").get<double>();
    double asHigh = 0;
    for (const json& one : study.at("strangers")) {
        if (one.at(1).get<double>() < floor) {
            asHigh = asHigh > 0 ? one.at(0).get<double>() - 1 : 0;
            break;
        }
        asHigh = one.at(0).get<double>();
    }
    const json& at = study.at("at");
    return {{"one_in", asHigh > 0 ? pairs / asHigh : pairs / 3},
            {"beyond", asHigh == 0},
            {"verdict", floor >= at.at(2).at("threshold").get<double>()   ? "probably"
                        : floor >= at.at(1).at("threshold").get<double>() ? "perhaps"
                                                                          : "different"}};
}

TEST_F(Thresholds, AVerdictRestsOnTheStrangersThatWereMeasured) {
    const json found = Measured().at("thresholds");
    const std::map<std::string, std::string> words = {{"probably", "Probably the same person: "},
                                                      {"perhaps", "Perhaps the same person: "},
                                                      {"different", "Probably different people: "}};
    for (const std::string other : {"ira-1", "ira-2", "ira-3", "joe-2", "ada-1", "cleo-3"}) {
        const std::string path = std::string(ORVO_SAMPLES "/") + other + ".png";
        for (const bool isCrop : {false, true}) {
            const std::string how = isCrop ? "--crop" : "--any-quality";
            const json result = json::parse(Output({"compare", "--json", how, a_, path}));
            const json expected = ExpectedVerdict(isCrop ? found.at("crops") : found,
                                                  result.at("distance").get<double>());
            const json& verdict = result.at("verdict");
            EXPECT_EQ(verdict.at("verdict"), expected.at("verdict")) << other << how;
            EXPECT_EQ(verdict.at("beyond"), expected.at("beyond")) << other << how;
            EXPECT_NEAR(verdict.at("one_in").get<double>(), expected.at("one_in").get<double>(),
                        1e-9 * expected.at("one_in").get<double>());
            const std::string text = Unwrapped(Output({"compare", how, a_, path}));
            EXPECT_NE(text.find(words.at(verdict.at("verdict"))), std::string::npos) << text;
            EXPECT_NE(text.find("39 people, the Database of Faces"), std::string::npos) << text;
        }
    }
}

TEST_F(Thresholds, StandInJson) {
    const TempFolder folder;
    Output({"enroll", "--any-quality", folder / "g", "ira", a_});
    const json expected = Shown(Measured().at("thresholds"));
    EXPECT_EQ(json::parse(Output({"compare", "--json", a_, b_})).at("thresholds"), expected);
    EXPECT_EQ(json::parse(Output({"identify", "--json", folder / "g", b_})).at("thresholds"),
              expected);
    EXPECT_EQ(json::parse(Output({"info", "--json"})).at("thresholds"), expected);
    EXPECT_FALSE(expected.at("warning").get<std::string>().empty());
}

// What is copied from the help must not accept strangers.
TEST_F(Thresholds, ExamplesTakeOneThatAcceptsFewStrangers) {
    const std::string strict =
        FourDecimals(Measured().at("thresholds").at("at").at(2).at("threshold"));
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"--help"}, {"identify", "--help"}}) {
        EXPECT_NE(Output(arguments).find(" --threshold " + strict + " people.gallery"),
                  std::string::npos);
    }
}

} // namespace
} // namespace kova_fr_test
