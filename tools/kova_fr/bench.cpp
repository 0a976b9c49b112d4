// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <numeric>
#include <span>

#include "bench/child.h"
#include "bench/layer_clock.h"
#include "bench/machine.h"
#include "commands.h"
#include "face_options.h"
#include "failure.h"
#include "label.h"
#include "orvo/orvo_fr.h"

namespace kova_cli {
namespace {

using nlohmann::ordered_json;
using orvo_bench::Clock;

struct BenchOptions {
    double seconds = 2;
    bool allPaths = false;
    bool json = false;
};

struct Kind {
    const char* name;  // in JSON
    const char* label; // in the table
    unsigned parts;
};

constexpr Kind kKinds[] = {
    {"stems", "first convolutions", orvo_bench::kConv},
    {"pointwise", "pointwise convolutions", orvo_bench::kPointwise},
    {"depthwise", "depthwise convolutions", orvo_bench::kDepthwise},
    {"max_pooling", "max pooling", orvo_bench::kMaxPool},
    {"addition", "additions", orvo_bench::kAdd},
    {"rectifier", "rectifiers", orvo_bench::kRelu},
    {"sampling", "sampling", orvo_bench::kDownsample},
    {"head", "heads", orvo_bench::kHead},
};

// Their middle is not one of two, and a slow machine still gets a few.
constexpr size_t kFewestRounds = 5;
constexpr size_t kLabelLength = 24;

constexpr const char* kExamples =
    "Times whole faces, from a 256 x 256 picture in memory to the feature, on one core, and the\n"
    "layers of each kind within whole faces. Whole and kinds take turns until the time is up. The\n"
    "least says what the processor can do, the median what it did; an idle machine brings them\n"
    "together.\n"
    "\n"
    "Examples:\n"
    "  kova-fr bench\n"
    "  kova-fr bench --all-paths --seconds 5\n"
    "  kova-fr bench --json";

// Milliseconds.
struct Times {
    double least = 0;
    double median = 0;
};

struct PathTimes {
    std::string path;
    double opening = 0;
    uint32_t memory = 0;
    size_t rounds = 0;
    Times face;
    std::vector<Times> kinds;
    Times rest; // of a face beyond its layers: resizing, copying, and reading the clock
};

Times Summarise(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return {times.front(), times[times.size() / 2]};
}

// A face-sized blob on a slope: the layers meet values of both signs, and the alignment finds a
// box.
std::vector<uint8_t> SomePicture() {
    std::vector<uint8_t> picture(size_t{ORVO_FR_IMAGE_SIZE} * ORVO_FR_IMAGE_SIZE);
    for (int y = 0; y < ORVO_FR_IMAGE_SIZE; ++y) {
        for (int x = 0; x < ORVO_FR_IMAGE_SIZE; ++x) {
            const int dx = x - 128;
            const int dy = y - 128;
            const int blob = std::max(0, 120 - (dx * dx + dy * dy) / 60);
            picture[static_cast<size_t>(y * ORVO_FR_IMAGE_SIZE + x)] =
                static_cast<uint8_t>(40 + x / 4 + blob + (x * y) % 7);
        }
    }
    return picture;
}

void Require(int32_t status, const char* what) {
    if (status != ORVO_FR_OK) {
        throw Failure(std::string(what) + " failed (" + std::to_string(status) +
                      "); report this status");
    }
}

PathTimes Measure(double seconds) {
    PathTimes times;
    times.path = OrvoFrGetInstructionSet();
    times.memory = OrvoFrGetMemorySize();
    times.opening = orvo_bench::Milliseconds(
        orvo_bench::TimeWhole([] { Require(OrvoFrInit(), "opening the models"); }));
    std::vector<uint8_t> memory(times.memory);
    Require(OrvoFrSetMemory(memory.data(), times.memory), "setting the working memory");
    const std::vector<uint8_t> picture = SomePicture();
    const FrImage image{const_cast<uint8_t*>(picture.data()), ORVO_FR_IMAGE_SIZE,
                        ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE};
    const auto face = [&image] {
        float feature[ORVO_FR_FEATURE_LENGTH];
        Require(OrvoFrRun(&image, feature, sizeof feature), "computing a feature");
    };
    face(); // brings code and weights into the caches

    const unsigned allKinds =
        std::accumulate(std::begin(kKinds), std::end(kKinds), 0u,
                        [](unsigned parts, const Kind& kind) { return parts | kind.parts; });
    std::vector<double> whole;
    std::vector<double> rest;
    std::vector<std::vector<double>> kinds(std::size(kKinds));
    const auto start = Clock::now();
    while (whole.size() < kFewestRounds ||
           orvo_bench::Milliseconds(Clock::now() - start) < 1000 * seconds) {
        whole.push_back(orvo_bench::Milliseconds(orvo_bench::TimeWhole(face)));
        for (size_t i = 0; i < kinds.size(); ++i) {
            kinds[i].push_back(
                orvo_bench::Milliseconds(orvo_bench::TimeKinds(kKinds[i].parts, face)));
        }
        Clock::duration layers{};
        const Clock::duration all =
            orvo_bench::TimeWhole([&] { layers = orvo_bench::TimeKinds(allKinds, face); });
        rest.push_back(orvo_bench::Milliseconds(all - layers));
    }
    times.rounds = whole.size();
    times.face = Summarise(whole);
    times.rest = Summarise(rest);
    for (const std::vector<double>& kind : kinds) {
        times.kinds.push_back(Summarise(kind));
    }
    return times;
}

ordered_json TimesJson(const Times& times) {
    return {{"least_ms", times.least}, {"median_ms", times.median}};
}

Times TimesOf(const ordered_json& json) { return {json.at("least_ms"), json.at("median_ms")}; }

ordered_json PathJson(const PathTimes& times) {
    ordered_json kinds;
    for (size_t i = 0; i < times.kinds.size(); ++i) {
        kinds[kKinds[i].name] = TimesJson(times.kinds[i]);
    }
    kinds["rest"] = TimesJson(times.rest);
    return {{"instruction_set", times.path},
            {"rounds", times.rounds},
            {"opening_ms", times.opening},
            {"working_memory_bytes", times.memory},
            {"face", TimesJson(times.face)},
            {"faces_per_second", 1000 / times.face.median},
            {"kinds", kinds}};
}

PathTimes PathOf(const ordered_json& json) {
    PathTimes times;
    times.path = json.at("instruction_set");
    times.rounds = json.at("rounds");
    times.opening = json.at("opening_ms");
    times.memory = json.at("working_memory_bytes");
    times.face = TimesOf(json.at("face"));
    for (const Kind& kind : kKinds) {
        times.kinds.push_back(TimesOf(json.at("kinds").at(kind.name)));
    }
    times.rest = TimesOf(json.at("kinds").at("rest"));
    return times;
}

ordered_json ChildJson(const std::string& path, const std::vector<std::string>& arguments) {
    const std::string text = orvo_bench::RunThisProgram(path, arguments);
    ordered_json json = ordered_json::parse(text, nullptr, false);
    if (json.is_discarded()) {
        throw Failure("the measurement of the path " + path +
                      " failed; run it alone with ORVO_FR_PATH=" + path);
    }
    return json;
}

// A process chooses its path once, so each gets a process of its own. Those that the processor does
// not have would quietly be the best one instead.
std::vector<PathTimes> MeasureAllPaths(double seconds) {
    std::vector<PathTimes> all = {Measure(seconds)};
    std::vector<std::string> paths = {ORVO_PATHS};
    std::reverse(paths.begin(), paths.end()); // the best first
    for (const std::string& path : paths) {
        if (path != all.front().path &&
            ChildJson(path, {"info", "--json"}).at("instruction_set") == path) {
            const ordered_json json =
                ChildJson(path, {"bench", "--json", "--seconds", std::to_string(seconds)});
            all.push_back(PathOf(json.at("paths").at(0)));
        }
    }
    return all;
}

std::string Print(const char* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// Microseconds.
std::string Cells(const Times& times) {
    return Print("%9.1f", 1000 * times.least) + Print("%9.1f", 1000 * times.median);
}

std::string TableOf(std::span<const PathTimes> paths) {
    std::string text(kLabelLength, ' ');
    for (const PathTimes& path : paths) {
        text += PadLeft(path.path, 18);
    }
    text += "\n" + PadRight("microseconds", kLabelLength);
    for (size_t i = 0; i < paths.size(); ++i) {
        text += "    least   median";
    }
    text += "\n" + PadRight("a face", kLabelLength);
    for (const PathTimes& path : paths) {
        text += Cells(path.face);
    }
    for (size_t i = 0; i < std::size(kKinds); ++i) {
        text += "\n" + PadRight(std::string("  ") + kKinds[i].label, kLabelLength);
        for (const PathTimes& path : paths) {
            text += Cells(path.kinds[i]);
        }
    }
    text += "\n" + PadRight("  resizing and the rest", kLabelLength);
    for (const PathTimes& path : paths) {
        text += Cells(path.rest);
    }
    return text + "\n";
}

// As many paths side by side as fit a terminal of 80 columns, the others below.
std::string Table(std::span<const PathTimes> paths) {
    constexpr size_t kAbreast = 3;
    std::string text;
    for (; paths.size() > kAbreast; paths = paths.subspan(kAbreast)) {
        text += TableOf(paths.first(kAbreast)) + "\n";
    }
    return text + TableOf(paths);
}

std::string Text(const std::vector<PathTimes>& paths) {
    const PathTimes& chosen = paths.front();
    std::string text =
        "processor         " + OneLine(orvo_bench::CpuName()) + "\ncompiler          " +
        orvo_bench::CompilerName() + "\ninstruction set   " + chosen.path + "\nfaces a second    " +
        Print("%.0f on one core, by the median", 1000 / chosen.face.median) +
        "\nopening models    " + Print("%.2f ms, timed once", chosen.opening) +
        "\nworking memory    " + std::to_string(chosen.memory) + " bytes\n\n" + Table(paths) + "\n";
    std::string rounds;
    for (const PathTimes& path : paths) {
        rounds += (rounds.empty() ? "" : ", ") + std::to_string(path.rounds);
    }
    return text + "Rounds: " + rounds +
           ".\nIn each a whole face is timed, then each kind in a face of its own, and in one\n"
           "more what its layers leave over. So the lines do not add up exactly.\n";
}

std::string Json(const std::vector<PathTimes>& paths) {
    ordered_json json = {{"version", ORVO_VERSION},
                         {"processor", orvo_bench::CpuName()},
                         {"compiler", orvo_bench::CompilerName()}};
    for (const PathTimes& path : paths) {
        json["paths"].push_back(PathJson(path));
    }
    return JsonLine(json);
}

void RunBench(const BenchOptions& options) {
    const std::vector<PathTimes> paths =
        options.allPaths ? MeasureAllPaths(options.seconds) : std::vector{Measure(options.seconds)};
    WriteStandardOutput(options.json ? Json(paths) : Text(paths));
}

} // namespace

void AddBenchCommand(CLI::App& program) {
    CLI::App& command =
        *program.add_subcommand("bench", "Time a face on this machine, and its layers by kind");
    const auto options = std::make_shared<BenchOptions>();
    command
        .add_option("--seconds", options->seconds,
                    "How long to measure on each path; five rounds at least")
        ->check(CLI::Range(0.0, 3600.0))
        ->capture_default_str();
    command.add_flag("--all-paths", options->allPaths,
                     "Measure every instruction set that this build and this processor have");
    command.add_flag("--json", options->json, "Print one line of JSON");
    command.footer(kExamples);
    command.callback([options] { RunBench(*options); });
}

} // namespace kova_cli
