// SPDX-License-Identifier: MIT
// What `kova-fr bench` prints. Its times are the machine's; that they are times of the right things
// shows in how they hang together.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "program.h"

namespace kova_fr_test {
namespace {

using nlohmann::json;

// As briefly as it goes: five rounds.
Outcome RunBench(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"bench", "--seconds", "0"});
    return KovaFr(arguments);
}

json JsonOutput(const std::vector<std::string>& arguments) {
    const Outcome run = RunBench(arguments);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out.find('\n'), run.out.size() - 1) << "not one line: " << run.out;
    return json::parse(run.out);
}

void ExpectTimes(const json& path) {
    EXPECT_EQ(path["rounds"], 5);
    EXPECT_EQ(path["working_memory_bytes"], 1410052);
    EXPECT_GT(path["opening_ms"], 0);
    const double least = path["face"]["least_ms"];
    const double median = path["face"]["median_ms"];
    EXPECT_GT(least, 0);
    EXPECT_GE(median, least);
    EXPECT_DOUBLE_EQ(path["faces_per_second"], 1000 / median);
    for (const auto& [name, times] : path["kinds"].items()) {
        EXPECT_GT(times["least_ms"], 0) << name;
        EXPECT_GE(times["median_ms"], times["least_ms"]) << name;
    }
    EXPECT_EQ(path["kinds"].size(), 9u);
}

// A kernel that the program defined would be called in every run in place of the library's own.
TEST(Bench, TheProgramItselfStandsBeforeNoKernel) {
    const Outcome own = Shell("nm -D --defined-only \"$KOVA_FR\"");
    ASSERT_EQ(own.status, 0) << own.err;
    for (const char* kernel : {"ArmA", "arma_"}) {
        EXPECT_EQ(own.out.find(kernel), std::string::npos) << own.out;
    }
    const Outcome timing = Shell("nm -D --defined-only \"$KOVA_FR-bench\"");
    EXPECT_NE(timing.out.find("ArmAFcQ7"), std::string::npos) << timing.out << timing.err;
}

TEST(Bench, TimesAFaceAndItsLayers) {
    const json result = JsonOutput({"--json"});
    ASSERT_EQ(result["paths"].size(), 1u);
    ExpectTimes(result["paths"][0]);
    const json info = json::parse(KovaFr({"info", "--json"}).out);
    EXPECT_EQ(result["paths"][0]["instruction_set"], info["instruction_set"]);
    EXPECT_EQ(result["version"], info["version"]);
}

TEST(Bench, MeasuresEveryPathOnceBeginningWithTheChosenOne) {
    const json result = JsonOutput({"--json", "--all-paths"});
    std::set<std::string> names;
    for (const json& path : result["paths"]) {
        ExpectTimes(path);
        EXPECT_TRUE(names.insert(path["instruction_set"]).second) << path["instruction_set"];
    }
    EXPECT_EQ(names.count("plain"), 1u);
    const json info = json::parse(KovaFr({"info", "--json"}).out);
    EXPECT_EQ(result["paths"][0]["instruction_set"], info["instruction_set"]);
}

TEST(Bench, ThePathMayBeForced) {
    const Outcome run = Shell("ORVO_FR_PATH=plain \"$KOVA_FR\" bench --seconds 0 --json");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(json::parse(run.out)["paths"][0]["instruction_set"], "plain");
}

TEST(Bench, TheTableFitsEightyColumns) {
    const Outcome run = RunBench({"--all-paths"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("pointwise convolutions"), std::string::npos) << run.out;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 80u) << line;
    }
}

TEST(Bench, WrongUsage) {
    ExpectRefusal(KovaFr({"bench", "--seconds", "soon"}), 2, "--seconds");
    ExpectRefusal(KovaFr({"bench", "--seconds", "-1"}), 2, "--seconds");
    EXPECT_NE(KovaFr({"bench", "--help"}).out.find("Examples:\n  kova-fr bench"),
              std::string::npos);
}

} // namespace
} // namespace kova_fr_test
