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
#include "evaluation/grouping.h"
#include "evaluation/pair_scores.h"
#include "evaluation/report/contact_sheet.h"
#include "evaluation/report/eval_report.h"
#include "evaluation/report/other_report.h"
#include "evaluation/shipped_thresholds.h"
#include "faces/faces_of.h"
#include "files/failure.h"
#include "files/output_file.h"
#include "terminal/label.h"
#include "terminal/progress.h"
#include "terminal/warning.h"

namespace kova_cli {
namespace {

namespace fs = std::filesystem;

struct EvalOptions {
    std::string folder;
    std::string pairsPath;
    std::string outFolder;
    std::string scoresPath;  // empty: no table of pairs
    std::string againstPath; // empty: no second curve
    std::string groupsPath;  // who belongs to which group, of a folder
    std::string groupColumn; // empty: no rates by group
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
files report.txt, report.json, roc.svg, det.svg, histogram.svg, and worst.png, which
shows the faces of the pairs that are most wrong. --scores writes a table of all pairs.
--against draws the curve of an earlier report.json beside this one.

--group-by adds the rates inside groups, at the thresholds of all. For a folder --groups
is a table with headings: person,age and lines such as ada,30; or picture,light and
lines such as ada/1.png,day. A list of pairs has the column itself, below a line of
headings: first,second,same,light.
docs/THRESHOLDS.md explains the words and how to choose.

)";

constexpr const char* kExamples = R"(
Examples:
  kova-fr eval people/
  kova-fr eval --by-name --out result samples/
  kova-fr eval --pairs pairs.txt --json
  kova-fr eval --out new --against old/report.json --scores pairs.csv people/
  kova-fr eval --groups people.csv --group-by age people/
  kova-fr eval --crop --strict --out result faces/)";

EvalInput ReadInput(const EvalOptions& options) {
    if (options.folder.empty() == options.pairsPath.empty()) {
        throw CLI::RequiredError("either FOLDER or --pairs");
    }
    if (!options.pairsPath.empty()) {
        return ReadPairs(options.pairsPath, options.groupColumn);
    }
    if (options.groupColumn.empty() != options.groupsPath.empty()) {
        throw CLI::RequiredError("both --groups and --group-by for a folder");
    }
    EvalInput input = FindPeople(options.folder, options.byName);
    if (!options.groupColumn.empty()) {
        input.grouping = ReadGroups(options.groupsPath, options.groupColumn, options.folder, input);
    }
    return input;
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

// A picture that stands under two people makes two people of one, and so wrong figures.
void WarnOfCopies(const Evaluation& evaluation, const kova_statistics::Scores& scores,
                  const kova_statistics::Comparisons& comparisons) {
    if (scores.copiesOfTwo == 0) {
        return;
    }
    std::string first;
    for (size_t i = 0; i < scores.firstCopies.size() && first.empty(); ++i) {
        const kova_statistics::Pair& pair = scores.firstCopies[i];
        first = comparisons.person[pair.first] != comparisons.person[pair.second]
                    ? ", such as " + evaluation.copies[i]
                    : "";
    }
    Warn(std::to_string(scores.copiesOfTwo) +
         (scores.copiesOfTwo == 1 ? " pair of two people shows" : " pairs of two people show") +
         " one and the same picture" + first + "; see the report");
}

// The faces of single pictures, read once more.
CropOf CropsOf(const Recogniser& recogniser, const FeatureReading& reading) {
    return [&recogniser, reading](const std::string& path) -> std::vector<uint8_t> {
        try {
            Finder finder;
            const std::vector<Face> faces =
                FacesOf(recogniser, finder, LoadPicture(path), {reading.isCrop, {}, true});
            return faces.empty() ? std::vector<uint8_t>() : faces[LargestGood(faces)].crop;
        } catch (const Failure&) {
            return {}; // it has changed since it was read
        }
    };
}

// The rates inside each group, where all pairs put the thresholds.
void AddGroups(const EvalInput& input, const std::vector<std::optional<Feature>>& features,
               const kova_statistics::ScoringLimits& limits, Evaluation& evaluation) {
    std::vector<size_t> ranks;
    for (const kova_statistics::Recommendation& one : evaluation.figures.recommendations) {
        if (one.errors) {
            ranks.push_back(one.errors->rank);
        }
    }
    const Grouping& grouping = input.grouping;
    Progress comparing("Comparing in groups");
    for (uint32_t group = 0; group < grouping.names.size(); ++group) {
        comparing.Show(group, grouping.names.size());
        const kova_statistics::Comparisons inside = ComparisonsOfGroup(input, features, group);
        const kova_statistics::Scores scores = ScorePairs(inside, limits, [](size_t, size_t) {});
        const kova_statistics::Acceptance acceptance(scores.all);
        evaluation.groups.push_back(
            {grouping.names[group], inside.features.size(), inside.people, acceptance.SamePairs(),
             acceptance.DifferentPairs(),
             ErrorsAtRanks(scores, inside.people, ranks, evaluation.rounds, limits.seed)});
    }
    comparing.Clear();
    evaluation.groupColumn = grouping.column;
    evaluation.withoutGroup =
        static_cast<size_t>(std::count(grouping.of.begin(), grouping.of.end(), kNoGroup));
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
    const OtherCurve other = ReadOtherCurve(options.againstPath);
    if (!options.scoresPath.empty()) {
        CheckOutputs({{options.scoresPath, true, {}}}, input.pictures);
    }
    if (!options.outFolder.empty()) {
        MakeOutFolder(options.outFolder);
    }
    Evaluation evaluation;
    const Recogniser recogniser;
    const std::vector<std::optional<Feature>> features =
        ReadFeatures(recogniser, input, options.reading, evaluation.leftOut);
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
    WarnOfCopies(evaluation, scores, comparisons);
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
    AddGroups(input, features, limits, evaluation);

    const std::string text = EvaluationText(evaluation);
    const std::string json = EvaluationJson(evaluation);
    if (!options.scoresPath.empty()) {
        WritePairScores(comparisons, names, options.scoresPath);
    }
    if (!options.outFolder.empty()) {
        constexpr size_t kWorst = 8; // of each kind
        const fs::path out = options.outFolder;
        const std::vector<uint8_t> sheet = ContactSheet(FindWorstPairs(comparisons, kWorst), names,
                                                        CropsOf(recogniser, options.reading));
        WriteFiles({FileOf(out / "report.txt", text),
                    FileOf(out / "report.json", json),
                    {(out / "worst.png").string(), true, sheet},
                    FileOf(out / "roc.svg", RocChart(evaluation.figures, other)),
                    FileOf(out / "det.svg", DetChart(evaluation.figures, other)),
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
    command
        .add_option(
            "--scores", options->scoresPath,
            "Write a table of all pairs there: both pictures, 1 for one person or 0 for two, "
            "and the score")
        ->type_name("FILE.csv");
    command
        .add_option("--against", options->againstPath,
                    "Draw the curve of this earlier report beside the new one; needs --out")
        ->needs("--out")
        ->type_name("report.json");
    command
        .add_option("--groups", options->groupsPath,
                    "Table that says of people or pictures which group they belong to")
        ->needs(folder)
        ->excludes("--pairs")
        ->type_name("FILE.csv");
    command
        .add_option("--group-by", options->groupColumn,
                    "Rates by what stands in this column, of --groups or of the list of pairs")
        ->type_name("COLUMN");
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
