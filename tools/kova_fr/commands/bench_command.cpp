// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>

#include "commands/commands.h"
#include "commands/face_options.h"
#include "files/failure.h"
#include "layer_times/path_times.h"
#include "terminal/json_line.h"
#include "terminal/label.h"
#include "timing/child.h"
#include "timing/machine.h"

namespace kova_cli {
namespace {

namespace fs = std::filesystem;
using nlohmann::ordered_json;

struct BenchOptions {
    double seconds = 2;
    bool allPaths = false;
    bool json = false;
};

constexpr size_t kLabelLength = 24;
constexpr char kProgram[] = "kova-fr-bench";

constexpr const char* kNotes =
    R"(Times whole faces, from a 256 x 256 picture in memory to the feature, on one
core, and the layers of each kind within whole faces. Whole and kinds take turns
until the time is up. The least says what the processor can do, the median what
it did; an idle machine brings them together.

Examples:
  kova-fr bench
  kova-fr bench --all-paths --seconds 5
  kova-fr bench --json)";

// Beside this program in a build, in a folder of the libraries where it is installed.
std::string MeasuringProgram() {
    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
    for (const fs::path& place : {folder / kProgram, folder / ORVO_PARTS_FROM_BIN / kProgram}) {
        if (fs::exists(place)) {
            return place.string();
        }
    }
    throw Failure(std::string("the part that measures, ") + kProgram +
                  ", is missing; install kova-fr whole");
}

// An empty path is the one that a process chooses.
PathTimes Measure(const std::string& path, double seconds) {
    const std::string text =
        orvo_timing::RunProgram(MeasuringProgram(), path, {std::to_string(seconds)});
    const ordered_json json = ordered_json::parse(text, nullptr, false);
    if (json.is_discarded()) {
        throw Failure("the measurement" + (path.empty() ? "" : " of the path " + path) +
                      " failed; run " + MeasuringProgram() + " 1 alone" +
                      (path.empty() ? "" : " with ORVO_FR_PATH=" + path));
    }
    return PathOf(json);
}

// What a process becomes that is asked for the path: those that the processor does not have would
// quietly be the best one instead.
std::string PathWhenAskedFor(const std::string& path) {
    const std::string text = orvo_timing::AskThisProgram(path, {"info", "--json"});
    const ordered_json json = ordered_json::parse(text, nullptr, false);
    return json.is_discarded() ? "" : json.at("instruction_set").get<std::string>();
}

std::vector<PathTimes> MeasureAllPaths(double seconds) {
    std::vector<PathTimes> all = {Measure("", seconds)};
    std::vector<std::string> paths = {ORVO_PATHS};
    std::reverse(paths.begin(), paths.end()); // the best first
    for (const std::string& path : paths) {
        if (path != all.front().path && PathWhenAskedFor(path) == path) {
            all.push_back(Measure(path, seconds));
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
    std::string text = "processor         " + OneLine(orvo_timing::CpuName()) +
                       "\ncompiler          " + orvo_timing::CompilerName() +
                       "\ninstruction set   " + chosen.path + "\nfaces a second    " +
                       Print("%.0f on one core, by the median", 1000 / chosen.face.median) +
                       "\nopening models    " + Print("%.2f ms, timed once", chosen.opening) +
                       "\nworking memory    " + std::to_string(chosen.memory) + " bytes\n\n" +
                       Table(paths) + "\n";
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
                         {"processor", orvo_timing::CpuName()},
                         {"compiler", orvo_timing::CompilerName()}};
    for (const PathTimes& path : paths) {
        json["paths"].push_back(PathJson(path));
    }
    return JsonLine(json);
}

void RunBench(const BenchOptions& options) {
    const std::vector<PathTimes> paths = options.allPaths
                                             ? MeasureAllPaths(options.seconds)
                                             : std::vector{Measure("", options.seconds)};
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
    command.footer(kNotes);
    command.callback([options] { RunBench(*options); });
}

} // namespace kova_cli
