// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "commands/commands.h"
#include "commands/reading_options.h"
#include "evaluation/charts/error_charts.h"
#include "evaluation/eval_features.h"
#include "evaluation/eval_input.h"
#include "evaluation/report/eval_report.h"
#include "evaluation/shipped_thresholds.h"
#include "files/failure.h"
#include "files/output_file.h"
#include "terminal/label.h"
#include "terminal/progress.h"

namespace kova_cli {
namespace {

namespace fs = std::filesystem;

struct EvalOptions {
    std::string folder;
    std::string pairsPath;
    std::string outFolder;
    bool byName = false;
    FeatureReading reading;
    bool json = false;
    uint32_t rounds = 400;
    uint64_t seed = 0;
};

constexpr const char* kMeaning =
    R"(FOLDER has one sub-folder a person, and all pictures are compared with one
another. A list of pairs has lines such as `ada/1.png joe/4.png 0`: two pictures,
relative to the list, and 1 for one person or 0 for two; or the same with commas
(a.png,b.png,1) or tabs, where a name may be in quotation marks.

Prints the error rates over thresholds, and which threshold to take for one to
four nines against false accepts. Counts at a threshold are exact. --out adds the
files report.txt, report.json, roc.svg, det.svg and histogram.svg.
docs/THRESHOLDS.md explains the words and how to choose.

)";

constexpr const char* kExamples = R"(
Examples:
  kova-fr eval people/
  kova-fr eval --by-name --out result samples/
  kova-fr eval --pairs pairs.txt --json
  kova-fr eval --crop --strict --out result faces/)";

EvalInput ReadInput(const EvalOptions& options) {
    if (options.folder.empty() == options.pairsPath.empty()) {
        throw CLI::RequiredError("either FOLDER or --pairs");
    }
    return options.pairsPath.empty() ? FindPeople(options.folder, options.byName)
                                     : ReadPairs(options.pairsPath);
}

void CheckNotEmpty(const kova_statistics::Comparisons& comparisons) {
    const bool hasPairs =
        comparisons.pairs ? !comparisons.pairs->empty() : comparisons.features.size() >= 2;
    if (!hasPairs) {
        throw Failure("no pair of pictures is left to compare; give two pictures at least");
    }
}

void NameCopies(const kova_statistics::Scores& scores, const std::vector<std::string>& names,
                Evaluation& evaluation) {
    evaluation.copiesOfOne = scores.copiesOfOne;
    evaluation.copiesOfTwo = scores.copiesOfTwo;
    for (const kova_statistics::Pair& pair : scores.firstCopies) {
        evaluation.copies.push_back(names[pair.first] + " and " + names[pair.second]);
    }
}

OutputFile FileOf(const fs::path& path, const std::string& text) {
    return {path.string(), true, std::vector<uint8_t>(text.begin(), text.end())};
}

// Refused before the work rather than after it.
void MakeOutFolder(const std::string& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error || !fs::is_directory(folder)) {
        throw Failure(folder + ": the folder cannot be made: " +
                      (error ? error.message() : "a file has that name") +
                      "; choose another place");
    }
}

void RunEval(const EvalOptions& options) {
    const EvalInput input = ReadInput(options);
    if (!options.outFolder.empty()) {
        MakeOutFolder(options.outFolder);
    }
    Evaluation evaluation;
    const std::vector<std::optional<Feature>> features =
        ReadFeatures(Recogniser(), input, options.reading, evaluation.leftOut);
    const kova_statistics::Comparisons comparisons = MakeComparisons(input, features);
    CheckNotEmpty(comparisons);

    kova_statistics::ScoringLimits limits;
    limits.seed = options.seed;
    Progress comparing("Comparing");
    const kova_statistics::Scores scores = ScorePairs(
        comparisons, limits, [&](size_t done, size_t all) { comparing.Show(done, all); });
    comparing.Clear();
    Progress drawing("Redrawing");
    evaluation.figures = ComputeFigures(scores, comparisons.people, options.rounds, options.seed,
                                        [&](size_t done, size_t all) { drawing.Show(done, all); });
    drawing.Clear();

    std::vector<std::string> names;
    for (size_t i = 0; i < features.size(); ++i) {
        if (features[i]) {
            names.push_back(input.pictures[i]);
        }
    }
    NameCopies(scores, names, evaluation);
    evaluation.pictures = comparisons.features.size();
    evaluation.people = comparisons.people;
    evaluation.hasPeople = !comparisons.pairs;
    evaluation.pairsLeftOut =
        comparisons.pairs ? input.pairs->size() - comparisons.pairs->size() : 0;
    evaluation.repeatedPairs = input.repeatedPairs;
    evaluation.rounds = options.rounds;
    evaluation.seed = options.seed;
    evaluation.isCrops = options.reading.isCrop;
    evaluation.strangers = DifferentFromTheHighest(kova_statistics::Acceptance(scores.all));

    const std::string text = EvaluationText(evaluation);
    const std::string json = EvaluationJson(evaluation);
    if (!options.outFolder.empty()) {
        const fs::path out = options.outFolder;
        WriteFiles({FileOf(out / "report.txt", text), FileOf(out / "report.json", json),
                    FileOf(out / "roc.svg", RocChart(evaluation.figures)),
                    FileOf(out / "det.svg", DetChart(evaluation.figures)),
                    FileOf(out / "histogram.svg", HistogramChart(scores.all, evaluation.figures))});
    }
    WriteStandardOutput(options.json ? json : text);
}

} // namespace

void AddEvalCommand(CLI::App& program) {
    CLI::App& command = *program.add_subcommand(
        "eval", "Measure error rates on pictures of known people, and recommend thresholds");
    const auto options = std::make_shared<EvalOptions>();
    auto* const folder =
        command.add_option("folder", options->folder, "Pictures, one sub-folder a person")
            ->type_name("FOLDER");
    command
        .add_option("--pairs", options->pairsPath, "List of pairs to compare, in place of a folder")
        ->excludes(folder)
        ->type_name("FILE");
    command
        .add_flag("--by-name", options->byName,
                  "FOLDER has the pictures themselves; a person is what stands before the last - "
                  "or _ of their names (ada-1.png, ada-2.png)")
        ->needs(folder);
    command
        .add_option("--out", options->outFolder,
                    "Write the report and the charts there; made if it is not there")
        ->type_name("DIR");
    AddReadingOptions(command, options->reading);
    command.add_option("--rounds", options->rounds, "Sets of redrawn people for the intervals")
        ->check(CLI::Range(10, 100000))
        ->capture_default_str();
    command.add_option("--seed", options->seed, "Of everything drawn at random")
        ->capture_default_str();
    command.add_flag("--json", options->json, "Print one line of JSON");
    command.footer(kMeaning + ThresholdsText() + kExamples);
    command.callback([options] { RunEval(*options); });
}

} // namespace kova_cli
